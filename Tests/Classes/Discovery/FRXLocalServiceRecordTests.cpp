#include "Classes/Discovery/FRXLocalServiceRecord.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Platform/HTTP/Server/HTTPServer.h"
#include "Tests/Classes/Discovery/BrowserFixture.h"

namespace ferrox::test {
namespace {

TEST(FRXLocalServiceRecordTest, TheSameObjectIsHandedOutUntilSomethingChanges) {
  FRXLocalServerInfo info{"Mac", 1, "N"};
  FRXLocalServiceRecord local([&] { return info; });
  const auto first = local.record();
  EXPECT_EQ(first->serviceId(), "MAC.LOCAL:1");
  EXPECT_EQ(local.record(), first);
  info.port = 2;
  EXPECT_EQ(local.record()->serviceId(), "MAC.LOCAL:2");
  local.setAnnounced("mac.local.", 2, "N");
  const auto announced = local.record();
  EXPECT_EQ(announced->serviceId(), "MAC.LOCAL.:2");
  EXPECT_EQ(local.record(), announced);
  local.forgetAnnounced();
  EXPECT_EQ(local.announced(), nullptr);
  EXPECT_EQ(local.record()->serviceId(), "MAC.LOCAL:2");
}

TEST(FRXLocalServiceRecordTest, LocalIsAppendedOnceAndANamelessHostHasNoRecord) {
  FRXLocalServerInfo info{"mac.local", 1, "N"};
  FRXLocalServiceRecord local([&] { return info; });
  EXPECT_EQ(local.record()->hostName(), "MAC.LOCAL");
  info.hostName.reset();
  EXPECT_EQ(local.record(), nullptr);
  EXPECT_EQ(FRXLocalServiceRecord(nullptr).record(), nullptr);
}

class SharedServerRecordTest : public BrowserFixture {};

TEST_F(SharedServerRecordTest, WithoutPartsTheRecordComesFromTheSharedServer) {
  const auto httpServer = std::make_shared<HTTPServer>(nullptr);
  const auto server = FRXServer::initWithServer(httpServer, loop);
  FRXServer::setSharedInstance(server);
  browser = FRXBrowser::make(services);
  EXPECT_EQ(browser->localFRXService(), nullptr) << "no host name yet";
  std::atomic<bool> named{false};
  server->createNewServiceName([&](const std::string&) { named = true; });
  ASSERT_TRUE(waitFor([&] { return named.load(); }));
  server->setPort(4711);
  server->republishBonjourWithServiceName("ABCD-1=/ME");
  const auto own = browser->localFRXService();
  ASSERT_NE(own, nullptr);
  EXPECT_TRUE(own->hostName()->ends_with(".LOCAL"));
  EXPECT_EQ(own->port(), 4711);
  EXPECT_EQ(own->name(), "ABCD-1=/ME");
  FRXServer::setSharedInstance(nullptr);
}

}  // namespace
}  // namespace ferrox::test
