// Follows a QuickTime or MP4 file that may still be growing on the peer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Classes/Copy/FRXAtomDownloadOperationDelegate.h"
#include "Classes/Copy/StreamedFileDownload.h"
#include "Classes/Copy/TransferRequest.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/ListenerSlot.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

/// Each `start` fetches from `contentPosition` to what the peer has by then, and appends it to the local
/// file. The run ends as a success before the first atom whose header it cannot see whole yet or whose size
/// is unknown, as that of the media of a recording in progress may be: the local file then ends with the
/// atom before it. Where an atom's size is known its bytes are taken as far as they exist, so the file may
/// also end within an atom. Starting again after each success follows the file as it grows.
///
/// The server has to honour an open-ended range; what it sends is appended. The file is not looked at before
/// the first run, so begin with none, or set both positions to where it ends. What was taken is not asked for
/// again: a recorder that afterwards changes bytes before the media, for example to turn a spare atom and a
/// header into one with a 64-bit size, leaves the local file without that change.
///
/// A status outside 200 to 299 is told as `downloadOperationDidFail` and then as
/// `downloadOperationDidSucceed` with the size as it is; 404 as two failures of code -404. After a local file
/// that cannot be written nothing more is told of that run. In all cases the positions tell what the file
/// holds. Thread: main
class FRX_EXPORT FRXAtomDownloadOperation final : public StreamedFileDownload {
 public:
  /// `timeout` in seconds without a byte of the answer; one that is not greater than 0 is none.
  FRXAtomDownloadOperation(std::string fromURL, std::string toPath, double timeout = noTransferTimeout,
                           const PlatformServices& platform = PlatformServices::shared());
  ~FRXAtomDownloadOperation() override = default;

  /// Begins a run; while one is under way it only says so at WARN.
  void start();

  /// Size of the local file at the last successful end.
  std::uint64_t sizeInBytes() const { return sizeInBytes_; }
  void setSizeInBytes(std::uint64_t size) { sizeInBytes_ = size; }
  /// Offset in the remote file of the next byte to be received, and how many were written.
  std::uint64_t contentPosition() const { return contentPosition_; }
  void setContentPosition(std::uint64_t position) { contentPosition_ = position; }
  /// Offset in the remote file of the next atom's header. Not below `contentPosition`, or nothing more is
  /// taken.
  std::uint64_t nextAtomPosition() const { return nextAtomPosition_; }
  void setNextAtomPosition(std::uint64_t position) { nextAtomPosition_ = position; }

  /// Held weakly. `Listener` has to be the class that implements the operations.
  template <typename Listener>
  void setDelegate(const std::shared_ptr<Listener>& listener) {
    delegate_.set(listener);
  }
  void setDelegate(std::nullptr_t) { delegate_.set(nullptr); }
  std::shared_ptr<FRXAtomDownloadOperationDelegate> delegate() const { return delegate_.listener(); }

 protected:
  bool listenerWants(std::string_view block) override;
  void receiveBlock(std::string_view block) override;
  void transferDidSucceed() override;
  void transferDidFail(const FRXError& error) override;

 private:
  using Selectors = FRXAtomDownloadOperationRespondingSelectors;

  void downloadFile();

  std::uint64_t sizeInBytes_ = 0;
  std::uint64_t contentPosition_ = 0;
  std::uint64_t nextAtomPosition_ = 0;
  ListenerSlot<FRXAtomDownloadOperationDelegate, Selectors> delegate_;
};

}  // namespace ferrox
