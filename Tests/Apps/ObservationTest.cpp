#include <gtest/gtest.h>

#include "Apps/ferrox/Node/Observation.h"

namespace ferrox::command {
namespace {

std::optional<Observation> read(std::string_view text) {
  std::string problem;
  const auto observation = Observation::fromText(text, problem);
  EXPECT_EQ(observation.has_value(), problem.empty()) << text;
  return observation;
}

TEST(Observation, IsANameAlone) {
  const auto observation = read("Take Ready");
  ASSERT_TRUE(observation);
  EXPECT_EQ(observation->name, "Take Ready");
  EXPECT_FALSE(observation->filter);
}

TEST(Observation, IsCutAtTheFirstEqualsSign) {
  EXPECT_EQ(read("Take=edit suite 3"), (Observation{"Take", "edit suite 3"}));
  EXPECT_EQ(read("Take=a=b"), (Observation{"Take", "a=b"}));
  EXPECT_EQ(read("Take= x "), (Observation{"Take", " x "})) << "a filter keeps its blanks";
}

TEST(Observation, WithABlankPartIsRefused) {
  for (const char* text : {"", " ", "=", "=f", "\t=f", "X=", "X= ", "X=\t\n"})
    EXPECT_FALSE(read(text)) << text;
}

TEST(Observation, ThatIsNoTextIsRefused) { EXPECT_FALSE(read("X=\xff")); }

}  // namespace
}  // namespace ferrox::command
