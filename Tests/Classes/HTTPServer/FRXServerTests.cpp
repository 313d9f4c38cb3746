#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <thread>

#include "Classes/HTTPServer/FRXServer.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/PeerConnector.h"
#include "Platform/Host/Text.h"
#include "Platform/PlatformServices.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/ScopedHostIdentity.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox {
namespace {

using namespace std::chrono_literals;
using test::waitFor;

class RecordingConnector : public PeerConnector {
 public:
  void start() override { ++starts; }
  void stop() override { ++stops; }
  void connectToService(const std::shared_ptr<FRXNetService>&) override {}
  void disconnectFromService(const std::shared_ptr<FRXNetService>&) override {}
  bool isConnectedToService(const std::string&) const override { return false; }

  int starts = 0;
  int stops = 0;
};

class FRXServerTests : public test::HostFixture {
 protected:
  FRXServerTests() { PeerConnector::setRegistered(connector_); }
  ~FRXServerTests() override { PeerConnector::setRegistered(nullptr); }

  TXTDictionary txt() const { return httpServer_->txtRecordDictionary(); }
  std::string newServiceName() {
    std::promise<std::string> promise;
    server_->createNewServiceName([&promise](const std::string& name) { promise.set_value(name); });
    auto future = promise.get_future();
    return future.wait_for(test::patience) == std::future_status::ready ? future.get() : "";
  }

