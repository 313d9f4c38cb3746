#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "Platform/HTTP/Server/HTTPServer.h"
#include "Tests/Platform/HTTP/Server/ServerFixture.h"

namespace ferrox::test {
namespace {

using HTTPServerTest = ServerTest;

TEST_F(HTTPServerTest, AnswersAGetAndKeepsTheConnection) {
  start();
  RawSocket client = connect();
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(client.send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
    const auto response = client.readResponse();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, 200);
    EXPECT_EQ(response->body, "{\"ok\":true}");
    EXPECT_EQ(response->field("content-length"), "11");
    EXPECT_EQ(response->field("connection"), "");
    EXPECT_EQ(response->field("server"), "");
    EXPECT_TRUE(response->field("date").ends_with(" GMT"));
  }
}

TEST_F(HTTPServerTest, ListensOnBothFamilies) {
  start();
  RawSocket client(server.port(), true);
  ASSERT_TRUE(client.isOpen());
  ASSERT_TRUE(client.send("GET /small HTTP/1.1\r\nHost: [::1]\r\n\r\n"));
  EXPECT_EQ(client.readResponse()->status, 200);
}

TEST_F(HTTPServerTest, AnswersHeadWithoutABody) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("HEAD /small HTTP/1.1\r\nHost: a\r\n\r\nGET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  const auto head = client.readResponse(true);
  ASSERT_TRUE(head);
  EXPECT_EQ(head->field("content-length"), "11");
  const auto response = client.readResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->body, "{\"ok\":true}");
}

TEST_F(HTTPServerTest, AnswersMissingPathsWith404AndForeignMethodsWith405) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("GET /none HTTP/1.1\r\nHost: a\r\n\r\nBREW /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  EXPECT_EQ(client.readResponse()->status, 404);
  const auto refused = client.readResponse();
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 405);
  EXPECT_EQ(refused->field("allow"), "GET, HEAD, POST");
  ASSERT_TRUE(client.send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  EXPECT_EQ(client.readResponse()->status, 200);
}

TEST_F(HTTPServerTest, AnswersPipelinedRequestsInOrder) {
  script->routes["/n"] = [](HTTPConnection& connection, std::string_view) {
    return std::make_unique<HTTPDataResponse>(parseGetParams(connection.request()->uri())["i"]);
  };
  start();
  RawSocket client = connect();
  std::string requests;
  for (int i = 0; i < 500; ++i) requests += "GET /n?i=" + std::to_string(i) + " HTTP/1.1\r\nHost: a\r\n\r\n";
  ASSERT_TRUE(client.send(requests));
  for (int i = 0; i < 500; ++i) {
    const auto response = client.readResponse();
    ASSERT_TRUE(response) << i;
    EXPECT_EQ(response->body, std::to_string(i));
  }
}

TEST_F(HTTPServerTest, ReportsATakenPort) {
  start();
  HTTPServer second(nullptr);
  second.setPort(server.port());
  FRXError error;
  EXPECT_FALSE(second.start(&error));
  EXPECT_EQ(error.code, EADDRINUSE);
  EXPECT_FALSE(second.isRunning());
}

}  // namespace
}  // namespace ferrox::test
