// What the tests of a project copy share: a host with a real project, a peer that misbehaves, a listener, and
// ways to look at what a copy has left.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Classes/Copy/CopyR24ProjectOperation.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {

inline constexpr std::chrono::seconds copyPatience{30};

inline std::string bytesOf(std::size_t size, unsigned seed = 1) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 31 + i / 251 + seed * 7) & 0xff);
  return bytes;
}

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// What a test says of a tree without showing its contents.
inline std::string outlineOf(const std::map<std::string, std::string>& tree) {
  std::string outline;
  for (const auto& [name, content] : tree) {
    outline +=
        name + " " + (content.size() < 40 ? content : std::to_string(content.size()) + " bytes") + "\n";
  }
  return outline;
}
/// Both are the same, byte for byte.
inline void expectSameTree(const std::map<std::string, std::string>& found,
                           const std::map<std::string, std::string>& expected) {
  EXPECT_TRUE(found == expected) << "found:\n" << outlineOf(found) << "expected:\n" << outlineOf(expected);
}

/// Everything below a folder: relative path to content; "/" for a folder, "-> target" for a link.
inline std::map<std::string, std::string> treeOf(const std::filesystem::path& root) {
  namespace fs = std::filesystem;
  std::map<std::string, std::string> tree;
  if (!fs::is_directory(fs::symlink_status(root))) return tree;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = fs::relative(entry.path(), root).string();
    if (entry.is_symlink()) {
      tree[name] = "-> " + fs::read_symlink(entry.path()).string();
    } else {
      tree[name] = entry.is_directory() ? "/" : readFile(entry.path());
    }
  }
  return tree;
}

/// Remembers every call, in order, and does what the test wants at some of them.
class RecordingCopyListener final : public CopyR24ProjectOperationDelegate {
 public:
  void copyOperationDidIssueLowStorageWarning(const std::string& operationId, const Decision& onContinue,
                                              const Decision& onAbort) override {
    note("lowStorage", operationId);
    if (onLowStorage) onLowStorage(onContinue, onAbort);
  }
  void copyOperationDidUpdateProgress(const std::string& operationId, std::uint64_t currentProgress,
                                      std::uint64_t totalBytes) override {
    note("progress", operationId);
    {
      const std::lock_guard lock(mutex_);
      progress_.emplace_back(currentProgress, totalBytes);
    }
    if (onProgress) onProgress(currentProgress, totalBytes);
  }
  void copyOperationWasCancelled(const std::string& operationId, std::uint64_t) override {
    note("cancelled", operationId);
    if (onCancelled) onCancelled();
  }
  void copyOperationDidComplete(const std::string& operationId, bool success,
                                const std::optional<FRXError>& error) override {
    EXPECT_EQ(success, !error.has_value());
    note(success ? "success" : "failure", operationId);
    if (onComplete) onComplete();
  }
  void copyOperationDidAbortDueToNotEnoughStorage(const std::string& operationId, std::uint64_t,
                                                  std::uint64_t) override {
    note("aborted", operationId);
  }

  std::vector<std::string> calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
  }
  /// Without progress.
  std::vector<std::string> milestones() const {
    auto calls = this->calls();
    std::erase(calls, "progress");
    return calls;
  }
  std::vector<std::pair<std::uint64_t, std::uint64_t>> progress() const {
    const std::lock_guard lock(mutex_);
    return progress_;
  }
  /// The calls but the last one, which comes after all others, in whatever order: reports of downloads that
  /// ended one after the other may overtake each other.
  std::multiset<std::string> callsBeforeLast() const {
    const auto calls = this->calls();
    return calls.empty() ? std::multiset<std::string>()
                         : std::multiset<std::string>(calls.begin(), std::prev(calls.end()));
  }
  /// All of them, where another thread cancels: the copy may end before that thread tells of it.
  std::multiset<std::string> callsInAnyOrder() const {
    const auto calls = this->calls();
    return {calls.begin(), calls.end()};
  }
  std::set<std::string> operationIds() const {
    const std::lock_guard lock(mutex_);
    return ids_;
  }

  // To be set before the copy starts.
  std::function<void(const Decision& onContinue, const Decision& onAbort)> onLowStorage;
  std::function<void(std::uint64_t progress, std::uint64_t total)> onProgress;
  std::function<void()> onCancelled;
  std::function<void()> onComplete;

 private:
  void note(const std::string& call, const std::string& id) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(call);
    ids_.insert(id);
  }

  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> progress_;
  std::set<std::string> ids_;
};

/// A peer in the hands of the test: serves a structure text and files from memory as a host does, except
/// where a handler takes a request for itself.
class ScriptedPeer {
 public:
  /// Whether it has answered; it may throw `HangUp` to end the connection.
  using Handler = std::function<bool(ScriptedConnection& connection, const std::string& request)>;
  struct HangUp {};

  ScriptedPeer(std::string structure, std::map<std::string, std::string> files, Handler handler = nullptr)
      : structure_(std::move(structure)), files_(std::move(files)), handler_(std::move(handler)) {}

