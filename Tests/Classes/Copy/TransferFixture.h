// What the tests of the transfer steps share: a real HTTP client, a folder, and ways to run an operation.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Classes/Copy/FRXConcurrentOperation.h"
#include "Classes/Copy/FRXDownloadOperation.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/PlatformServices.h"
#include "Tests/Support/ScriptedResolver.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {

/// Long enough for a machine under any load.
inline constexpr std::chrono::seconds longPatience{30};

inline std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Names in a folder, in order.
inline std::vector<std::string> namesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

/// Bytes of which every stretch is recognisable.
inline std::string recognisableBytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 31 + i / 251) & 0xff);
  return bytes;
}

/// Notes what it is told, and whether the operation was finished by then.
class RecordingDownloadListener final : public FRXDownloadOperationDelegate {
 public:
  void downloadOperationDidSucceed(FRXDownloadOperation& operation, std::uint64_t sizeInBytes) override {
    note("success " + std::to_string(sizeInBytes), operation);
  }
  void downloadOperationDidFail(FRXDownloadOperation& operation, const FRXError& error) override {
    EXPECT_EQ(operation.error(), error);
    note("failure " + std::to_string(error.code), operation);
  }
  std::vector<std::string> events() const {
    const std::lock_guard lock(mutex_);
    return events_;
  }

 private:
  void note(std::string event, const FRXDownloadOperation& operation) {
    EXPECT_TRUE(operation.isFinished());
    EXPECT_FALSE(operation.isExecuting());
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
  }

  mutable std::mutex mutex_;
  std::vector<std::string> events_;
};

class TransferFixture : public ::testing::Test {
 protected:
  TransferFixture() { platform_.httpClient = client_.get(); }

  std::filesystem::path path(const std::string& name = "target") const { return folder_.path() / name; }

  std::shared_ptr<FRXDownloadOperation> download(const std::string& url, double timeout = noTransferTimeout) {
    return std::make_shared<FRXDownloadOperation>(url, path(), timeout, platform_);
  }
  /// Starts it and waits for its end.
  static void run(const std::shared_ptr<FRXConcurrentOperation>& operation) {
    operation->start();
    awaitEnd(*operation);
  }
  static void awaitEnd(const FRXConcurrentOperation& operation) {
    ASSERT_TRUE(waitFor([&operation] { return operation.isFinished(); }, longPatience));
  }
  /// Ends the client, and with it every callback that is under way.
  void endClient() { client_.reset(); }

  TemporaryDirectory folder_;
  ScriptedResolver resolver_;
  std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
  PlatformServices platform_;
};

}  // namespace ferrox::test
