#include <gtest/gtest.h>

#include "Apps/ferrox/Doctor/AddressTrial.h"
#include "Apps/ferrox/Doctor/PeerFindings.h"
#include "Apps/ferrox/Doctor/PeerPlaces.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Net/HostNameResolver.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/BlackHole.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;
using test::ScriptedConnection;
using test::ScriptedHTTPServer;

constexpr const char* record = R"({"hostName":"SUITE-2.LOCAL.","port":16654,"name":"0000-MQ==/SUITE 2"})";

DNSSDConfiguration withoutDiscovery() {
  DNSSDConfiguration configuration;
  configuration.backEnd = DNSSDConfiguration::BackEnd::Off;
  return configuration;
}

class AddressTrialTest : public testing::Test {
 protected:
  std::shared_ptr<AddressTrial> tried(std::uint16_t port) {
    const auto trial = std::make_shared<AddressTrial>(TrialServices{loop_, *resolver_, *http_},
                                                      *FRXPeerAddress::make("127.0.0.1", port));
    trial->begin();
    EXPECT_TRUE(test::waitFor(
        loop_, [&] { return trial->isOver(); }, 60s));
    return trial;
  }
  std::shared_ptr<AddressTrial> tried(ScriptedHTTPServer::Script script) {
    const ScriptedHTTPServer server(std::move(script));
    return tried(server.port());
  }

  static std::vector<Finding> findings(const AddressTrial& trial) {
    const FRXPeerAddress address = *FRXPeerAddress::make("127.0.0.1", 16654);
    return findingsAbout({address, "127.0.0.1:16654", true, false, true}, trial, nullptr);
  }

  RunLoop loop_;
  std::unique_ptr<DNSSD> discovery_ = DNSSD::make(loop_, withoutDiscovery());
  std::unique_ptr<HostNameResolver> resolver_ = HostNameResolver::make(*discovery_);
  std::unique_ptr<HTTPClient> http_ = HTTPClient::make(*resolver_);
};

TEST_F(AddressTrialTest, APortOnWhichNothingListensIsTold) {
  const auto trial = tried(test::unusedPort());
  EXPECT_FALSE(trial->tcp().succeeded());
  EXPECT_FALSE(trial->http().wasMade());
  const auto out = findings(*trial);
  ASSERT_EQ(out.size(), 1U);
  EXPECT_EQ(out[0].verdict, Verdict::Bad);
  EXPECT_NE(out[0].advice.find("nothing listens on port 16654"), std::string::npos);
}

TEST_F(AddressTrialTest, AnAddressThatDropsConnectionsIsToldWithinTheTime) {
  const test::BlackHole nobody;
  const auto trial = tried(nobody.port());
  EXPECT_FALSE(trial->tcp().succeeded());
  EXPECT_GE(trial->tcp().elapsed(), AddressTrial::connectTimeout - 100ms);
  EXPECT_NE(findings(*trial).at(0).advice.find("firewall"), std::string::npos);
}

TEST_F(AddressTrialTest, WhoAcceptsAndSaysNothingFailsBoth) {
  const auto trial = tried([](ScriptedConnection& connection) { connection.stall(); });
  EXPECT_TRUE(trial->tcp().succeeded());
  EXPECT_FALSE(trial->http().succeeded());
  EXPECT_FALSE(trial->socket().opening().succeeded());
  const auto out = findings(*trial);
  ASSERT_EQ(out.size(), 3U);
  EXPECT_NE(
      out[1].text.find("accepts TCP, but gives no service record by HTTP: no complete answer within 3 s"),
      std::string::npos)
      << out[1].text;
}

TEST_F(AddressTrialTest, AHeaderWithoutAnEndIsNotWaitedFor) {
  const auto trial = tried([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\n");
    while (connection.drip("X-More: and more\r\n", 20ms)) {
    }
  });
  EXPECT_FALSE(trial->http().succeeded());
  EXPECT_FALSE(trial->socket().opening().succeeded());
}

TEST_F(AddressTrialTest, ABodyWithoutAnEndIsRefused) {
  const auto trial = tried([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send(std::string(65536, 'x'))) {
    }
  });
  EXPECT_FALSE(trial->http().succeeded());
  EXPECT_LT(trial->http().elapsed(), 30s);
}

TEST_F(AddressTrialTest, GarbageIsRefused) {
  const auto trial = tried([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send(std::string("\xFF\0\x1b[31m garbage\r\n\r\n", 18));
  });
  EXPECT_FALSE(trial->http().succeeded());
  EXPECT_FALSE(trial->socket().opening().succeeded());
}

TEST_F(AddressTrialTest, ARecordWithoutASocketIsTold) {
  const auto trial = tried([](ScriptedConnection& connection) {
    const std::string request = connection.readRequest();
    const bool record_ = request.find("GET /service ") != std::string::npos;
    connection.send(record_ ? ScriptedHTTPServer::answer(record)
                            : ScriptedHTTPServer::answer("", "HTTP/1.1 403 Forbidden"));
  });
  ASSERT_TRUE(trial->service());
  EXPECT_FALSE(trial->clock());
  const auto out = findings(*trial);
  ASSERT_EQ(out.size(), 3U);
  EXPECT_EQ(out[1].verdict, Verdict::Good);
  EXPECT_NE(out[1].text.find("is the node \"SUITE 2\""), std::string::npos);
  EXPECT_EQ(out[2].verdict, Verdict::Bad);
  EXPECT_NE(out[2].text.find("opens no WebSocket"), std::string::npos);
  EXPECT_NE(out[2].text.find("403"), std::string::npos) << out[2].text;
}

TEST_F(AddressTrialTest, TheDateOfAnAnswerTellsTheClock) {
  const auto trial = tried([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nDate: Thu, 01 Jan 1970 00:00:00 GMT\r\nContent-Length: 0\r\n\r\n");
  });
  ASSERT_TRUE(trial->clock());
  EXPECT_LT(trial->clock()->ahead(), -(24h * 365 * 56));
  const auto out = findings(*trial);
  EXPECT_EQ(out.back().facts.at("by"), FRXValue("Date"));
  EXPECT_EQ(out.back().verdict, Verdict::Note);
  EXPECT_NE(out.back().text.find("days behind"), std::string::npos) << out.back().text;
}

TEST_F(AddressTrialTest, TrialsThatAreGivenUpLeaveNothingBehind) {
  const ScriptedHTTPServer server([](ScriptedConnection& connection) { connection.stall(); });
  for (int i = 0; i < 3; ++i) {
    const auto trial = std::make_shared<AddressTrial>(TrialServices{loop_, *resolver_, *http_},
                                                      *FRXPeerAddress::make("127.0.0.1", server.port()));
    trial->begin();
    test::waitFor(
        loop_, [&] { return trial->http().wasMade(); }, 30s);
    EXPECT_FALSE(trial->isOver());
  }
  http_.reset();
  EXPECT_TRUE(test::waitFor(
      loop_, [&] { return server.openCount() == 0; }, 30s));
}

}  // namespace
}  // namespace ferrox::command