  std::string url() const { return server_.url("/projects/P"); }
  std::vector<std::string> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }
  std::size_t count(const std::string& beginning) const {
    std::size_t number = 0;
    for (const auto& request : requests()) number += request.starts_with(beginning) ? 1 : 0;
    return number;
  }
  /// The value of that field in the first request that begins so.
  static std::string fieldOf(const std::string& request, const std::string& name) {
    const auto at = request.find("\r\n" + name + ": ");
    if (at == std::string::npos) return {};
    const auto begin = at + name.size() + 4;
    return request.substr(begin, request.find("\r\n", begin) - begin);
  }
  std::size_t openCount() const { return server_.openCount(); }
  /// The file a request asks for; empty for the structure.
  static std::string fileOf(const std::string& request) {
    constexpr std::string_view before = " /projects/P/files/";
    const auto at = request.find(before);
    if (at == std::string::npos) return {};
    const auto begin = at + before.size();
    return *FRXUtilities::urlDecodePathComponent(request.substr(begin, request.find(' ', begin) - begin));
  }

 private:
  void serve(ScriptedConnection& connection) {
    while (true) {
      const std::string request = connection.readRequest();
      if (request.empty()) return;
      {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
      }
      try {
        if (handler_ && handler_(connection, request)) continue;
      } catch (const HangUp&) {
        return;
      }
      if (!connection.send(answerTo(request))) return;
    }
  }

  std::string answerTo(const std::string& request) const {
    const std::string file = fileOf(request);
    if (file.empty()) return ScriptedHTTPServer::answer(structure_);
    const auto found = files_.find(file);
    if (found == files_.end()) return ScriptedHTTPServer::answer("", "HTTP/1.1 404 Not Found");
    std::string body = found->second;
    if (request.starts_with("HEAD ")) {
      return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    }
    const std::string range = fieldOf(request, "Range");
    if (!range.empty()) {
      const std::size_t start = std::stoull(range.substr(6));
      const std::size_t end =
          std::min<std::size_t>(std::stoull(range.substr(range.find('-') + 1)), body.size());
      body = body.substr(start, end - start);
    }
    return ScriptedHTTPServer::answer(body);
  }

  const std::string structure_;
  const std::map<std::string, std::string> files_;
  const Handler handler_;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  ScriptedHTTPServer server_{[this](ScriptedConnection& connection) { serve(connection); }};
};

class CopyFixture : public HostFixture {
 protected:
  using Copy = std::shared_ptr<CopyR24ProjectOperation>;
  using Builder = CopyR24ProjectOperationBuilder;

  CopyFixture() {
    parts_.platform.httpClient = client_.get();
    parts_.freeDiskSpace = [] { return std::uint64_t{1} << 60; };
    parts_.foldsCase = [](const std::string&) { return false; };
    std::filesystem::create_directory(project());
  }

  /// The folder that the host shares, and the one that is copied into.
  std::filesystem::path project() const { return folder_.path() / "project"; }
  std::filesystem::path destination() const { return folder_.path() / "copies" / "destination"; }

  void put(const std::string& name, std::string_view content) { folder_.write("project/" + name, content); }
  /// Shares the project and tells its URL.
  std::string share() {
    start();
    shareProject("P", "file://" + project().string());
    return "http://127.0.0.1:" + std::to_string(server_->port()) + "/projects/P";
  }

  Copy make(const std::string& url, const std::function<void(Builder&)>& configure = nullptr) {
    return CopyR24ProjectOperation::makeWithBuilder(
        [&](Builder& builder) {
          builder.projectDownloadURL = url;
          builder.localProjectPath = destination().string();
          builder.setDelegate(listener_);
          if (configure) configure(builder);
        },
        parts_);
  }
  static void awaitEnd(const Copy& copy) {
    ASSERT_TRUE(waitFor([&] { return copy->isFinished(); }, copyPatience));
    EXPECT_FALSE(copy->isExecuting());
  }
  static void run(const Copy& copy) {
    copy->start();
    awaitEnd(copy);
  }
  Copy copyFrom(const std::string& url, const std::function<void(Builder&)>& configure = nullptr) {
    Copy copy = make(url, configure);
    run(copy);
    return copy;
  }
  void expectCalls(const std::multiset<std::string>& before, const std::string& last) const {
    EXPECT_EQ(listener_->callsBeforeLast(), before);
    EXPECT_EQ(listener_->calls().back(), last);
  }
  /// One call for every download, each with one of these sums, and the whole in the end.
  void expectProgress(const std::set<std::uint64_t>& sums, std::size_t count) const {
    const auto progress = listener_->progress();
    EXPECT_EQ(progress.size(), count);
    std::uint64_t highest = 0;
    for (const auto& [current, total] : progress) {
      EXPECT_TRUE(sums.contains(current)) << current;
      EXPECT_EQ(total, *sums.rbegin());
      highest = std::max(highest, current);
    }
    EXPECT_EQ(highest, *sums.rbegin());
  }
  static std::string failureOf(const Copy& copy) {
    return copy->error() ? copy->error()->localizedDescription : "";
  }

  const TemporaryDirectory folder_;
  ScriptedResolver resolver_;
  std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
  CopyR24ProjectOperationParts parts_;
  std::shared_ptr<RecordingCopyListener> listener_ = std::make_shared<RecordingCopyListener>();
};

using Calls = std::vector<std::string>;

}  // namespace ferrox::test
