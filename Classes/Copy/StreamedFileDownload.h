// What the segmented and the atom-aware download have in common: one transfer at a time, streamed into a
// local file that is changed in place.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/Copy/DataTask.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/FileSystem/UpdateFile.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

/// Handles the answers and the failures; a subclass says what to ask for, where the bytes go, and tells its
/// listener. Destroying it, also from within a call of the listener, ends the transfer under way without
/// another call. So does the beginning of another transfer: of a transfer that was replaced nothing is
/// reported any more.
/// Thread: main
class FRX_EXPORT StreamedFileDownload : public DataTaskListener {
 public:
  ~StreamedFileDownload() override;
  StreamedFileDownload(const StreamedFileDownload&) = delete;
  StreamedFileDownload& operator=(const StreamedFileDownload&) = delete;

  const std::string& fromURL() const { return fromURL_; }
  const std::string& toPath() const { return toPath_; }
  /// In seconds; the largest finite number when there is none.
  double timeout() const { return timeout_; }

  /// A transfer is under way. Thread: any
  bool isExecuting() const { return executing_.load(); }
  void setIsExecuting(bool executing) { executing_ = executing; }

  /// The last failure. It stays until the next one or until it is set anew; a stored `errorFileNotFound`
  /// makes every later transfer end with it, so clear it before going on after a 404.
  const std::optional<FRXError>& error() const { return error_; }
  void setError(std::optional<FRXError> error) { error_ = std::move(error); }

  /// Status of the last answer; 0 before the first.
  int responseStatus() const { return responseStatus_; }
  /// The transfer begun last.
  const std::shared_ptr<DataTask>& transferTask() const { return transferTask_; }

  /// Ends the transfer under way, which then reports success with the file as it is, and closes the file.
  void finish();
  /// Stores an error with that description, finishes, and tells the listener.
  void finishWithErrorMessage(std::string_view message, int code = errorFailed);

  static constexpr int errorFailed = -1;
  static constexpr int errorFileNotFound = -404;

  void dataTaskDidReceiveResponse(DataTask& task, const HTTPClientResponse& response) override;
  void dataTaskDidReceiveData(DataTask& task, std::optional<std::string_view> data) override;
  void dataTaskDidComplete(DataTask& task, const std::optional<FRXError>& error) override;

 protected:
  StreamedFileDownload(std::string_view className, std::string fromURL, std::string toPath, double timeout,
                       const PlatformServices& platform);

  // Each of these may destroy the object, so nothing of it is touched after the calls that tell the listener.
  virtual void transferWasAccepted(const HTTPClientResponse&) {}
  virtual void dataWasMissing() {}
  virtual bool listenerWants(std::string_view block) = 0;
  virtual void receiveBlock(std::string_view block) = 0;
  virtual void transferDidSucceed() = 0;
  virtual void transferDidFail(const FRXError& error) = 0;

  RunLoop& mainLoop() const { return *platform_.mainLoop; }
  std::weak_ptr<void> life() const { return life_; }

  /// Sends the request with that "Range" value, or without one. What was under way is abandoned.
  void beginTransfer(const std::optional<std::string>& range);
  void abandonTransfer();
  std::uint64_t sizeOfFile() const { return UpdateFile::sizeOf(toPath_); }

  UpdateFile* outFile() { return outFile_ ? &*outFile_ : nullptr; }
  void closeOutFile() { outFile_.reset(); }
  /// Opens the file, whose first `length` bytes of this transfer are waiting to be written. False when that
  /// failed, which is then reported.
  bool openOutFile(std::size_t length);
  /// Reports that so many bytes could not be written and leaves the transfer without a further word.
  void writingFailed(std::size_t length, const std::string& reason);

 private:
  void failLocally(const std::string& message);

  const PlatformServices platform_;
  const std::string className_;
  const std::string fromURL_;
  const std::string toPath_;
  const double timeout_;
  std::atomic<bool> executing_{false};
  std::optional<FRXError> error_;
  int responseStatus_ = 0;
  HTTPClientRequest request_;
  std::shared_ptr<DataTask> transferTask_;
  std::optional<UpdateFile> outFile_;
  const std::shared_ptr<void> life_ = std::make_shared<char>();
};

}  // namespace ferrox
