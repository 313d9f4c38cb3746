#include <gtest/gtest.h>

#include "Tests/Platform/HTTP/Server/ServerFixture.h"

namespace ferrox::test {
namespace {

struct Malformed {
  const char* name;
  std::string bytes;
  int status;
};

/// Every one is answered once, with the connection closed behind it: what follows cannot be trusted.
class MalformedRequestTest : public ServerTest, public ::testing::WithParamInterface<Malformed> {};

TEST_P(MalformedRequestTest, IsAnsweredAndTheConnectionClosed) {
  start();
  RawSocket client = connect();
  // A second request behind the first: it must not be taken for one.
  ASSERT_TRUE(client.send(GetParam().bytes + "GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  const auto response = client.readResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, GetParam().status);
  EXPECT_EQ(response->field("connection"), "close");
  EXPECT_FALSE(response->field("date").empty());
  EXPECT_EQ(response->field("content-length"), "0");
  EXPECT_EQ(client.readAll(), "");
  RawSocket next = connect();
  ASSERT_TRUE(next.send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  EXPECT_EQ(next.readResponse()->status, 200);
}

const std::string get = "GET /small HTTP/1.1\r\n";
const std::string post = "POST /echo HTTP/1.1\r\nHost: a\r\n";

INSTANTIATE_TEST_SUITE_P(
    Table, MalformedRequestTest,
    ::testing::Values(
        Malformed{"MissingHost", get + "\r\n", 400},
        Malformed{"DoubledHost", get + "Host: a\r\nHost: a\r\n\r\n", 400},
        Malformed{"DoubledHostIn10", "GET /small HTTP/1.0\r\nHost: a\r\nHost: b\r\n\r\n", 400},
        Malformed{"HostWithPath", get + "Host: a/b\r\n\r\n", 400},
        Malformed{"HostWithUser", get + "Host: u@a\r\n\r\n", 400},
        Malformed{"HostWithBlank", get + "Host: a b\r\n\r\n", 400},
        Malformed{"HostWithBadPort", get + "Host: a:8x\r\n\r\n", 400},
        Malformed{"FoldedLine", get + "Host: a\r\nX: 1\r\n 2\r\n\r\n", 400},
        Malformed{"FoldedLineByTab", get + "Host: a\r\nX: 1\r\n\t2\r\n\r\n", 400},
        Malformed{"FoldedFirstField", get + " Host: a\r\n\r\n", 400},
        Malformed{"BareLineFeed", "GET /small HTTP/1.1\nHost: a\n\n", 400},
        Malformed{"BareLineFeedInField", get + "Host: a\nX: 1\r\n\r\n", 400},
        Malformed{"BareCarriageReturn", get + "Host: a\rX: 1\r\n\r\n", 400},
        Malformed{"NulInField", get + std::string("Host: a\r\nX: \0y\r\n\r\n", 17), 400},
        Malformed{"NulInTarget", std::string("GET /sm\0all HTTP/1.1\r\nHost: a\r\n\r\n", 33), 400},
        Malformed{"BlankBeforeColon", get + "Host : a\r\n\r\n", 400},
        Malformed{"NoColon", get + "Host: a\r\nnonsense\r\n\r\n", 400},
        Malformed{"EmptyFieldName", get + "Host: a\r\n: x\r\n\r\n", 400},
        Malformed{"NoVersion", "GET /small\r\nHost: a\r\n\r\n", 400},
        Malformed{"NotHTTP", "GET /small HTTQ/1.1\r\nHost: a\r\n\r\n", 400},
        Malformed{"TwoBlanks", "GET  /small HTTP/1.1\r\nHost: a\r\n\r\n", 400},
        Malformed{"RelativeTarget", "GET small HTTP/1.1\r\nHost: a\r\n\r\n", 400},
        Malformed{"ForeignScheme", "GET ftp://a/small HTTP/1.1\r\nHost: a\r\n\r\n", 400},
        Malformed{"AbsoluteWithUser", "GET http://u:p@a/small HTTP/1.1\r\nHost: a\r\n\r\n", 400},
        Malformed{"AbsoluteWithoutHost", "GET http:///small HTTP/1.1\r\nHost: a\r\n\r\n", 400},
        Malformed{"BinaryNoise", std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", 15),
                  400},
        Malformed{"TooManyBlankLines", "\r\n\r\n\r\n\r\n\r\n\r\n", 400},
        Malformed{"Version2", "GET /small HTTP/2.0\r\nHost: a\r\n\r\n", 505},
        Malformed{"Preface2", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 505},
        Malformed{"OtherCoding", post + "Transfer-Encoding: gzip\r\n\r\n", 501},
        Malformed{"CodingBeforeChunked", post + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", 501},
        Malformed{"ChunkedTwiceInOne", post + "Transfer-Encoding: chunked, chunked\r\n\r\n0\r\n\r\n", 501},
        Malformed{"ObscuredChunked", post + "Transfer-Encoding: xchunked\r\n\r\n0\r\n\r\n", 501},
        Malformed{"RepeatedCoding",
                  post + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
        Malformed{"RepeatedUnequalCoding",
                  post + "Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
        Malformed{"LengthAndCoding",
                  post + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
        Malformed{"CodingAndLength",
                  post + "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n\r\n0\r\n\r\n", 400},
        Malformed{"OtherCodingAndLength", post + "Transfer-Encoding: gzip\r\nContent-Length: 5\r\n\r\n", 400},
        Malformed{"ChunkedIn10", "POST /echo HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
        Malformed{"RepeatedLength", post + "Content-Length: 5\r\nContent-Length: 5\r\n\r\nhello", 400},
        Malformed{"UnequalLengths", post + "Content-Length: 5\r\nContent-Length: 6\r\n\r\nhello", 400},
        Malformed{"LengthList", post + "Content-Length: 5, 5\r\n\r\nhello", 400},
        Malformed{"NegativeLength", post + "Content-Length: -1\r\n\r\n", 400},
        Malformed{"SignedLength", post + "Content-Length: +5\r\n\r\nhello", 400},
        Malformed{"HexLength", post + "Content-Length: 0x5\r\n\r\nhello", 400},
        Malformed{"EmptyLength", post + "Content-Length: \r\n\r\n", 400},
        Malformed{"HugeLength", post + "Content-Length: 99999999999999999999999\r\n\r\n", 400},
        Malformed{"LengthOverLimit", post + "Content-Length: 1048577\r\n\r\n", 413},
        Malformed{"ChunkOverLimit", post + "Transfer-Encoding: chunked\r\n\r\n100001\r\n", 413},
        Malformed{"ChunkSizeNotHex", post + "Transfer-Encoding: chunked\r\n\r\nxyz\r\n\r\n", 400},
        Malformed{"ChunkSizeWraps", post + "Transfer-Encoding: chunked\r\n\r\nfffffffffffffffff\r\n", 400},
        Malformed{"ChunkWithoutEnd", post + "Transfer-Encoding: chunked\r\n\r\n1\r\nabcdef\r\n", 400},
        Malformed{"OtherExpectation", get + "Host: a\r\nExpect: miracles\r\n\r\n", 417},
        Malformed{"ForeignMethodWithBody", "PUT /small HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\nabc",
                  405}),
    [](const auto& tested) { return tested.param.name; });

using OddButRightRequestTest = ServerTest;

TEST_F(OddButRightRequestTest, AbsoluteFormIsAcceptedAndItsHostCounts) {
  std::string uri;
  script->routes["/small"] = [&](HTTPConnection& connection, std::string_view) {
    uri = connection.request()->uri();
    return std::make_unique<HTTPDataResponse>("x");
  };
  answerWith("/", "root");
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("GET http://a:80/small?q=1 HTTP/1.1\r\nHost: b\r\n\r\n"));
  EXPECT_EQ(client.readResponse()->status, 200);
  EXPECT_EQ(uri, "/small?q=1");
  ASSERT_TRUE(client.send("GET HTTP://a HTTP/1.1\r\nHost: a\r\n\r\n"));
  EXPECT_EQ(client.readResponse()->body, "root");
}

TEST_F(OddButRightRequestTest, AsteriskAndAuthorityFormsAreMethodsNotAllowed) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(
      client.send("OPTIONS * HTTP/1.1\r\nHost: a\r\n\r\nCONNECT a:443 HTTP/1.1\r\nHost: a:443\r\n\r\n"));
  EXPECT_EQ(client.readResponse()->status, 405);
  const auto second = client.readResponse();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->status, 405);
  EXPECT_EQ(second->field("allow"), "GET, HEAD, POST");
}

TEST_F(OddButRightRequestTest, OneByteAtATimeIsRead) {
  start();
  RawSocket client = connect();
  const std::string request =
      "\r\nPOST /echo HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n"
      "3;x=\"y\"\r\nabc\r\n0a\r\n0123456789\r\n0\r\nTrailer: t\r\n\r\n";
  for (const char c : request) ASSERT_TRUE(client.send(std::string_view(&c, 1)));
  const auto response = client.readResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->body, "abc0123456789");
}

TEST_F(OddButRightRequestTest, AnEmptyChunkedBodyInPiecesIsRead) {
  start();
  RawSocket client = connect();
  for (const char c :
       std::string("POST /echo HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n")) {
    ASSERT_TRUE(client.send(std::string_view(&c, 1)));
  }
  const auto response = client.readResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 200);
  EXPECT_EQ(response->body, "");
}

TEST_F(OddButRightRequestTest, BodiesArriveWholeAndTheNextRequestIsFound) {
  start();
  RawSocket client = connect();
  const std::string body = patternOf(300000);
  ASSERT_TRUE(client.send("POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 300000\r\n\r\n" + body +
                          "GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  const auto echoed = client.readResponse();
  ASSERT_TRUE(echoed);
  EXPECT_EQ(echoed->body, body);
  EXPECT_EQ(client.readResponse()->body, "{\"ok\":true}");
}

TEST_F(OddButRightRequestTest, ContinueIsSentWhenAskedFor) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(
      client.send("POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 2\r\nExpect: 100-continue\r\n\r\n"));
  EXPECT_EQ(client.readResponse()->status, 100);
  ASSERT_TRUE(client.send("hi"));
  EXPECT_EQ(client.readResponse()->body, "hi");
}

TEST_F(OddButRightRequestTest, ContinueIsNotSentForARefusedBody) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(
      client.send("PUT /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 2\r\nExpect: 100-continue\r\n\r\n"));
  EXPECT_EQ(client.readResponse()->status, 405);
  EXPECT_TRUE(client.isClosedByPeer());
}

TEST_F(OddButRightRequestTest, Version10ClosesUnlessAskedToKeep) {
  start();
  RawSocket closing = connect();
  ASSERT_TRUE(closing.send("GET /small HTTP/1.0\r\n\r\n"));
  EXPECT_EQ(closing.readResponse()->field("connection"), "close");
  EXPECT_TRUE(closing.isClosedByPeer());
  RawSocket kept = connect();
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(kept.send("GET /small HTTP/1.0\r\nConnection: Keep-Alive\r\n\r\n"));
    EXPECT_EQ(kept.readResponse()->field("connection"), "keep-alive");
  }
}

TEST_F(OddButRightRequestTest, CloseIsHonoured) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("GET /small HTTP/1.1\r\nHost: a\r\nConnection: x, close\r\n\r\n"));
  EXPECT_EQ(client.readResponse()->field("connection"), "close");
  EXPECT_TRUE(client.isClosedByPeer());
}

TEST_F(OddButRightRequestTest, HalfClosedClientsStillGetTheirAnswers) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("GET /small HTTP/1.1\r\nHost: a\r\n\r\nGET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  client.shutDownSending();
  EXPECT_EQ(client.readResponse()->status, 200);
  EXPECT_EQ(client.readResponse()->status, 200);
  EXPECT_TRUE(client.isClosedByPeer());
}

}  // namespace
}  // namespace ferrox::test
