#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <iterator>
#include <set>
#include <thread>
#include <vector>

#include "Classes/Utilities/FRXObjectIDGenerator.h"
#include "Platform/Host/Text.h"
#include "Tests/Support/ScopedHostIdentity.h"

namespace ferrox {
namespace {

struct NamelessHardware : test::FakeHostIdentity {
  std::optional<std::string> serialNumber() const override { return std::nullopt; }
};

std::string hexadecimal(const auto& bytes) {
  std::string text;
  for (const unsigned char byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", byte);
    text += digits;
  }
  return text;
}

std::shared_ptr<FRXObjectIDValuesProvider> fixedValues(std::uint32_t counter = 0x00ABCDEF) {
  return std::make_shared<FRXObjectIDValuesProvider>("C02XL0AAJGH5", 0x1234, counter);
}
FRXDate at(std::int64_t milliseconds) { return FRXDate(std::chrono::milliseconds(milliseconds)); }

/// The 24 digits behind the prefix.
std::string digitsOf(const std::string& identifier, const std::string& prefix) {
  const std::string text = text::base64Decoded(identifier).value_or("no base64");
  EXPECT_TRUE(text.starts_with(prefix + ":")) << text;
  return text.substr(std::min(text.size(), prefix.size() + 1));
}

// RFC 1321 appendix A.5.
TEST(FRXObjectIDTests, TheDigestIsMD5) {
  EXPECT_EQ(hexadecimal(FRXObjectIDGenerator::getMD5Hash("")), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(hexadecimal(FRXObjectIDGenerator::getMD5Hash("message digest")),
            "f96b697d7cb7938d525a2f31aaf161d0");
}

TEST(FRXObjectIDTests, TheBytesAreTimeMachineProcessAndCounter) {
  const FRXObjectIDGenerator generator(fixedValues());
  const std::string machine = hexadecimal(FRXObjectIDGenerator::getMD5Hash("C02XL0AAJGH5")).substr(0, 6);
  EXPECT_EQ(generator.IDWithTypePrefix("clip", at(1'700'000'000'000)),
            text::base64Encoded("clip:6553f100" + machine + "1234abcdef"));
}

TEST(FRXObjectIDTests, IdentifiersOfOneSecondDifferByOneInTheCounter) {
  const FRXObjectIDGenerator generator(fixedValues(7));
  const std::string first = digitsOf(generator.IDWithTypePrefix("a", at(5000)), "a");
  const std::string second = digitsOf(generator.IDWithTypePrefix("a", at(5999)), "a");
  EXPECT_EQ(first.substr(0, 18), second.substr(0, 18));
  EXPECT_EQ(first.substr(18), "000007");
  EXPECT_EQ(second.substr(18), "000008");
}

TEST(FRXObjectIDTests, TheCounterKeepsCountingWhileItsBytesWrap) {
  const auto values = fixedValues(0x01FFFFFF);
  const FRXObjectIDGenerator generator(values);
  EXPECT_EQ(digitsOf(generator.IDWithTypePrefix("", at(0)), "").substr(18), "ffffff");
  EXPECT_EQ(digitsOf(generator.IDWithTypePrefix("", at(0)), "").substr(18), "000000");
  EXPECT_EQ(values->counter(), 0x02000001U);
  EXPECT_EQ(fixedValues(0xFFFFFFFF)->counter(), 0xFFFFFFFFU);
}

TEST(FRXObjectIDTests, TimesAreCutToWholeSecondsAndTo32Bits) {
  const FRXObjectIDGenerator generator(fixedValues());
  const auto timeOf = [&](std::int64_t milliseconds) {
    return digitsOf(generator.IDWithTypePrefix("p", at(milliseconds)), "p").substr(0, 8);
  };
  EXPECT_EQ(timeOf(1999), "00000001");
  EXPECT_EQ(timeOf(-1999), "ffffffff");
  EXPECT_EQ(timeOf(-999), "00000000");
  EXPECT_EQ(timeOf(0x1'0000'0002LL * 1000), "00000002");
}

TEST(FRXObjectIDTests, APrefixMayBeAnyText) {
  const FRXObjectIDGenerator generator(fixedValues());
  for (const std::string prefix : {"", "a:b", "Schnitt \xC3\xA4", "with\nlines"}) {
    EXPECT_EQ(digitsOf(generator.IDWithTypePrefix(prefix), prefix).size(), 24U);
  }
  const std::string longPrefix(300, 'x');
  EXPECT_EQ(generator.IDWithTypePrefix(longPrefix).find('\n'), std::string::npos);
}

TEST(FRXObjectIDTests, TheTimeIsNowUnlessGiven) {
  const FRXObjectIDGenerator generator(fixedValues());
  const auto seconds = [] {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  const auto before = seconds();
  const auto told = std::stoll(digitsOf(generator.IDWithTypePrefix("p"), "p").substr(0, 8), nullptr, 16);
  EXPECT_GE(told, before);
  EXPECT_LE(told, seconds());
}

TEST(FRXObjectIDTests, ThreadsNeverMixTheirBytes) {
  const FRXObjectIDGenerator generator(fixedValues(0));
  constexpr int threads = 4, each = 5000;
  std::vector<std::vector<std::string>> made(threads);
  {
    std::vector<std::jthread> makers;
    for (int thread = 0; thread < threads; ++thread) {
      makers.emplace_back([&, thread] {
        for (int i = 0; i < each; ++i) {
          made[static_cast<std::size_t>(thread)].push_back(
              digitsOf(generator.IDWithTypePrefix("p", at(thread * 1000)), "p"));
        }
      });
    }
  }
  std::set<std::string> counters;
  for (int thread = 0; thread < threads; ++thread) {
    for (const std::string& digits : made[static_cast<std::size_t>(thread)]) {
      EXPECT_EQ(digits.substr(0, 8), "0000000" + std::to_string(thread));
      counters.insert(digits.substr(18));
    }
  }
  EXPECT_EQ(counters.size(), std::size_t{threads} * each);
  EXPECT_EQ(*counters.rbegin(), "004e1f");
}

TEST(FRXObjectIDTests, ByDefaultTheMachineIsItsSerialNumberElseItsName) {
  {
    const test::ScopedHostIdentity identity;
    FRXObjectIDValuesProvider values;
    EXPECT_EQ(values.machineID(), "SERIAL");
    EXPECT_EQ(values.processID(), static_cast<std::uint16_t>(::getpid()));
    EXPECT_LE(values.counter(), 2147483646U);
  }
  HostIdentity::setCurrent(std::make_shared<NamelessHardware>());
  EXPECT_EQ(FRXObjectIDValuesProvider::getSystemSerial(), std::nullopt);
  EXPECT_EQ(FRXObjectIDValuesProvider().machineID(), "Jane's MacBook Pro (Office)");
  HostIdentity::setCurrent(nullptr);
}

TEST(FRXObjectIDTests, CountersStartAnywhere) {
  std::set<std::uint32_t> starts;
  for (int i = 0; i < 16; ++i) starts.insert(FRXObjectIDValuesProvider().counter());
  EXPECT_GT(starts.size(), 1U);
}

TEST(FRXObjectIDTests, TheDefaultInstanceIsOne) {
  EXPECT_EQ(&FRXObjectIDGenerator::defaultInstance(), &FRXObjectIDGenerator::defaultInstance());
  const std::string first = FRXObjectIDGenerator::defaultInstance().IDWithTypePrefix("p");
  EXPECT_NE(FRXObjectIDGenerator::defaultInstance().IDWithTypePrefix("p"), first);
  EXPECT_NE(FRXObjectIDGenerator(nullptr).valuesProvider(), nullptr);
}

}  // namespace
}  // namespace ferrox
