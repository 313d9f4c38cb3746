#include <gtest/gtest.h>

#include "Apps/ferrox/Events/Command.h"
#include "Platform/Base/Json.h"

namespace ferrox::command {
namespace {

Command command(std::string_view json) { return {"post", parseJson(json).value_or(FRXValue())}; }

TEST(CommandMembers, AreReadByTheirTypes) {
  const Command good = command(R"({"name": "X", "filter": " f ", "userInfo": {"a": 1}, "repost": true})");
  CommandMembers members(good);
  EXPECT_EQ(members.name("name"), "X");
  EXPECT_EQ(members.optionalName("filter"), " f ");
  EXPECT_EQ(members.optionalObject("userInfo"), (FRXDictionary{{"a", 1}}));
  EXPECT_TRUE(members.optionalFlag("repost"));
  EXPECT_EQ(members.problem(), "");
}

TEST(CommandMembers, ThatAreOptionalMayBeLeftOutOrNull) {
  for (const char* json : {"{}", R"({"filter": null, "userInfo": null, "repost": null})"}) {
    const Command empty = command(json);
    CommandMembers members(empty);
    EXPECT_FALSE(members.optionalName("filter"));
    EXPECT_TRUE(members.optionalObject("userInfo").empty());
    EXPECT_FALSE(members.optionalFlag("repost"));
    EXPECT_EQ(members.problem(), "");
  }
}

TEST(CommandMembers, TellWhatWasWrongFirst) {
  const Command bad = command(R"({"filter": 7, "userInfo": [], "repost": 1})");
  CommandMembers members(bad);
  members.name("name");
  members.optionalName("filter");
  members.optionalObject("userInfo");
  members.optionalFlag("repost");
  EXPECT_EQ(members.problem(), "\"name\" must be a text");
}

TEST(CommandMembers, OfAnotherTypeAreRefused) {
  const Command bad = command(R"({"filter": " ", "userInfo": [], "repost": 1, "text": null})");
  const auto problemOf = [&](auto read) {
    CommandMembers members(bad);
    read(members);
    return members.problem();
  };
  EXPECT_EQ(problemOf([](CommandMembers& m) { m.optionalName("filter"); }), "\"filter\" must not be blank");
  EXPECT_EQ(problemOf([](CommandMembers& m) { m.optionalObject("userInfo"); }),
            "\"userInfo\" must be an object");
  EXPECT_EQ(problemOf([](CommandMembers& m) { m.optionalFlag("repost"); }),
            "\"repost\" must be true or false");
  EXPECT_EQ(problemOf([](CommandMembers& m) { m.text("text"); }), "\"text\" must be a text");
}

TEST(CommandMembers, NumbersAreWholeWhereTheyHaveTo) {
  const Command numbers = command(R"({"whole": -3, "part": 0.5, "text": "1", "none": null})");
  CommandMembers members(numbers);
  EXPECT_EQ(members.optionalInteger("whole"), -3);
  EXPECT_EQ(members.optionalNumber("whole"), -3.0);
  EXPECT_EQ(members.optionalNumber("part"), 0.5);
  EXPECT_EQ(members.optionalInteger("none"), std::nullopt);
  EXPECT_EQ(members.optionalNumber("absent"), std::nullopt);
  EXPECT_EQ(members.problem(), "");
  EXPECT_EQ(members.optionalInteger("part"), std::nullopt);
  EXPECT_EQ(members.problem(), "\"part\" must be a whole number");
  CommandMembers others(numbers);
  EXPECT_EQ(others.optionalNumber("text"), std::nullopt);
  EXPECT_EQ(others.problem(), "\"text\" must be a number");
}

}  // namespace
}  // namespace ferrox::command
