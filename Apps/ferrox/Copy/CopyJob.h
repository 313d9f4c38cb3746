// One copy of a project, and what becomes of it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Apps/ferrox/Copy/CopyRequest.h"
#include "Classes/Copy/CopyR24ProjectOperation.h"

namespace ferrox::command {

class CopyJob;

/// Thread: main
class CopyListener {
 public:
  virtual ~CopyListener() = default;
  /// A file, or a piece of one, has arrived; bytes, which never fall.
  virtual void copyProgressed(const CopyJob&, std::uint64_t /*bytes*/, std::uint64_t /*totalBytes*/) {}
  /// Space is short, and that was decided upon.
  virtual void copyMetLowStorage(const CopyJob&, bool /*goesOn*/) {}
  virtual void copyCancelled(const CopyJob&) {}
  /// Once, and last.
  virtual void copyEnded(const CopyJob&, const std::optional<FRXError>& /*error*/) {}
};

/// Thread: main
class CopyJob final : public std::enable_shared_from_this<CopyJob> {
 public:
  /// Whether to go on with little space. Called on a thread of the copy, which it may block.
  using Decision = std::function<bool(const CopyR24ProjectOperation& copy)>;

  /// `listener` is borrowed and outlives the job.
  static std::shared_ptr<CopyJob> make(const CopyRequest& request, CopyListener& listener);
  ~CopyJob();
  CopyJob(const CopyJob&) = delete;
  CopyJob& operator=(const CopyJob&) = delete;

  /// In the place of what the request says. Before `start()`.
  void setDecision(Decision decision) { decision_ = std::move(decision); }
  void start();
  /// It ends soon; the listener hears of both.
  void cancel();

  bool wasCancelled() const { return cancelled_; }
  const std::string& operationId() const { return operation_->operationId(); }
  const std::string& destination() const { return request_.destination; }
  /// What it is doing, to be read at any moment.
  const CopyR24ProjectOperation& operation() const { return *operation_; }

 private:
  class Bridge;
  friend class Bridge;

  CopyJob(const CopyRequest& request, CopyListener& listener);
  void attach();
  void ended();

  const CopyRequest request_;
  CopyListener& listener_;
  Decision decision_;
  std::uint64_t progress_ = 0;
  bool cancelled_ = false;
  bool ended_ = false;
  std::shared_ptr<Bridge> bridge_;
  std::shared_ptr<CopyR24ProjectOperation> operation_;
};

}  // namespace ferrox::command
