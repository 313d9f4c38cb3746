#include <gtest/gtest.h>

#include <string>

#include "Platform/HTTP/Server/HTTPDate.h"

namespace ferrox::test {
namespace {

TEST(HTTPDateTests, AllThreeFormsAreRead) {
  for (const std::string text :
       {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"}) {
    EXPECT_EQ(timeOfHTTPDate(text), 784111777) << text;
  }
}

TEST(HTTPDateTests, WhatIsWrittenIsReadBack) {
  for (const std::time_t time : {std::time_t{0}, std::time_t{951782400}, std::time_t{1795269600},
                                 std::time_t{4102444799}, std::time_t{-86400}}) {
    EXPECT_EQ(timeOfHTTPDate(httpDate(time)), time);
  }
}

TEST(HTTPDateTests, YearsOfTwoDigitsLieAround2000) {
  EXPECT_EQ(timeOfHTTPDate("Saturday, 01-Jan-00 00:00:00 GMT"), 946684800);
  EXPECT_EQ(timeOfHTTPDate("Thursday, 01-Jan-70 00:00:00 GMT"), 0);
}

TEST(HTTPDateTests, AnythingElseIsNoDate) {
  for (const std::string text :
       {"", "0", "yesterday", "Sun, 06 Nov 1994 08:49:37", "Sun, 06 Nov 1994 08:49:37 CET",
        "Sun, 06 Nov 1994 08:49:37 GMT ", "Sun, 31 Feb 1994 08:49:37 GMT", "Sun, 06 Foo 1994 08:49:37 GMT",
        "Sun, 06 Nov 1994 24:49:37 GMT", "Sun, 06 Nov 1994 08:60:37 GMT", "Sun, -6 Nov 1994 08:49:37 GMT",
        "Sun, 06 Nov 99999 08:49:37 GMT", "Sun Nov  6 08:49:37 1994 GMT"}) {
    EXPECT_FALSE(timeOfHTTPDate(text)) << text;
  }
}

}  // namespace
}  // namespace ferrox::test