  const test::ScopedHostIdentity identity_;
  const std::shared_ptr<RecordingConnector> connector_ = std::make_shared<RecordingConnector>();
};

/// Reaches the state that no factory gives out.
class ServerWithoutHTTPServer : public FRXServer {
 public:
  explicit ServerWithoutHTTPServer(RunLoop& loop) : FRXServer(nullptr, loop) {}
};

TEST_F(FRXServerTests, WithoutHTTPServerThereIsNoServer) {
  EXPECT_EQ(FRXServer::initWithServer(nullptr, loop_), nullptr);
}

TEST_F(FRXServerTests, AFreshServerHasNothing) {
  EXPECT_TRUE(server_->capabilities().empty());
  EXPECT_EQ(server_->frxServerId(), "");
  EXPECT_EQ(server_->hostName(), std::nullopt);
  EXPECT_EQ(server_->httpServer(), httpServer_);
}

TEST_F(FRXServerTests, ThePortIsTheHTTPServers) {
  server_->setPort(16654);
  EXPECT_EQ(server_->port(), 16654);
  EXPECT_EQ(httpServer_->port(), 16654);
}

TEST_F(FRXServerTests, TheFirstCapabilityOfANameStays) {
  const auto second = std::make_shared<FRXStreamingCapability>();
  EXPECT_TRUE(server_->addCapability(streaming_));
  EXPECT_FALSE(server_->addCapability(second));
  EXPECT_FALSE(server_->addCapability(nullptr));
  EXPECT_TRUE(server_->addCapability(sharing_));
  EXPECT_EQ(server_->capabilities().at("streaming"), streaming_);

  const auto snapshot = server_->capabilities();
  EXPECT_TRUE(server_->removeCapabilityWithName("streaming"));
  EXPECT_FALSE(server_->removeCapabilityWithName("streaming"));
  EXPECT_FALSE(server_->removeCapabilityWithName("Projectsharing"));
  EXPECT_EQ(snapshot.size(), 2U);
  EXPECT_EQ(server_->capabilities().size(), 1U);
}

TEST_F(FRXServerTests, DeviceNamesKeepLettersMarksDigitsAndBlanks) {
  EXPECT_EQ(FRXServer::formatDeviceNameString("Jane's MacBook Pro (Office)"), "Janes MacBook Pro Office");
  EXPECT_EQ(FRXServer::formatDeviceNameString("a  b"), "a  b");
  EXPECT_EQ(FRXServer::formatDeviceNameString("a - b"), "a  b");
  EXPECT_EQ(FRXServer::formatDeviceNameString("   "), "");
  EXPECT_EQ(FRXServer::formatDeviceNameString(""), "");
  EXPECT_EQ(FRXServer::formatDeviceNameString("-_/!"), "");
  EXPECT_EQ(FRXServer::formatDeviceNameString("a/b-c\td"), "abcd");
  EXPECT_EQ(FRXServer::formatDeviceNameString("  lead and trail  "), "lead and trail");
  EXPECT_EQ(FRXServer::formatDeviceNameString("caf\xC3\xA9 e\xCC\x81 \xE6\x97\xA5\xE6\x9C\xAC 7"),
            "caf\xC3\xA9 e\xCC\x81 \xE6\x97\xA5\xE6\x9C\xAC 7");
}

TEST_F(FRXServerTests, ANewNameIsAtMostSixtyTwoCharacters) {
  std::string name = newServiceName();
  // A version of 4 characters leaves more room; it comes up 1000 times in 130000 seconds.
  const std::size_t versionLength = name.find('/') - 33;
  ASSERT_TRUE(versionLength == 8 || versionLength == 4) << name;
  EXPECT_TRUE(name.starts_with("0123456789ABCDEF0123456789ABCDEF-")) << name;
  const std::string device = name.substr(name.find('/') + 1);
  EXPECT_EQ(device, versionLength == 8 ? "JANES MACBOOK PRO OF" : "JANES MACBOOK PRO OFFICE");
  EXPECT_LE(name.size(), 62U);
  EXPECT_EQ(server_->hostName(), "Jane's MacBook Pro (Office)");
}

TEST_F(FRXServerTests, TheLimitCountsCharactersNotBytes) {
  std::string accents;
  for (int i = 0; i < 40; ++i) accents += "\xC3\xA9";
  const std::string name = FRXServer::createServiceNameWithHostname(accents);
  EXPECT_EQ(text::characterCount(name), 62U);
  EXPECT_GT(name.size(), 62U);
}

TEST_F(FRXServerTests, ABlankLeftByTheCutStays) {
  // The version has 4 or 8 characters, as the time has it; the blank is the last character that has room.
  const std::size_t room = 62 - 32 - FRXUtilities::createAndEncodeServiceVersion().size() - 2;
  const std::string kept = std::string(room - 1, 'a') + " ";
  const std::string name = FRXServer::createServiceNameWithHostname(kept + "uvw");
  EXPECT_TRUE(name.ends_with("/" + kept)) << name;
  EXPECT_EQ(name.size(), 62U);
}

TEST_F(FRXServerTests, AHostNameOfBlanksGivesANameThatEndsInASlash) {
  EXPECT_TRUE(FRXServer::createServiceNameWithHostname("   ").ends_with("/"));
}

TEST_F(FRXServerTests, ALongUUIDLeavesNoRoomAndNothingIsCut) {
  test::FakeHostIdentity odd;
  odd.uuid = std::string(80, 'A');
  const test::ScopedHostIdentity identity(odd);
  EXPECT_TRUE(FRXServer::createServiceNameWithHostname("Some Name").ends_with("/Some Name"));
}

TEST_F(FRXServerTests, AMachineWithoutUUIDStillHasAName) {
  test::FakeHostIdentity none;
  none.uuid = std::nullopt;
  const test::ScopedHostIdentity identity(none);
  EXPECT_TRUE(FRXServer::createServiceNameWithHostname("Name").starts_with("-"));
}

TEST_F(FRXServerTests, TheNameArrivesOnAnotherThreadEvenIfTheServerIsGone) {
  auto server = FRXServer::initWithServer(std::make_shared<HTTPServer>(nullptr), loop_);
  std::promise<std::thread::id> promise;
  server->createNewServiceName(
      [&promise](const std::string&) { promise.set_value(std::this_thread::get_id()); });
  server.reset();
  auto future = promise.get_future();
  ASSERT_EQ(future.wait_for(test::patience), std::future_status::ready);
  EXPECT_NE(future.get(), std::this_thread::get_id());
}

TEST_F(FRXServerTests, BeforeTheStartOnlyTheNameIsSet) {
  server_->republishBonjourWithServiceName("NAME");
  EXPECT_EQ(server_->frxServerId(), "NAME");
  EXPECT_TRUE(txt().empty());
  EXPECT_TRUE(discovery_.publications().empty());
}

TEST_F(FRXServerTests, StartPublishesUnderTypeNameAndPort) {
  server_->republishBonjourWithServiceName("NAME");
  start();
  const auto publications = discovery_.publications();
  ASSERT_EQ(publications.size(), 1U);
  EXPECT_EQ(publications[0].request.type, "_ferrox._tcp");
  EXPECT_EQ(publications[0].request.name, "NAME");
  EXPECT_EQ(publications[0].request.domain, "");
  EXPECT_EQ(publications[0].request.port, server_->port());
  EXPECT_NE(server_->port(), 0);
}

TEST_F(FRXServerTests, WhileRunningANewNameIsPublishedWithItsRecord) {
  start();
  (void)newServiceName();
  server_->republishBonjourWithServiceName("NEW NAME");
  EXPECT_EQ(server_->frxServerId(), "NEW NAME");
  const auto publications = discovery_.publications();
  ASSERT_EQ(publications.size(), 2U);
  EXPECT_TRUE(publications[0].isWithdrawn);
  EXPECT_EQ(publications[1].request.name, "NEW NAME");
  EXPECT_EQ(publications[1].request.txt, txt());

  const auto now = clock_.calendarNow();
  EXPECT_EQ(txt(), (TXTDictionary{{"RegisteredAt", "730991109"},
                                  {"DeviceId", "01234567-89AB-CDEF-0123-456789ABCDEF"},
                                  {"FriendlyName", "Jane's MacBook Pro (Office)"},
                                  {"Heartbeat", FRXUtilities::dateToString(now).value_or("")},
                                  {"App", "Vantle"}}));
}

TEST_F(FRXServerTests, UnknownValuesAreEmptyNeverAbsent) {
  test::FakeHostIdentity none;
  none.uuid = std::nullopt;
  const test::ScopedHostIdentity identity(none);
  server_->broadcastHeartbeat();
  EXPECT_EQ(txt().at("DeviceId"), "");
  EXPECT_EQ(txt().at("FriendlyName"), "");
}

TEST_F(FRXServerTests, AStatusIsPublishedWithoutRepublication) {
  start();
  server_->updateTxtRecordWithStatus("busy");
  ASSERT_TRUE(waitFor([this] { return txt().contains("Status"); }));
  EXPECT_EQ(txt().at("Status"), "busy");
  EXPECT_EQ(txt().at("App"), "Vantle");
  EXPECT_EQ(txt().size(), 6U);
  // The server knows its new record before discovery is given it.
  EXPECT_TRUE(waitFor([this] { return discovery_.publications().at(0).txtHistory.back() == txt(); }));
  EXPECT_EQ(discovery_.publications().size(), 1U);

  server_->updateTxtRecordWithStatus(std::nullopt);
  EXPECT_TRUE(waitFor([this] { return txt().at("Status").empty(); }));
}

TEST_F(FRXServerTests, AStatusForAServerThatIsGoneIsDropped) {
  auto httpServer = std::make_shared<HTTPServer>(nullptr);
  auto server = FRXServer::initWithServer(httpServer, loop_);
  server->updateTxtRecordWithStatus("busy");
  const std::weak_ptr<HTTPServer> gone = httpServer;
  server.reset();
  httpServer.reset();
  EXPECT_TRUE(waitFor([&gone] { return gone.expired(); }));
}

TEST_F(FRXServerTests, TheHeartbeatBeatsEveryFiveSecondsAndDropsTheStatus) {
  start();
  server_->updateTxtRecordWithStatus("busy");
  ASSERT_TRUE(waitFor([this] { return txt().contains("Status"); }));
  server_->startHeartbeatTimer();
  clock_.advance(4999ms, loop_);
  EXPECT_EQ(txt().at("App"), "Vantle");
  clock_.advance(1ms, loop_);
  EXPECT_EQ(txt().at("App"), "Alpha");
  EXPECT_EQ(txt().size(), 5U);
  EXPECT_FALSE(txt().contains("Status"));
  const std::string first = txt().at("Heartbeat");
  clock_.advance(5s, loop_);
  EXPECT_NE(txt().at("Heartbeat"), first);

  server_->republishBonjourWithServiceName("NAME");
  EXPECT_EQ(txt().at("App"), "Vantle");
  clock_.advance(5s, loop_);
  EXPECT_EQ(txt().at("App"), "Alpha");
}

TEST_F(FRXServerTests, AStoppedHeartbeatIsSilentAndASecondStartBeginsAnew) {
  server_->startHeartbeatTimer();
  clock_.advance(3s, loop_);
  server_->startHeartbeatTimer();
  clock_.advance(3s, loop_);
  EXPECT_TRUE(txt().empty());
  server_->stopHeartbeatTimer();
  server_->stopHeartbeatTimer();
  clock_.advance(60s, loop_);
  EXPECT_TRUE(txt().empty());
}

TEST_F(FRXServerTests, AServerThatGoesAwayTakesItsHeartbeatAlong) {
  auto httpServer = std::make_shared<HTTPServer>(nullptr);
  auto server = FRXServer::initWithServer(httpServer, loop_);
  server->startHeartbeatTimer();
  server.reset();
  clock_.advance(60s, loop_);
  EXPECT_TRUE(httpServer->txtRecordDictionary().empty());
}

TEST_F(FRXServerTests, StartAndStopReachTheConnectorAndAreLogged) {
  const test::LogRecording log;
  start();
  EXPECT_EQ(connector_->starts, 1);
  EXPECT_TRUE(httpServer_->isRunning());
  server_->startHeartbeatTimer();
  server_->stop();
  EXPECT_EQ(connector_->stops, 1);
  EXPECT_FALSE(httpServer_->isRunning());
  clock_.advance(60s, loop_);
  EXPECT_TRUE(txt().empty());
  EXPECT_EQ(log->count(LogLevel::Verbose, "Starting FRXServer"), 1U);
  EXPECT_EQ(log->count(LogLevel::Verbose, "Stopping FRXServer"), 1U);
}

TEST_F(FRXServerTests, WithoutConnectorTheServerStartsAlone) {
  PeerConnector::setRegistered(nullptr);
  start();
  EXPECT_TRUE(httpServer_->isRunning());
}

TEST_F(FRXServerTests, ATakenPortIsPassedThroughWithTheConnectorStarted) {
  start();
  auto other = FRXServer::initWithServer(std::make_shared<HTTPServer>(nullptr), loop_);
  other->setPort(server_->port());
  FRXError error;
  EXPECT_FALSE(other->start(&error));
  EXPECT_EQ(error.code, EADDRINUSE);
  EXPECT_EQ(connector_->starts, 2);
  EXPECT_FALSE(other->start());
}

TEST_F(FRXServerTests, AServerWithoutHTTPServerDoesNotStart) {
  ServerWithoutHTTPServer server(loop_);
  const test::LogRecording log;
  EXPECT_FALSE(server.start());
  ASSERT_EQ(log->entries().size(), 1U);
  EXPECT_EQ(log->entries()[0].message, "Starting FRXServer");

  FRXError error;
  EXPECT_FALSE(server.start(&error));
  EXPECT_EQ(error.code, 0);
  EXPECT_EQ(error.domain, FRXGeneralErrorDomain);
  EXPECT_EQ(error.localizedDescription, "FRX's internal HTTPServer reference was nil.");
  EXPECT_EQ(log->count(LogLevel::Error, "HTTPServer reference was not set during initialization and is nil."),
            1U);
  EXPECT_EQ(connector_->starts, 0);
}

TEST_F(FRXServerTests, AServerWithoutHTTPServerAnswersEmptyValues) {
  ServerWithoutHTTPServer server(loop_);
  server.setPort(5);
  server.republishBonjourWithServiceName("NAME");
  server.broadcastHeartbeat();
  server.stop();
  EXPECT_EQ(server.port(), 0);
  EXPECT_EQ(server.frxServerId(), "");
}

TEST_F(FRXServerTests, TheSharedServerIsTheOneThatWasSet) {
  EXPECT_EQ(FRXServer::sharedInstance(), server_);
  EXPECT_EQ(RoutingHTTPConnection::capabilitiesDelegate(), server_);
}

TEST_F(FRXServerTests, TheDirectoryKnowsTheSharedServer) {
  server_->republishBonjourWithServiceName("0123ABCD-V/NAME");
  server_->setPort(16654);
  EXPECT_EQ(FRXUtilities::currentDeviceFRXId(), "0123ABCD-V/NAME");
  EXPECT_EQ(LocalServiceDirectory::serverPort(), 16654);
  EXPECT_TRUE(FRXUtilities::isLocalDeviceService("0123abcd-X/OTHER"));
  FRXServer::setSharedInstance(nullptr);
  EXPECT_EQ(FRXUtilities::currentDeviceFRXId(), std::nullopt);
  EXPECT_EQ(LocalServiceDirectory::serverPort(), 0);
  EXPECT_EQ(RoutingHTTPConnection::capabilitiesDelegate(), server_);  // an empty one is ignored
}

TEST_F(FRXServerTests, AStreamWithoutPortGetsTheBoundOne) {
  start();
  offerStream("a", "file:///nowhere");
  EXPECT_EQ(streaming_->streamForServedPath("/streams/a")->port(), server_->port());
}

TEST_F(FRXServerTests, StateIsReadOnOtherThreadsWhileItChanges) {
  start();
  std::atomic<bool> done{false};
  std::thread reader([&] {
    while (!done) {
      (void)server_->capabilities();
      (void)server_->frxServerId();
      (void)server_->hostName();
      (void)server_->port();
    }
  });
  for (int i = 0; i < 20; ++i) {
    server_->addCapability(streaming_);
    server_->createNewServiceName(nullptr);
    server_->updateTxtRecordWithStatus(std::to_string(i));
    server_->republishBonjourWithServiceName("NAME " + std::to_string(i));
    server_->broadcastHeartbeat();
    server_->removeCapabilityWithName("streaming");
  }
  EXPECT_TRUE(waitFor([this] { return server_->hostName().has_value(); }));
  done = true;
  reader.join();
}

/// Runs in a process of its own, since the shared server is made once in a process.
[[noreturn]] void makeSharedServerAndExit() {
  DNSSDConfiguration configuration;
  configuration.backEnd = DNSSDConfiguration::BackEnd::Off;
  PlatformServices::configureDiscovery(configuration);
  const test::LogRecording log;
  const auto server = FRXServer::sharedInstance();
  const bool isRight = server && server == FRXServer::sharedInstance() &&
                       RoutingHTTPConnection::capabilitiesDelegate() == server &&
                       FRXUtilities::currentDeviceFRXId() == "" &&
                       log->has(LogLevel::Verbose, "Initializing FRXServer");
  std::_Exit(isRight ? 0 : 1);
}

TEST(FRXServerSharedInstanceDeathTest, IsMadeOnFirstUse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(makeSharedServerAndExit(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace ferrox
