#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Classes/GraphQL/FRXGraphQLInterpreter.h"
#include "Platform/Base/Json.h"
#include "Tests/Classes/GraphQL/OfferingHost.h"

namespace ferrox::test {
namespace {

class FRXGraphQLInterpreterTests : public testing::Test, protected OfferingHost {
 protected:
  FRXValue answerTo(const std::optional<std::string>& query) const {
    int answers = 0;
    FRXValue document;
    interpreter_.query(query, [&](const std::string& response) {
      ++answers;
      auto parsed = parseJson(response);
      EXPECT_TRUE(parsed) << response;
      document = std::move(parsed).value_or(FRXValue());
    });
    EXPECT_EQ(answers, 1);
    return document;
  }
  static FRXValue json(std::string_view text) { return parseJson(text).value_or(FRXValue()); }

  const FRXGraphQLInterpreter interpreter_;
};

TEST_F(FRXGraphQLInterpreterTests, TheStandardQueryHasItsText) {
  EXPECT_EQ(FRXCapabilitiesQuery,
            "{ capabilities { streaming { name path contentType port } projectsharing { name id port } } }");
}

TEST_F(FRXGraphQLInterpreterTests, OneStreamAndNoProjectsAtAll) {
  addStream("cam A", "video-angle");
  EXPECT_EQ(answerTo(std::string(FRXCapabilitiesQuery)), json(R"({"data":{"capabilities":{
      "streaming":[{"name":"Stream cam A","path":"/streams/cam%20A","contentType":"VIDEO_ANGLE","port":16654}],
      "projectsharing":null}}})"));
}

TEST_F(FRXGraphQLInterpreterTests, OneProjectAndNoStreamsYet) {
  offerStreams();
  addProject("P \"1\"", 0);
  EXPECT_EQ(answerTo(std::string(FRXCapabilitiesQuery)), json(R"({"data":{"capabilities":{
      "streaming":[],"projectsharing":[{"name":"Project P \"1\"","id":"P \"1\"","port":0}]}}})"));
}

TEST_F(FRXGraphQLInterpreterTests, WithoutCapabilitiesBothListsAreNull) {
  EXPECT_EQ(answerTo(std::string(FRXCapabilitiesQuery)),
            json(R"({"data":{"capabilities":{"streaming":null,"projectsharing":null}}})"));
}

TEST_F(FRXGraphQLInterpreterTests, MomentsDataAndOtherTextsAreMomentsData) {
  addStream("a", "moments-data");
  addStream("b", "something else");
  EXPECT_EQ(answerTo("{ capabilities { streaming { contentType } } }"), json(R"({"data":{"capabilities":{
      "streaming":[{"contentType":"MOMENTS_DATA"},{"contentType":"MOMENTS_DATA"}]}}})"));
}

TEST_F(FRXGraphQLInterpreterTests, TellsTheNamesOfItsTypes) {
  addStream("a", "video-angle");
  addProject("p");
  EXPECT_EQ(answerTo("{ __typename }"), json(R"({"data":{"__typename":"Query"}})"));
  EXPECT_EQ(
      answerTo("{ capabilities { __typename streaming { __typename } projectsharing { __typename } } }"),
      json(R"({"data":{"capabilities":{"__typename":"Capabilities",
                    "streaming":[{"__typename":"StreamingSource"}],
                    "projectsharing":[{"__typename":"ProjectSharingSource"}]}}})"));
}

TEST_F(FRXGraphQLInterpreterTests, DescribesItsSchema) {
  EXPECT_EQ(
      answerTo(R"({ __type(name: "ContentType") { kind enumValues { name } } })"),
      json(
          R"({"data":{"__type":{"kind":"ENUM","enumValues":[{"name":"VIDEO_ANGLE"},{"name":"MOMENTS_DATA"}]}}})"));
  EXPECT_EQ(answerTo("{ __schema { queryType { name } mutationType { name } } }"),
            json(R"({"data":{"__schema":{"queryType":{"name":"Query"},"mutationType":null}}})"));
}

TEST_F(FRXGraphQLInterpreterTests, WhatCannotBeAnsweredIsAnsweredWithErrors) {
  const std::vector<std::optional<std::string>> queries{std::nullopt,  "",
                                                        "garbage",     "{ capabilities }",
                                                        "{ unknown }", "mutation { x }",
                                                        "\xFF",        std::string(100'000, '{')};
  for (const auto& query : queries) {
    const FRXValue document = answerTo(query);
    const FRXValue* errors = document.member("errors");
    ASSERT_TRUE(errors && errors->asArray()) << query.value_or("nothing");
    EXPECT_FALSE(errors->asArray()->empty());
  }
}

TEST_F(FRXGraphQLInterpreterTests, AllInterpretersShareOneEngine) {
  EXPECT_EQ(FRXGraphQLInterpreter().engine(), interpreter_.engine());
}

TEST_F(FRXGraphQLInterpreterTests, AnswersOnSeveralThreadsAtOnce) {
  addStream("a", "video-angle");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      for (int n = 0; n < 50; ++n) {
        EXPECT_TRUE(answerTo(std::string(FRXCapabilitiesQuery)).member("data"));
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace ferrox::test
