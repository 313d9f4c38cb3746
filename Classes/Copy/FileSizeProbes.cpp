#include "Classes/Copy/FileSizeProbes.h"

#include <limits>
#include <memory>
#include <utility>

#include "Classes/Copy/DownloadErrors.h"
#include "Classes/Copy/FRXContentLengthOperation.h"
#include "Classes/Copy/OperationWindow.h"

namespace ferrox {
namespace {

// Enough that the queue never runs dry while those that ended are handled.
constexpr std::size_t windowWidth = 64;
constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

class Probing {
 public:
  Probing(const PathList& files, OperationQueue& queue, const FileSizeProbeSettings& settings)
      : files_(files),
        settings_(settings),
        window_(queue, windowWidth, settings.isCancelled),
        sizes_(files.size(), 0) {}

  /// The first file that failed.
  std::size_t run() {
    for (std::size_t i = 0; i < files_.size() && failed_ == none; ++i) {
      if (settings_.isCancelled()) {
        didEnd(i, 0, std::nullopt);
        break;
      }
      window_.add(makeProbe(i), [this, i](FRXConcurrentOperation& operation) {
        const auto& probe = static_cast<const FRXContentLengthOperation&>(operation);
        didEnd(i, probe.contentLengthBytes(), probe.error());
      });
    }
    window_.wait();
    return failed_;
  }
  FRXError takeError() { return std::move(error_); }
  std::vector<std::uint64_t> takeSizes() { return std::move(sizes_); }

 private:
  std::shared_ptr<FRXContentLengthOperation> makeProbe(std::size_t index) const {
    const std::string path(files_[index]);
    auto probe = std::make_shared<FRXContentLengthOperation>(settings_.urlOf(path), settings_.timeout,
                                                             settings_.platform);
    probe->setUserInfo({{"path", path}});
    probe->setStartsOnCurrentThread(true);
    return probe;
  }

  void didEnd(std::size_t index, std::uint64_t size, std::optional<FRXError> error) {
    sizes_[index] = size;
    if (!error && size == 0 && !settings_.allowsEmptyFiles) {
      error = downloadError("CopyR24ProjectOperation", "unexpected nil value for content length");
    }
    if (!error || index > failed_) return;
    failed_ = index;
    error_ = std::move(*error);
    window_.cancelFrom(index + 1);
  }

  const PathList& files_;
  const FileSizeProbeSettings& settings_;
  OperationWindow window_;
  std::vector<std::uint64_t> sizes_;
  std::size_t failed_ = none;
  FRXError error_;
};

}  // namespace

std::optional<std::vector<std::uint64_t>> probeFileSizes(const PathList& files, OperationQueue& queue,
                                                         const FileSizeProbeSettings& settings,
                                                         FRXError& error) {
  Probing probing(files, queue, settings);
  if (probing.run() == none) return probing.takeSizes();
  error = probing.takeError();
  return std::nullopt;
}

}  // namespace ferrox
