#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Host/MachineIdentity.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

struct MachineIdentityTest : testing::Test {
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "ferrox-identity-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder = pattern;
    files = {folder / "machine-id", folder / "bus-id", folder / "machine-info", folder / "serial",
             folder / "state" / "ferrox"};
  }
  void TearDown() override { fs::remove_all(folder); }

  static void write(const fs::path& path, std::string_view content) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }
  std::optional<std::string> uuid() const { return MachineIdentity(files).deviceUUID(); }
  std::string nameFrom(std::string_view info) const {
    write(files.machineInfo, info);
    return MachineIdentity(files).computerName();
  }

  fs::path folder;
  MachineIdentityFiles files;
  static constexpr const char* id = "0123456789abcdef0123456789abcdef\n";
};

TEST_F(MachineIdentityTest, KeysTheMachineIdToThisApplication) {
  write(files.machineId, id);
  // Computed with: printf com.ferrox.device-uuid.1 | openssl dgst -sha256 -mac HMAC -macopt key:<the id>
  EXPECT_EQ(uuid(), "31032449-53C9-40DA-BC62-68FCC6F34B8A");
  EXPECT_FALSE(fs::exists(*files.stateFolder)) << "a machine with an id needs no other";
}

TEST_F(MachineIdentityTest, GivesTheSameUUIDForUpperAndLowerCaseIds) {
  write(files.machineId, id);
  const auto lower = uuid();
  write(files.machineId, "0123456789ABCDEF0123456789ABCDEF");
  EXPECT_EQ(uuid(), lower);
}

TEST_F(MachineIdentityTest, FallsBackToTheBusId) {
  write(files.machineId, id);
  const auto expected = uuid();
  fs::rename(files.machineId, files.busMachineId);
  EXPECT_EQ(uuid(), expected);
}

TEST_F(MachineIdentityTest, IgnoresIdsThatAreNone) {
  files.stateFolder = fs::path();
  for (const char* content : {"", "uninitialized\n", "0123", "00000000000000000000000000000000\n",
                              "0123456789abcdef0123456789abcdeg", "0123456789abcdef0123456789abcdef0",
                              "0123456789abcdef 123456789abcdef"}) {
    write(files.machineId, content);
    EXPECT_EQ(uuid(), std::nullopt) << content;
  }
  fs::remove(files.machineId);
  fs::create_directory(files.machineId);
  EXPECT_EQ(uuid(), std::nullopt) << "a folder";
}

TEST_F(MachineIdentityTest, MakesUpAnIdOnceAndKeepsIt) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  const auto first = uuid();
  ASSERT_TRUE(first);
  EXPECT_TRUE(std::regex_match(*first, form)) << *first;
  EXPECT_EQ(uuid(), first);
  const auto kept = *files.stateFolder / "machine-id";
  EXPECT_EQ(fs::status(kept).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(std::distance(fs::directory_iterator(*files.stateFolder), {}), 1) << "no draft stays behind";
  fs::remove(kept);
  EXPECT_NE(uuid(), first);
}

TEST_F(MachineIdentityTest, ReplacesAKeptFileThatIsNoId) {
  write(*files.stateFolder / "machine-id", "0123");
  const auto first = uuid();
  ASSERT_TRUE(first);
  EXPECT_EQ(uuid(), first);
}

TEST_F(MachineIdentityTest, OfSeveralAtOnceAllGetTheSameId) {
  std::vector<std::optional<std::string>> found(8);
  std::vector<std::thread> threads;
  for (auto& place : found) threads.emplace_back([&] { place = uuid(); });
  for (std::thread& thread : threads) thread.join();
  ASSERT_TRUE(found[0]);
  for (const auto& one : found) EXPECT_EQ(one, found[0]);
}

TEST_F(MachineIdentityTest, HasNoneWhereNothingCanBeKept) {
  const test::LogRecording log;
  write(folder / "state", "a file where the folder should be");
  EXPECT_EQ(uuid(), std::nullopt);
  EXPECT_EQ(log->entries().size(), 1U);
}

TEST_F(MachineIdentityTest, RemembersTheUUID) {
  write(files.machineId, id);
  const MachineIdentity identity(files);
  const auto first = identity.deviceUUID();
  fs::remove(files.machineId);
  EXPECT_EQ(identity.deviceUUID(), first);
}

TEST_F(MachineIdentityTest, ReadsThePrettyHostName) {
  EXPECT_EQ(nameFrom("CHASSIS=desktop\nPRETTY_HOSTNAME=\"Edit Suite 3\"\n"), "Edit Suite 3");
  EXPECT_EQ(nameFrom("PRETTY_HOSTNAME=Plain"), "Plain");
  EXPECT_EQ(nameFrom("PRETTY_HOSTNAME='It is $HOME'\n"), "It is $HOME");
  EXPECT_EQ(nameFrom("PRETTY_HOSTNAME=\"a \\\"b\\\" \\$c\"\n"), "a \"b\" $c");
  EXPECT_EQ(nameFrom("PRETTY_HOSTNAME=One\n PRETTY_HOSTNAME=\"Ren\u00e9\u2019s Mac\"  \n"),
            "Ren\u00e9\u2019s Mac");
}

TEST_F(MachineIdentityTest, TakesTheHostNameWhereThereIsNoPrettyOne) {
  const std::string host = MachineIdentity(files).hostName();
  EXPECT_EQ(MachineIdentity(files).computerName(), host);
  for (const char* info : {"", "PRETTY_HOSTNAME=\n", "PRETTY_HOSTNAME=\"  \"\n", "#PRETTY_HOSTNAME=x\n",
                           "XPRETTY_HOSTNAME=x\n", "PRETTY_HOSTNAME=\xff\n"}) {
    EXPECT_EQ(nameFrom(info), host) << info;
  }
}

TEST_F(MachineIdentityTest, TheHostNameIsOneLabel) {
  const std::string host = MachineIdentity(files).hostName();
  EXPECT_FALSE(host.empty());
  EXPECT_EQ(host.find('.'), std::string::npos);
}

TEST_F(MachineIdentityTest, ReadsTheSerialNumberWhereItMay) {
  EXPECT_EQ(MachineIdentity(files).serialNumber(), std::nullopt);
  write(files.productSerial, "\n");
  EXPECT_EQ(MachineIdentity(files).serialNumber(), std::nullopt);
  write(files.productSerial, " C02XY123 \n");
  EXPECT_EQ(MachineIdentity(files).serialNumber(), "C02XY123");
}

struct FixedIdentity : HostIdentity {
  std::optional<std::string> deviceUUID() const override { return "FIXED"; }
  std::string computerName() const override { return "Fixed"; }
  std::string hostName() const override { return "fixed"; }
  std::optional<std::string> serialNumber() const override { return std::nullopt; }
};

TEST(HostIdentity, CanBeReplacedAndBroughtBack) {
  EXPECT_EQ(HostIdentity::current(), HostIdentity::ofMachine());
  HostIdentity::setCurrent(std::make_shared<FixedIdentity>());
  EXPECT_EQ(HostIdentity::current()->deviceUUID(), "FIXED");
  HostIdentity::setCurrent(nullptr);
  EXPECT_EQ(HostIdentity::current(), HostIdentity::ofMachine());
}

}  // namespace
}  // namespace ferrox
