// What the tests of segmented downloads share.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/Copy/FRXSegmentedDownloadOperation.h"
#include "Tests/Classes/Copy/DownloadFixture.h"

namespace ferrox::test {

/// Writes down what it hears.
struct SegmentListener final : FRXSegmentedDownloadOperationDelegate {
  void downloadOperationDidSucceed(FRXSegmentedDownloadOperation& operation, std::uint64_t size) override {
    events.push_back("success " + std::to_string(size));
    wasExecuting = operation.isExecuting();
    if (onSuccess) onSuccess(operation);
  }
  void downloadOperationDidFail(FRXSegmentedDownloadOperation& operation, const FRXError& error) override {
    events.push_back("failure " + std::to_string(error.code) + " " + error.localizedDescription);
    domains.push_back(error.domain);
    wasExecuting = operation.isExecuting();
    if (onFailure) onFailure(operation);
  }
  bool shouldWriteToFileWithDownloadOperation(FRXSegmentedDownloadOperation& operation,
                                              std::string_view data) override {
    received.append(data);
    return onData ? onData(operation, data) : true;
  }

  std::vector<std::string> events;
  std::vector<std::string> domains;
  std::string received;
  bool wasExecuting = false;
  std::function<void(FRXSegmentedDownloadOperation&)> onSuccess;
  std::function<void(FRXSegmentedDownloadOperation&)> onFailure;
  std::function<bool(FRXSegmentedDownloadOperation&, std::string_view)> onData;
};

/// One file of a scripted server, of which segments are fetched.
class SegmentedDownloadFixture : public DownloadFixture {
 protected:
  SegmentedDownloadFixture() { loop_.runPending(); }

  std::shared_ptr<FRXSegmentedDownloadOperation> makeOperation(double timeout = 30) {
    auto operation = std::make_shared<FRXSegmentedDownloadOperation>(server_->url("/file.mov"), path(),
                                                                     timeout, platform());
    operation->setDelegate(listener_);
    return operation;
  }
  void serveContent() {
    serve([this](const SeenRequest& request, ScriptedConnection& connection) {
      answerRange(remote_, request, connection);
    });
  }
  void serveStatus(const std::string& statusLine) {
    serve([statusLine](const SeenRequest&, ScriptedConnection& connection) {
      connection.send(ScriptedHTTPServer::answer("no", statusLine));
    });
  }
  bool waitForEvents(std::size_t count) {
    return wait([this, count] { return listener_->events.size() >= count; });
  }

  const std::string remote_ = [] {
    std::string bytes(1000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>('a' + i % 26);
    return bytes;
  }();
  std::shared_ptr<SegmentListener> listener_ = std::make_shared<SegmentListener>();
};

}  // namespace ferrox::test
