// How a project is to be copied.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Classes/Copy/CopyR24ProjectOperationDelegate.h"
#include "Platform/Base/ListenerSlot.h"

namespace ferrox {

/// The settings of one `CopyR24ProjectOperation`, copied when it is made. Time-outs are in seconds and of
/// inactivity: so long without a byte; 0 and less is none.
/// Thread: one at a time
struct CopyR24ProjectOperationBuilder {
  using Delegate = CopyR24ProjectOperationDelegate;
  using DelegateSlot = ListenerSlot<Delegate, Delegate::RespondingSelectors>;

  static constexpr double noTimeout = std::numeric_limits<double>::max();

  /// The project at the peer; answers with the structure document.
  std::optional<std::string> projectDownloadURL;
  /// The folder to copy into. What stands there before is removed, whole, once the peer's document was found
  /// sound; a symbolic link is removed itself, not what it leads to.
  std::optional<std::string> localProjectPath;
  /// Kept for the listener's own use; size probes always have 5 s.
  double fileInfoTimeout = noTimeout;
  /// Of every download of a file or piece.
  double fileDownloadTimeout = noTimeout;
  /// Files of at least so many bytes are fetched in pieces of that size, which are joined afterwards.
  /// Compared as an unsigned number: -1 never splits. 0 makes the copy fail before anything is changed.
  std::int64_t maxContentLength = -1;
  /// How many downloads and joins run at once. -1 leaves it to the platform
  /// (`CopyR24ProjectOperation::platformConcurrentDownloads`); 0 and other negative numbers make the copy
  /// fail before anything is changed.
  std::int64_t maxConcurrentDownloads = 1;

  // What follows changes nothing unless it is set.

  /// An empty file is made empty instead of failing the whole copy.
  bool allowsEmptyFiles = false;
  /// What stands in the destination is kept, and what a former copy finished is not fetched again: a file
  /// that has the size the peer tells, and a piece of a split file likewise. Contents are not compared. What
  /// is half there lies beside its final name until it is whole; files of at least
  /// `CopyR24ProjectOperation::resumablePieceLength` are fetched in pieces even where `maxContentLength` says
  /// never. Other entries of the destination stay. A symbolic link in the place of the destination or of one
  /// of its folders makes the copy fail; one in the place of a file is replaced.
  bool resumes = false;
  /// A body that is shorter or longer than the size that was announced for it makes the copy fail and is not
  /// put under its final name; so does a joined file of another size.
  bool verifiesSizes = false;
  /// Files get the time of their last modification at the peer, where it tells that.
  bool preservesModificationTimes = false;
  /// Two names that differ only in letter case, or in how accents are composed, make the copy fail, whatever
  /// the disk. Otherwise they do where the destination's disk does not tell them apart, as one file would
  /// replace the other; elsewhere they are logged at WARN.
  bool refusesCaseCollisions = false;

  /// Of the request for the structure document.
  double structureTimeout = 60.0;
  /// A longer structure document makes the copy fail.
  std::size_t maxStructureBytes = std::size_t{256} << 20;
  /// So does one of more files and directories.
  std::size_t maxStructureEntries = 4'000'000;

  /// The listener. The builder owns it, the operation made of it does not. `Concrete` has to be the
  /// listener's own class, or its operations are not seen.
  template <typename Concrete>
  void setDelegate(std::shared_ptr<Concrete> listener) {
    attach_ = [listener](DelegateSlot& slot) { slot.set(listener); };
    delegate_ = std::move(listener);
  }
  void setDelegate(std::nullptr_t) {
    attach_ = nullptr;
    delegate_.reset();
  }
  const std::shared_ptr<Delegate>& delegate() const { return delegate_; }
  /// Puts the listener, with what it implements, into an operation's slot.
  void attachDelegate(DelegateSlot& slot) const {
    if (attach_) attach_(slot);
  }

 private:
  std::shared_ptr<Delegate> delegate_;
  std::function<void(DelegateSlot&)> attach_;
};

}  // namespace ferrox
