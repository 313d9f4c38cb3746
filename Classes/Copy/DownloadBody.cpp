#include "Classes/Copy/DownloadBody.h"

#include <utility>

namespace ferrox {

bool DownloadBody::append(std::string_view piece) {
  if (error_) return false;
  size_ += piece.size();
  const bool isLarge = size_ > smallSize || expected_.value_or(0) > smallSize;
  if (!file_ && !isLarge) {
    if (expected_) collected_.reserve(static_cast<std::size_t>(*expected_));
    collected_.append(piece);
    return true;
  }
  if (!file_ && !openFile()) return false;
  FRXError error;
  return check(file_->write(piece, &error), error);
}

bool DownloadBody::openFile() {
  FRXError error;
  file_ = open_(&error);
  if (!check(file_.has_value(), error)) return false;
  if (expected_.value_or(0) > smallSize && !check(file_->preallocate(*expected_, &error), error))
    return false;
  const std::string collected = std::exchange(collected_, {});
  return check(file_->write(collected, &error), error);
}

bool DownloadBody::complete(std::optional<std::chrono::system_clock::time_point> modified) {
  if (error_ || (!file_ && !openFile())) return false;
  FRXError error;
  if (modified && !check(file_->setModificationTime(*modified, &error), error)) return false;
  const bool committed = file_->commit(&error);
  file_.reset();
  return check(committed, error);
}

void DownloadBody::discard() {
  file_.reset();
  collected_ = {};
}

bool DownloadBody::check(bool succeeded, const FRXError& error) {
  if (succeeded) return true;
  error_ = error;
  discard();
  return false;
}

}  // namespace ferrox
