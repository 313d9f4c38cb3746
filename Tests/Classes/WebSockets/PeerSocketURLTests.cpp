#include <gtest/gtest.h>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/WebSockets/PeerSocketURL.h"
#include "Platform/Host/HostIdentity.h"

namespace ferrox {
namespace {

class NamedHost final : public HostIdentity {
 public:
  explicit NamedHost(std::string hostName) : hostName_(std::move(hostName)) {}
  std::optional<std::string> deviceUUID() const override { return std::nullopt; }
  std::string computerName() const override { return "Edit Suite"; }
  std::string hostName() const override { return hostName_; }
  std::optional<std::string> serialNumber() const override { return std::nullopt; }

 private:
  std::string hostName_;
};

std::shared_ptr<FRXNetService> record(const std::string& hostName) {
  return std::make_shared<FRXNetService>(hostName, 7000, "A-1/EDIT SUITE");
}

TEST(ReachableRecord, IsTheAnnouncedOne) {
  const auto announced = record("suite-3-2.local.");
  EXPECT_EQ(reachableRecord(announced, NamedHost("suite-3")), announced);
  EXPECT_EQ(reachableRecord(nullptr, NamedHost("suite-3")), nullptr);
}

TEST(ReachableRecord, IsUnderTheHostsNameUntilThereIsAnAnnouncement) {
  const auto reachable = reachableRecord(record("EDIT SUITE.LOCAL"), NamedHost("suite-3"));
  EXPECT_EQ(reachable->serviceId(), "SUITE-3.LOCAL.:7000") << "as discovery will tell it";
  EXPECT_EQ(reachable->name(), "A-1/EDIT SUITE");
}

TEST(ReachableRecord, StaysWhatItIsOnAHostWithoutAName) {
  const auto local = record("EDIT SUITE.LOCAL");
  EXPECT_EQ(reachableRecord(local, NamedHost("")), local);
}

}  // namespace
}  // namespace ferrox
