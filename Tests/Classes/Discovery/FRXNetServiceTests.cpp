#include <gtest/gtest.h>

#include <thread>
#include <unordered_set>

#include "Classes/Discovery/FRXNetService.h"
#include "Platform/Base/Json.h"

namespace ferrox {
namespace {

using ServiceSet = std::unordered_set<std::shared_ptr<FRXNetService>, FRXNetServiceHash, FRXNetServiceEqual>;

TEST(FRXNetService, HostNameAndNameAreUpperCasedOnCreation) {
  const FRXNetService service("mymac.local.", 16654, "abc");
  EXPECT_EQ(service.hostName(), "MYMAC.LOCAL.");
  EXPECT_EQ(service.name(), "ABC");
  EXPECT_EQ(service.port(), 16654);
  EXPECT_EQ(service.serviceId(), "MYMAC.LOCAL.:16654");
  EXPECT_FALSE(service.isAvailable());
}

TEST(FRXNetService, ANewNameIsKeptAsGivenAndLeavesTheIdAlone) {
  FRXNetService service("h.", 1, "a");
  service.setName("New name");
  service.setIsAvailable(true);
  EXPECT_EQ(service.name(), "New name");
  EXPECT_EQ(service.serviceId(), "H.:1");
  EXPECT_TRUE(service.isAvailable());
}

TEST(FRXNetService, EqualityAndHashLookAtHostNameAndPortOnly) {
  const FRXNetService service("mymac.local.", 16654, "a");
  const FRXNetService sameInOtherCase("MyMac.Local.", 16654, "b");
  const FRXNetService otherHost("mymac2.local.", 16654, "a");
  const FRXNetService otherPort("mymac.local.", 16655, "a");
  EXPECT_TRUE(service.isEqual(service));
  EXPECT_TRUE(service.isEqual(sameInOtherCase));
  EXPECT_EQ(service.hash(), sameInOtherCase.hash());
  EXPECT_FALSE(service.isEqual(otherHost));
  EXPECT_FALSE(service.isEqual(otherPort));
  EXPECT_NE(service.hash(), otherPort.hash());
}

TEST(FRXNetService, ServesAsMemberOfAnUnorderedSet) {
  ServiceSet services;
  services.insert(std::make_shared<FRXNetService>("h.", 1, "a"));
  services.insert(std::make_shared<FRXNetService>("H.", 1, "b"));
  services.insert(std::make_shared<FRXNetService>("h.", 2, "a"));
  services.insert(nullptr);
  EXPECT_EQ(services.size(), 3U);
  EXPECT_TRUE(services.contains(std::make_shared<FRXNetService>("h.", 2, "c")));
}

TEST(FRXNetService, JsonHoldsExactlyFourMembers) {
  const auto json = FRXNetService("h\"1.", 7, "n\\a").toJson();
  ASSERT_TRUE(json);
  const auto value = parseJson(*json);
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, FRXValue(FRXDictionary{
                        {"serviceId", "H\"1.:7"}, {"hostName", "H\"1."}, {"port", 7}, {"name", "N\\A"}}));
}

TEST(FRXNetService, JsonThereAndBackGivesAnEqualRecord) {
  const FRXNetService service("caf\xC3\xA9.local.", 16654, "0123-VERSION/NAME");
  const auto json = service.toJson();
  ASSERT_TRUE(json);
  const auto copy = FRXNetService::fromJson(*json);
  ASSERT_TRUE(copy);
  EXPECT_TRUE(copy->isEqual(service));
  EXPECT_EQ(copy->serviceId(), service.serviceId());
  EXPECT_EQ(copy->name(), service.name());
}

TEST(FRXNetService, ARecordWithAnAbsentFieldHasNoJson) {
  EXPECT_EQ(FRXNetService(std::nullopt, 1, "n").toJson(), std::nullopt);
  EXPECT_EQ(FRXNetService("h", 1, std::nullopt).toJson(), std::nullopt);
}

TEST(FRXNetService, ANameThatIsNotUtf8HasNoJson) {
  FRXNetService service("h", 1, "n");
  service.setName("\xFF");
  EXPECT_EQ(service.toJson(), std::nullopt);
}

TEST(FRXNetService, TextThatIsNotJsonFillsTheError) {
  for (const char* bad : {"", "not json", "{", "{\"hostName\":}", "42", "\"text\"", "null", "{} trailing"}) {
    FRXError error;
    EXPECT_EQ(FRXNetService::fromJson(bad, &error), nullptr) << bad;
    EXPECT_FALSE(error.domain.empty()) << bad;
    EXPECT_FALSE(error.localizedDescription.empty()) << bad;
    EXPECT_EQ(FRXNetService::fromJson(bad), nullptr) << bad;
  }
}

TEST(FRXNetService, AnEmptyObjectGivesARecordWithoutFields) {
  for (const char* empty : {"{}", "[]", "[1,2]"}) {
    const auto service = FRXNetService::fromJson(empty);
    ASSERT_TRUE(service) << empty;
    EXPECT_EQ(service->hostName(), std::nullopt);
    EXPECT_EQ(service->name(), std::nullopt);
    EXPECT_EQ(service->port(), 0);
    EXPECT_EQ(service->serviceId(), ":0");
  }
}

TEST(FRXNetService, TheIdIsNeverTakenFromJson) {
  const auto service =
      FRXNetService::fromJson(R"({"serviceId":"EVIL:1","hostName":"h.","port":2,"name":"n"})");
  ASSERT_TRUE(service);
  EXPECT_EQ(service->serviceId(), "H.:2");
}

TEST(FRXNetService, ThePortMayBeANumberOrANumericText) {
  const auto port = [](const std::string& json) {
    const auto service = FRXNetService::fromJson("{\"port\":" + json + "}");
    return service ? service->port() : -1;
  };
  EXPECT_EQ(port("16654"), 16654);
  EXPECT_EQ(port("\"16654\""), 16654);
  EXPECT_EQ(port("16654.9"), 16654);
  EXPECT_EQ(port("-3"), -3);
  EXPECT_EQ(port("\"abc\""), 0);
  EXPECT_EQ(port("true"), 0);
  EXPECT_EQ(port("null"), 0);
  EXPECT_EQ(port("[1]"), 0);
  EXPECT_EQ(port("{}"), 0);
  EXPECT_EQ(port("1e300"), 0);
  EXPECT_EQ(port("99999999999999999999"), 0);
}

TEST(FRXNetService, MembersOfAnotherTypeAreAbsent) {
  const auto service = FRXNetService::fromJson(R"({"hostName":5,"port":1,"name":["n"]})");
  ASSERT_TRUE(service);
  EXPECT_EQ(service->hostName(), std::nullopt);
  EXPECT_EQ(service->name(), std::nullopt);
}

TEST(FRXNetService, IsReadWhileAnotherThreadChangesIt) {
  FRXNetService service("h.", 1, "FIRST");
  std::thread writer([&service] {
    for (int i = 0; i < 2000; ++i) {
      service.setName(i % 2 == 0 ? "SECOND, LONGER THAN A SHORT STRING" : "FIRST");
      service.setIsAvailable(i % 2 == 0);
    }
  });
  for (int i = 0; i < 2000; ++i) {
    const auto name = service.name();
    EXPECT_TRUE(name == "FIRST" || name == "SECOND, LONGER THAN A SHORT STRING");
    EXPECT_TRUE(service.toJson());
    (void)service.isAvailable();
  }
  writer.join();
}

}  // namespace
}  // namespace ferrox
