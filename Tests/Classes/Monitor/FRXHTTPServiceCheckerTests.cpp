#include <gtest/gtest.h>

#include <future>
#include <string>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Monitor/FRXHTTPServiceChecker.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Tests/Support/BlackHole.h"
#include "Tests/Support/ScriptedHTTPClient.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;
using Result = FRXServiceCheckResult;

class FRXHTTPServiceCheckerTests : public ::testing::Test {
 protected:
  FRXHTTPServiceCheckerTests() { platform_.httpClient = client_.get(); }

  Result check(const std::optional<std::string>& host, std::int64_t port) {
    std::promise<Result> result;
    FRXHTTPServiceChecker checker(platform_);
    checker.checkServiceForResponse(std::make_shared<FRXNetService>(host, port, "name"),
                                    [&result](Result value) { result.set_value(value); });
    return result.get_future().get();
  }
  /// What is requested for a record of this host name.
  std::string urlFor(const std::string& host) {
    ScriptedHTTPClient scripted;
    PlatformServices platform;
    platform.httpClient = &scripted;
    FRXHTTPServiceChecker checker(platform);
    std::promise<void> done;
    checker.checkServiceForResponse(std::make_shared<FRXNetService>(host, 16654, "name"),
                                    [&done](Result) { done.set_value(); });
    done.get_future().wait();
    const auto request = scripted.requests().at(0);
    EXPECT_EQ(request.method, "HEAD");
    EXPECT_EQ(request.inactivityTimeout, 1s);
    return request.url;
  }

  ScriptedResolver resolver_;
  std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
  PlatformServices platform_;
};

TEST_F(FRXHTTPServiceCheckerTests, EveryStatusCountsAsAnAnswer) {
  for (const std::string status : {"200 OK", "404 Not Found", "500 Oh", "302 Found"}) {
    ScriptedHTTPServer server(
        ScriptedHTTPServer::answeringWith("HTTP/1.1 " + status + "\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(check("127.0.0.1", server.port()), Result::Responded) << status;
  }
}

TEST_F(FRXHTTPServiceCheckerTests, AsksForTheHeadOfTheRoot) {
  std::promise<std::string> request;
  ScriptedHTTPServer server([&request](ScriptedConnection& connection) {
    request.set_value(connection.readRequest());
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  });
  EXPECT_EQ(check("127.0.0.1", server.port()), Result::Responded);
  EXPECT_TRUE(request.get_future().get().starts_with("HEAD / HTTP/1.1\r\n"));
}

TEST_F(FRXHTTPServiceCheckerTests, RefusalSilenceAndGarbageAreNoResponse) {
  EXPECT_EQ(check("127.0.0.1", unusedPort()), Result::NoResponse);
  ScriptedHTTPServer garbage(ScriptedHTTPServer::answeringWith("not http\r\n\r\n"));
  EXPECT_EQ(check("127.0.0.1", garbage.port()), Result::NoResponse);
  ScriptedHTTPServer mute([](ScriptedConnection& connection) { connection.stall(); });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(check("127.0.0.1", mute.port()), Result::NoResponse);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
}

TEST_F(FRXHTTPServiceCheckerTests, RecordsThatNameNoUsableHostOrPortAreNoResponse) {
  EXPECT_EQ(check(std::nullopt, 80), Result::NoResponse);
  EXPECT_EQ(check("evil host", 80), Result::NoResponse);
  EXPECT_EQ(check("a/b@c", 80), Result::NoResponse);
  EXPECT_EQ(check("127.0.0.1", 0), Result::NoResponse);
  EXPECT_EQ(check("127.0.0.1", -1), Result::NoResponse);
}

TEST_F(FRXHTTPServiceCheckerTests, HostNameIsTakenAsTheRecordHasIt) {
  EXPECT_EQ(urlFor("PEER-MAC.LOCAL."), "http://PEER-MAC.LOCAL.:16654");
  EXPECT_EQ(urlFor("10.0.0.7"), "http://10.0.0.7:16654");
}

TEST_F(FRXHTTPServiceCheckerTests, AddressesOfIPv6StandInBrackets) {
  EXPECT_EQ(urlFor("2001:db8::1"), "http://[2001:DB8::1]:16654");
  EXPECT_EQ(urlFor("fe80::1%eth0"), "http://[FE80::1%25ETH0]:16654");
}

}  // namespace
}  // namespace ferrox::test
