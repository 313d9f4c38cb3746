#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <future>
#include <regex>
#include <thread>
#include <vector>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/ScopedHostIdentity.h"

namespace ferrox {
namespace {

using namespace std::chrono_literals;

class FRXUtilitiesTests : public testing::Test {
 protected:
  ~FRXUtilitiesTests() override {
    LocalServiceDirectory::setServerSource(nullptr);
    LocalServiceDirectory::setServiceLookup(nullptr);
  }

  static void setLocalId(std::string id) {
    LocalServiceDirectory::setServerSource([id = std::move(id)] {
      return LocalServiceDirectory::LocalServer{id, 16654};
    });
  }
  static void setKnownService(const std::shared_ptr<FRXNetService>& service) {
    LocalServiceDirectory::setServiceLookup(
        [service](const std::string& id) { return id == "KNOWN" ? service : nullptr; });
  }
};

FRXDate secondsAfterReferenceDate(std::int64_t seconds) {
  return FRXDate(std::chrono::seconds(978'307'200 + seconds));
}

TEST_F(FRXUtilitiesTests, PathComponentsAreCodedWithTheHostSet) {
  EXPECT_EQ(FRXUtilities::urlEncodePathComponent("a b/c:[1]"), "a%20b%2Fc:[1]");
  EXPECT_EQ(FRXUtilities::urlDecodePathComponent("a%20b%2Fc:[1]"), "a b/c:[1]");
  EXPECT_EQ(FRXUtilities::urlEncodePathComponent(std::nullopt), std::nullopt);
  EXPECT_EQ(FRXUtilities::urlDecodePathComponent(std::nullopt), std::nullopt);
  EXPECT_EQ(FRXUtilities::urlDecodePathComponent("%zz"), std::nullopt);
}

TEST_F(FRXUtilitiesTests, DatesAreWrittenWithZoneOffsetAndReadBack) {
  const FRXDate date(std::chrono::seconds(1'709'298'309));
  const auto text = FRXUtilities::dateToString(date);
  ASSERT_TRUE(text);
  EXPECT_TRUE(std::regex_match(*text, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d[+-]\d{4})"))) << *text;
  EXPECT_EQ(FRXUtilities::stringToDate(text), date);
  EXPECT_EQ(FRXUtilities::stringToDate("2024-03-01 14:05:09+0100"), date);
}

TEST_F(FRXUtilitiesTests, AbsentAndMalformedDatesAreNothing) {
  EXPECT_EQ(FRXUtilities::dateToString(std::nullopt), std::nullopt);
  EXPECT_EQ(FRXUtilities::stringToDate(std::nullopt), std::nullopt);
  EXPECT_EQ(FRXUtilities::stringToDate("yesterday"), std::nullopt);
}

TEST_F(FRXUtilitiesTests, TheFormatterServesSeveralThreadsAtOnce) {
  const FRXDate date(std::chrono::seconds(1'709'298'309));
  const auto expected = FRXUtilities::dateToString(date);
  std::vector<std::future<bool>> workers;
  for (int worker = 0; worker < 4; ++worker) {
    workers.push_back(std::async(std::launch::async, [date, expected] {
      for (int i = 0; i < 200; ++i) {
        if (FRXUtilities::dateToString(date) != expected || FRXUtilities::stringToDate(expected) != date) {
          return false;
        }
      }
      return true;
    }));
  }
  for (auto& worker : workers) EXPECT_TRUE(worker.get());
}

TEST_F(FRXUtilitiesTests, TheHostNameArrivesOnAnotherThread) {
  const test::ScopedHostIdentity identity;
  std::promise<std::pair<std::string, std::thread::id>> promise;
  FRXUtilities::getHostNameWithCallback([&promise](const std::string& name) {
    promise.set_value({name, std::this_thread::get_id()});
  });
  auto future = promise.get_future();
  ASSERT_EQ(future.wait_for(10s), std::future_status::ready);
  const auto [name, thread] = future.get();
  EXPECT_EQ(name, "Jane's MacBook Pro (Office)");
  EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(FRXUtilitiesTests, TheDeviceUUIDIsUpperCaseWithAndWithoutDashes) {
  test::FakeHostIdentity lower;
  lower.uuid = "01234567-89ab-cdef-0123-456789abcdef";
  const test::ScopedHostIdentity identity(lower);
  EXPECT_EQ(FRXUtilities::currentDeviceUUID(), "01234567-89AB-CDEF-0123-456789ABCDEF");
  EXPECT_EQ(FRXUtilities::currentDeviceUUIDWithDashesRemoved(), "0123456789ABCDEF0123456789ABCDEF");
}

TEST_F(FRXUtilitiesTests, AMachineWithoutUUIDHasNone) {
  test::FakeHostIdentity none;
  none.uuid = std::nullopt;
  const test::ScopedHostIdentity identity(none);
  EXPECT_EQ(FRXUtilities::currentDeviceUUID(), std::nullopt);
  EXPECT_EQ(FRXUtilities::currentDeviceUUIDWithDashesRemoved(), std::nullopt);
}

TEST_F(FRXUtilitiesTests, TheMachinesOwnUUIDHasTheFixedForm) {
  const auto uuid = FRXUtilities::currentDeviceUUID();
  const bool hasMachineId = std::ifstream("/etc/machine-id").peek() != std::ifstream::traits_type::eof();
  if (!uuid && !hasMachineId) GTEST_SKIP() << "this machine has no source of a UUID";
  ASSERT_TRUE(uuid);
  EXPECT_TRUE(std::regex_match(*uuid, std::regex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"))) << *uuid;
}

TEST_F(FRXUtilitiesTests, TheLocalIdIsNothingWithoutServer) {
  EXPECT_EQ(FRXUtilities::currentDeviceFRXId(), std::nullopt);
  setLocalId("ID");
  EXPECT_EQ(FRXUtilities::currentDeviceFRXId(), "ID");
}

TEST_F(FRXUtilitiesTests, TheVersionWrapsAndIsNotPadded) {
  const auto version = [](std::int64_t seconds) {
    return FRXUtilities::createAndEncodeServiceVersion(secondsAfterReferenceDate(seconds));
  };
  EXPECT_EQ(version(5 * 130'000 + 129'999), "MTI5OTk5");
  EXPECT_EQ(version(6 * 130'000), "MA==");
  EXPECT_EQ(version(130'000 + 123), "MTIz");
  EXPECT_EQ(FRXUtilities::createAndEncodeServiceVersion(secondsAfterReferenceDate(1) + 999ms), "MQ==");
}

TEST_F(FRXUtilitiesTests, TheVersionOfNowDecodesToANumberInRange) {
  const auto decoded = FRXUtilities::decodeServiceVersion(FRXUtilities::createAndEncodeServiceVersion());
  ASSERT_TRUE(decoded);
  ASSERT_TRUE(std::regex_match(*decoded, std::regex("[0-9]{1,6}"))) << *decoded;
  EXPECT_LT(std::stol(*decoded), 130'000);
}

TEST_F(FRXUtilitiesTests, AVersionThatIsNotBase64OrNotTextDecodesToNothing) {
  EXPECT_EQ(FRXUtilities::decodeServiceVersion("MTI5OTk5"), "129999");
  EXPECT_EQ(FRXUtilities::decodeServiceVersion("***"), std::nullopt);
  EXPECT_EQ(FRXUtilities::decodeServiceVersion("//79"), std::nullopt);
}

TEST_F(FRXUtilitiesTests, ASenderIsAddressedByHostAndPort) {
  setKnownService(std::make_shared<FRXNetService>("macbook.local.", 16654, "KNOWN"));
  EXPECT_EQ(FRXUtilities::addressForSender("KNOWN"), "MACBOOK.LOCAL.:16654");
}

TEST_F(FRXUtilitiesTests, ASenderWithoutAddressIsLoggedAndNothing) {
  const test::LogRecording log;
  EXPECT_EQ(FRXUtilities::addressForSender("KNOWN"), std::nullopt);  // nobody registered
  EXPECT_EQ(FRXUtilities::addressForSender(std::nullopt), std::nullopt);
  setKnownService(std::make_shared<FRXNetService>("macbook.local.", 0, "KNOWN"));
  EXPECT_EQ(FRXUtilities::addressForSender("KNOWN"), std::nullopt);
  setKnownService(std::make_shared<FRXNetService>(std::nullopt, 16654, "KNOWN"));
  EXPECT_EQ(FRXUtilities::addressForSender("KNOWN"), std::nullopt);
  EXPECT_EQ(FRXUtilities::addressForSender("OTHER"), std::nullopt);
  constexpr std::string_view message = "Unable to resolve address for remote FRX service: ";
  EXPECT_EQ(log->count(LogLevel::Warn, std::string(message) + "KNOWN"), 3U);
  EXPECT_EQ(log->count(LogLevel::Warn, std::string(message) + "OTHER"), 1U);
  EXPECT_EQ(log->count(LogLevel::Warn, std::string(message) + "(null)"), 1U);
}

TEST_F(FRXUtilitiesTests, AServiceIdDividesIntoDeviceAndName) {
  const std::string id = "0123ABCD-MTIZNDU=/MY MAC";
  EXPECT_EQ(FRXUtilities::deviceIdFromServiceId(id), "0123ABCD");
  EXPECT_EQ(FRXUtilities::localizedNameFromServiceId(id), "MY MAC");
  EXPECT_EQ(FRXUtilities::localizedNameFromServiceId("a/b/c"), "c");
  EXPECT_EQ(FRXUtilities::localizedNameFromServiceId("a/"), "");
  EXPECT_EQ(FRXUtilities::deviceIdFromServiceId("a-b-c"), "a");
  EXPECT_EQ(FRXUtilities::deviceIdFromServiceId("-b"), "");
}

TEST_F(FRXUtilitiesTests, WithoutSeparatorTheWholeIdIsBothParts) {
  EXPECT_EQ(FRXUtilities::deviceIdFromServiceId("plain"), "plain");
  EXPECT_EQ(FRXUtilities::localizedNameFromServiceId("plain"), "plain");
}

TEST_F(FRXUtilitiesTests, AnEmptyServiceIdHasNoParts) {
  for (const auto& id : {std::optional<std::string>(), std::optional<std::string>("")}) {
    EXPECT_EQ(FRXUtilities::deviceIdFromServiceId(id), std::nullopt);
    EXPECT_EQ(FRXUtilities::localizedNameFromServiceId(id), std::nullopt);
  }
}

TEST_F(FRXUtilitiesTests, EveryServiceOfThisDeviceIsLocalWhateverItsCaseVersionAndName) {
  setLocalId("0123ABCD-MTIZNDU=/MY MAC");
  EXPECT_TRUE(FRXUtilities::isLocalDeviceService("0123abcd-XYZ/OTHER"));
  EXPECT_TRUE(FRXUtilities::isLocalDeviceService("0123ABCD"));
  EXPECT_FALSE(FRXUtilities::isLocalDeviceService("0123ABC-XYZ/MY MAC"));
  EXPECT_FALSE(FRXUtilities::isLocalDeviceService("0123ABCDE-XYZ/MY MAC"));
  EXPECT_FALSE(FRXUtilities::isLocalDeviceService(std::nullopt));
}

TEST_F(FRXUtilitiesTests, WithoutServerNoServiceIsLocal) {
  EXPECT_FALSE(FRXUtilities::isLocalDeviceService("0123ABCD-XYZ/OTHER"));
}

TEST_F(FRXUtilitiesTests, NamesThatBeginWithZBelongToUniversalApps) {
  const auto isUWP = [](std::optional<std::string> name) {
    FRXNetService service("H.", 1, "A");
    service.setName(std::move(name));
    return FRXUtilities::isUWPService(&service);
  };
  EXPECT_TRUE(isUWP("zune"));
  EXPECT_TRUE(isUWP("ZUNE"));
  EXPECT_FALSE(isUWP("A Z"));
  EXPECT_FALSE(isUWP(""));
  EXPECT_FALSE(isUWP(std::nullopt));
  EXPECT_FALSE(FRXUtilities::isUWPService(nullptr));
}

struct RangeCase {
  const char* header;
  std::uint64_t start;
  std::uint64_t end;
};

TEST_F(FRXUtilitiesTests, SimpleRangesAreRead) {
  const std::uint64_t largest = INT64_MAX;
  for (const RangeCase& c :
       {RangeCase{"bytes=0-1023", 0, 1023}, RangeCase{"bytes=100-199", 100, 199},
        RangeCase{"bytes=100-", 100, 0}, RangeCase{"bytes=-500", 0, 500}, RangeCase{"bytes=-", 0, 0},
        RangeCase{"bytes= 5- 9x", 5, 9}, RangeCase{"bytes=+5-+9", 5, 9}, RangeCase{"bytes=bytes=7-8", 7, 8},
        RangeCase{"bytes=bytebytes=s=7-8", 0, 8}, RangeCase{"bytes=x-y", 0, 0},
        RangeCase{"bytes=9-99999999999999999999", 9, largest}, RangeCase{"bytes=5-9,x", 5, 9}}) {
    const auto range = FRXUtilities::readSimpleByteRangeHeader(c.header);
    EXPECT_TRUE(range.isValid) << c.header;
    EXPECT_EQ(range.start, c.start) << c.header;
    EXPECT_EQ(range.end, c.end) << c.header;
  }
}

TEST_F(FRXUtilitiesTests, OtherRangesAreInvalid) {
  EXPECT_FALSE(FRXUtilities::readSimpleByteRangeHeader(std::nullopt).isValid);
  for (const char* bad : {"", "0-1023", "bytes=5", "bytes=1-2-3", "bytes=0-1,5-9", "Bytes=0-1", " bytes=0-1",
                          "bytes 0-1", "-bytes=1", "items=0-1", "-"}) {
    EXPECT_FALSE(FRXUtilities::readSimpleByteRangeHeader(bad).isValid) << bad;
  }
}

}  // namespace
}  // namespace ferrox
