#include "Classes/Copy/DownloadBody.h"

#include <algorithm>

namespace ferrox {

void DownloadBody::expect(std::optional<std::uint64_t> size) {
  expected_ = size;
  // Large writes are quick where the blocks are reserved, and several times slower where they are not.
  gatheredSize_ = isKnownToBeLarge() ? largeWriteSize : smallSize;
}

bool DownloadBody::isKnownToBeLarge() const { return expected_.value_or(0) > smallSize; }

bool DownloadBody::append(std::string_view piece) {
  if (error_) return false;
  size_ += piece.size();
  if (gathered_.empty()) {
    const std::uint64_t most = gatheredSize_ + piece.size();
    gathered_.reserve(static_cast<std::size_t>(std::min(expected_.value_or(0), most)));
  }
  gathered_.append(piece);
  return gathered_.size() <= gatheredSize_ || writeGathered();
}

bool DownloadBody::writeGathered() {
  FRXError error;
  if (!file_) {
    file_ = open_(&error);
    if (!check(file_.has_value(), error)) return false;
    if (isKnownToBeLarge() && !check(file_->preallocate(*expected_, &error), error)) return false;
  }
  if (!check(file_->write(gathered_, &error), error)) return false;
  gathered_.clear();
  return true;
}

bool DownloadBody::complete(std::optional<std::chrono::system_clock::time_point> modified) {
  if (error_ || !writeGathered()) return false;
  FRXError error;
  if (modified && !check(file_->setModificationTime(*modified, &error), error)) return false;
  const bool committed = file_->commit(&error);
  file_.reset();
  return check(committed, error);
}

void DownloadBody::discard() {
  file_.reset();
  gathered_ = {};
}

bool DownloadBody::check(bool succeeded, const FRXError& error) {
  if (succeeded) return true;
  error_ = error;
  discard();
  return false;
}

}  // namespace ferrox
