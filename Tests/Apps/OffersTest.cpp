#include <gtest/gtest.h>

#include <filesystem>

#include "Apps/ferrox/Node/Offers.h"
#include "Classes/Utilities/FileURL.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox::command {
namespace {

class OfferTest : public testing::Test {
 protected:
  std::optional<Offer> read(const std::string& text) { return Offer::fromText(text, problem); }
  test::TemporaryDirectory directory;
  std::string path = std::filesystem::canonical(directory.path()).string();
  std::string problem;
};

TEST_F(OfferTest, TheNameIsTheIdUnlessGiven) {
  EXPECT_EQ(read("film=" + path), (Offer{"film", "film", path}));
  EXPECT_EQ(read("film:Film rushes=" + path), (Offer{"film", "Film rushes", path}));
}

TEST_F(OfferTest, OnlyTheFirstEqualsSignSeparates) {
  const std::string odd = path + "/a=b:c";
  std::filesystem::create_directory(odd);
  EXPECT_EQ(read("x=" + odd), (Offer{"x", "x", odd}));
}

TEST_F(OfferTest, TheFileURLLeadsBackToTheDirectory) {
  const std::string odd = path + "/50% \xc3\xa9 #1";
  std::filesystem::create_directory(odd);
  const auto offer = read("x=" + odd);
  ASSERT_TRUE(offer);
  EXPECT_EQ(pathFromFileURL(offer->fileURL()), odd);
}

TEST_F(OfferTest, BadOnesAreRefusedWithAReason) {
  for (const std::string& text :
       {std::string("film"), "=" + path, "film:=" + path, "a/b=" + path, "a\x1b=" + path,
        std::string("film="), "film=" + path + "/missing", std::string("film=/dev/null")}) {
    problem.clear();
    EXPECT_FALSE(read(text)) << text;
    EXPECT_FALSE(problem.empty()) << text;
  }
}

}  // namespace
}  // namespace ferrox::command
