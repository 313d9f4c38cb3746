#include <gtest/gtest.h>

#include <thread>

#include "Platform/Log/Log.h"
#include "Tests/Platform/HTTP/Server/ServerFixture.h"
#include "Tests/Support/FakeDNSSD.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

class PublicationTest : public ::testing::Test {
 protected:
  PublicationTest() {
    Log::setSink(sink);
    server.setConnectionClass([script = script] { return std::make_unique<ScriptedConnection>(script); });
    server.setType("_ferrox._tcp");
    server.setName("Suite");
  }
  ~PublicationTest() override {
    server.stop();
    loop.runPending();
    Log::setSink(nullptr);
  }

  RunLoop loop;
  FakeDNSSD discovery{loop};
  std::shared_ptr<RecordingLogSink> sink = std::make_shared<RecordingLogSink>();
  std::shared_ptr<Script> script = std::make_shared<Script>();
  HTTPServer server{&discovery};
};

TEST_F(PublicationTest, LastsFromStartToStop) {
  server.setTXTRecordDictionary({{"App", "x"}});
  EXPECT_TRUE(discovery.publications().empty());
  ASSERT_TRUE(server.start());
  ASSERT_EQ(discovery.publications().size(), 1U);
  const FakePublication publication = discovery.publications()[0];
  EXPECT_EQ(publication.request.name, "Suite");
  EXPECT_EQ(publication.request.type, "_ferrox._tcp");
  EXPECT_EQ(publication.request.domain, "");
  EXPECT_EQ(publication.request.port, server.port());
  EXPECT_NE(server.port(), 0);
  EXPECT_EQ(publication.request.txt, (TXTDictionary{{"App", "x"}}));
  server.stop();
  EXPECT_TRUE(discovery.publications()[0].isWithdrawn);
}

TEST_F(PublicationTest, NeedsAType) {
  server.setType("");
  ASSERT_TRUE(server.start());
  server.republishBonjour();
  EXPECT_TRUE(discovery.publications().empty());
}

TEST_F(PublicationTest, TXTRecordsAreRewrittenFromAnyThread) {
  ASSERT_TRUE(server.start());
  std::vector<std::thread> writers;
  for (int i = 0; i < 4; ++i) {
    writers.emplace_back([&, i] {
      for (int n = 0; n < 50; ++n) server.setTXTRecordDictionary({{"N", std::to_string(i * 50 + n)}});
    });
  }
  for (auto& writer : writers) writer.join();
  const auto publications = discovery.publications();
  ASSERT_EQ(publications.size(), 1U);
  EXPECT_EQ(publications[0].txtHistory.size(), 201U);
  EXPECT_EQ(publications[0].txtHistory.back(), server.txtRecordDictionary())
      << "the last one kept is the last sent";
}

TEST_F(PublicationTest, RepublishingWithdrawsFirst) {
  ASSERT_TRUE(server.start());
  server.setName("Other");
  server.republishBonjour();
  const auto publications = discovery.publications();
  ASSERT_EQ(publications.size(), 2U);
  EXPECT_TRUE(publications[0].isWithdrawn);
  EXPECT_FALSE(publications[1].isWithdrawn);
  EXPECT_EQ(publications[1].request.name, "Other");
}

TEST_F(PublicationTest, RepublishingWhileStoppedDoesNothing) {
  server.republishBonjour();
  EXPECT_TRUE(discovery.publications().empty());
}

TEST_F(PublicationTest, ACollisionChangesTheNameAndIsLogged) {
  discovery.setConfirmsPublications(false);
  ASSERT_TRUE(server.start());
  discovery.confirmPublication(0, "Suite #2");
  ASSERT_TRUE(loop.runUntil([&] { return server.name() == "Suite #2"; }, 5s));
  EXPECT_EQ(sink->count(LogLevel::Warn, "The service name \"Suite\" is taken; published as \"Suite #2\""),
            1U);
  discovery.confirmPublication(0, "Suite #3");
  EXPECT_TRUE(loop.runUntil([&] { return server.name() == "Suite #3"; }, 5s));
}

TEST_F(PublicationTest, LateNewsOfAnOldPublicationIsIgnored) {
  discovery.setConfirmsPublications(false);
  ASSERT_TRUE(server.start());
  server.setName("Other");
  server.republishBonjour();
  discovery.publications()[0].request.onPublished("Suite #2");
  EXPECT_EQ(server.name(), "Other");
}

TEST_F(PublicationTest, ANameChosenMeanwhileIsKept) {
  discovery.setConfirmsPublications(false);
  ASSERT_TRUE(server.start());
  server.setName("Other");
  discovery.publications()[0].request.onPublished("Suite");
  discovery.publications()[0].request.onPublished("Suite #2");
  EXPECT_EQ(server.name(), "Other");
}

TEST_F(PublicationTest, LongNamesAreCutAtACharacterAndLogged) {
  const std::string name = std::string(62, 'a') + "\xC3\xA9";  // 64 bytes, 63 characters
  server.setName(name);
  ASSERT_TRUE(server.start());
  EXPECT_EQ(discovery.publications()[0].request.name, std::string(62, 'a'));
  EXPECT_EQ(server.name(), std::string(62, 'a'));
  ASSERT_FALSE(sink->entries().empty());
  EXPECT_EQ(sink->entries()[0].level, LogLevel::Warn);
  server.stop();
  const std::string fits = std::string(61, 'a') + "\xC3\xA9";
  server.setName(fits);
  ASSERT_TRUE(server.start());
  EXPECT_EQ(server.name(), fits);
}

TEST_F(PublicationTest, AFailedStartPublishesNothing) {
  HTTPServer other(nullptr);
  ASSERT_TRUE(other.start());
  server.setPort(other.port());
  FRXError error;
  EXPECT_FALSE(server.start(&error));
  EXPECT_TRUE(discovery.publications().empty());
}

}  // namespace
}  // namespace ferrox::test
