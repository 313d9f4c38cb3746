#include <gtest/gtest.h>

#include "Classes/GraphQL/CapabilitiesSchema.h"
#include "Classes/GraphQL/FRXCapabilitiesQuery.h"
#include "Classes/GraphQL/FRXQueryType.h"
#include "Platform/FileSystem/ResourceBundle.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox::test {
namespace {

class CapabilitiesSchemaTests : public testing::Test {
 protected:
  std::shared_ptr<const GraphQLEngine> engineFor(std::string_view sdl) const {
    folder_.write("Schema.graphql", sdl);
    const ResourceBundle bundle(folder_.path());
    return capabilitiesEngine(&bundle);
  }
  static std::string answer(const GraphQLEngine& engine, std::string_view query) {
    std::string answer;
    engine.executeQuery(query, GQLQueryType(), [&](const std::string& response) { answer = response; });
    return answer;
  }
  static bool answersPeers(const GraphQLEngine& engine) {
    return answer(engine, FRXCapabilitiesQuery) ==
           R"({"data":{"capabilities":{"streaming":null,"projectsharing":null}}})";
  }

  const LogRecording log_{LogLevel::Warn};
  const TemporaryDirectory folder_;
};

TEST_F(CapabilitiesSchemaTests, TheCompiledTextIsTheFileThatShips) {
  const auto bundle = ResourceBundle::named("GraphQL", "bundle");
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->text("Schema", "graphql"), compiledCapabilitiesSchema());
}

TEST_F(CapabilitiesSchemaTests, ThatFileAnswersWhatPeersAsk) {
  EXPECT_TRUE(answersPeers(*engineFor(compiledCapabilitiesSchema())));
  EXPECT_TRUE(log_->entries().empty());
}

TEST_F(CapabilitiesSchemaTests, AnotherFileThatAnswersWhatPeersAskIsUsed) {
  const auto engine = engineFor(R"(
      type Query { capabilities: All }
      type All { streaming: [S] projectsharing: [P] }
      type S { name: String path: String contentType: Kind port: Int }
      enum Kind { VIDEO_ANGLE MOMENTS_DATA }
      type P { name: String id: String port: Int })");
  EXPECT_TRUE(answersPeers(*engine));
  EXPECT_NE(answer(*engine, "{ __type(name: \"All\") { name } }").find("\"All\""), std::string::npos);
  EXPECT_TRUE(log_->entries().empty());
}

TEST_F(CapabilitiesSchemaTests, AMissingFileIsReplacedSilently) {
  const ResourceBundle empty(folder_.path());
  EXPECT_TRUE(answersPeers(*capabilitiesEngine(&empty)));
  EXPECT_TRUE(answersPeers(*capabilitiesEngine(nullptr)));
  EXPECT_TRUE(log_->entries().empty());
}

TEST_F(CapabilitiesSchemaTests, AnUnusableFileIsReplacedAndLogged) {
  const std::string kinds = "enum Kind { VIDEO_ANGLE }";
  const std::string rest =
      "type Query { capabilities: All } type All { streaming: [S] projectsharing: [P] } "
      "type S { name: String path: String contentType: Kind port: Int } type P { name: String id: ID port: "
      "Int } ";
  std::size_t logged = 0;
  for (const std::string& sdl :
       {std::string(), std::string("type Query {"), std::string("type Query { a: Int }"), rest, rest + kinds,
        std::string("\0", 1)}) {
    EXPECT_TRUE(answersPeers(*engineFor(sdl))) << sdl;
    EXPECT_EQ(log_->entries().size(), ++logged) << sdl;
  }
}

TEST_F(CapabilitiesSchemaTests, AFileThatIsNoTextIsReplacedAndLogged) {
  EXPECT_TRUE(answersPeers(*engineFor("\xFF\xFE")));
  EXPECT_TRUE(answersPeers(*engineFor(std::string((1 << 20) + 1, '#'))));
  EXPECT_EQ(log_->entries().size(), 2U);
}

}  // namespace
}  // namespace ferrox::test
