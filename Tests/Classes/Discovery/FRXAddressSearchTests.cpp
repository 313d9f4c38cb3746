#include "Classes/Discovery/FRXAddressSearch.h"
#include "Tests/Classes/Discovery/BrowserFixture.h"

namespace ferrox::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class FRXAddressSearchTest : public BrowserFixture {
 protected:
  static constexpr const char* peerId = "PEER.LOCAL.:16654";
  static constexpr const char* peerJson = R"({"hostName":"peer.local.","port":16654,"name":"ABCD-1/PEER"})";

  void SetUp() override {
    BrowserFixture::SetUp();
    browser->setChecksNewServicesAtOnce(true);
    startBrowsing();
    search = std::make_shared<FRXAddressSearch>(*browser, loop, *FRXPeerAddress::make("10.0.0.7", 4242));
  }
  void TearDown() override {
    search.reset();
    BrowserFixture::TearDown();
  }

  void answerWithPeer() { http.answer({std::nullopt, 200, peerJson}); }
  /// Requests of the search, without those that only served to wait.
  std::size_t searches() const {
    std::size_t count = 0;
    for (const auto& request : http.requests())
      count += request.url == "http://10.0.0.7:4242/service" ? 1U : 0U;
    return count;
  }
  /// Waits for so many searches and for the answer to the last of them: the client answers in order, so
  /// when a later request has been answered, that one has too.
  bool searchesBecome(std::size_t count) {
    if (!eventually([&] { return searches() >= count; })) return false;
    std::atomic<bool> passed{false};
    browser->searchForServiceAtAddress("127.0.0.1", 1, [&](bool, std::optional<FRXError>) { passed = true; });
    const bool answered = eventually([&] { return passed.load(); });
    settle();
    return answered && searches() == count;
  }

  bool findResponsivePeer() {
    answerWithPeer();
    checker->set(peerId, FRXServiceCheckResult::Responded);
    search->start();
    return eventually([&] {
      return search->foundServiceId() && listener->count(std::string("responsive ") + peerId) == 1;
    });
  }

  std::shared_ptr<FRXAddressSearch> search;
};

TEST_F(FRXAddressSearchTest, ARefusedAddressIsTriedAgainEverLessOften) {
  search->start();
  ASSERT_TRUE(searchesBecome(1));
  std::size_t expected = 1;
  for (const int pause : {1, 2, 4, 8, 10, 10, 10}) {
    clock.advance(seconds(pause) - milliseconds(1), loop);
    EXPECT_EQ(searches(), expected) << pause;
    clock.advance(milliseconds(1), loop);
    ASSERT_TRUE(searchesBecome(++expected)) << pause;
  }
}

TEST_F(FRXAddressSearchTest, ItStopsWhenThePeerIsKnownAndResponsive) {
  ASSERT_TRUE(findResponsivePeer());
  EXPECT_EQ(search->foundServiceId(), peerId);
  for (int i = 0; i < 120; ++i) clock.advance(seconds(1), loop);
  EXPECT_EQ(searches(), 1U);
}

TEST_F(FRXAddressSearchTest, ItResumesAtOnceWhenThePeerWasRemoved) {
  ASSERT_TRUE(findResponsivePeer());
  dnssd.remove(announce("ABCD-1/PEER", "peer.local.", 16654));
  answerWithPeer();
  clock.advance(seconds(1), loop);
  ASSERT_TRUE(searchesBecome(2));
  EXPECT_NE(browser->serviceWithId(peerId), nullptr);
}

TEST_F(FRXAddressSearchTest, AShortSilenceIsForgivenALongOneIsSearchedThrough) {
  ASSERT_TRUE(findResponsivePeer());
  clock.advance(seconds(1), loop);
  browser->serviceWithId(peerId)->setIsAvailable(false);
  for (int i = 0; i < 9; ++i) clock.advance(seconds(1), loop);
  EXPECT_EQ(searches(), 1U);
  clock.advance(seconds(1), loop);
  EXPECT_TRUE(searchesBecome(2));
}

TEST_F(FRXAddressSearchTest, AFoundPeerThatNeverAnswersIsSearchedAgainAfterAWhile) {
  answerWithPeer();
  search->start();
  ASSERT_TRUE(searchesBecome(1));
  for (int i = 0; i < 9; ++i) clock.advance(seconds(1), loop);
  EXPECT_EQ(searches(), 1U);
  clock.advance(seconds(1), loop);
  EXPECT_TRUE(searchesBecome(2));
}

TEST_F(FRXAddressSearchTest, APeerThatIsNeverMonitoredIsInOrderWhileKnown) {
  http.answer({std::nullopt, 200, R"({"hostName":"box.local.","port":16654,"name":"ZUNE/BOX"})"});
  search->start();
  ASSERT_TRUE(searchesBecome(1));
  for (int i = 0; i < 60; ++i) clock.advance(seconds(1), loop);
  EXPECT_EQ(searches(), 1U);
}

TEST_F(FRXAddressSearchTest, ItGivesUpOnThisDeviceItself) {
  const LogRecording log;
  http.answer(
      {std::nullopt, 200, R"({"hostName":"me.local.","port":16654,"name":"0123ABCD-MTIZNDU=/OWN MACHINE"})"});
  search->start();
  ASSERT_TRUE(searchesBecome(1));
  EXPECT_FALSE(search->isStarted());
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "10.0.0.7 is this device itself"));
  for (int i = 0; i < 60; ++i) clock.advance(seconds(1), loop);
  EXPECT_EQ(searches(), 1U);
  EXPECT_TRUE(browser->currentServices().empty());
}

TEST_F(FRXAddressSearchTest, StopEndsItAndALateAnswerChangesNothing) {
  http.hold();
  search->start();
  search->start();
  search->stop();
  http.release();
  ASSERT_TRUE(searchesBecome(1)) << "the second start did nothing";
  for (int i = 0; i < 30; ++i) clock.advance(seconds(1), loop);
  EXPECT_EQ(searches(), 1U);
  search->start();
  EXPECT_TRUE(searchesBecome(2));
}

TEST_F(FRXAddressSearchTest, DestroyingItMidSearchIsHarmless) {
  http.hold();
  search->start();
  search.reset();
  http.release();
  ASSERT_TRUE(searchesBecome(1));
}

}  // namespace
}  // namespace ferrox::test
