// The copies that a running node makes.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "Apps/ferrox/Copy/CopyJob.h"

namespace ferrox::command {

class NodeListener;

/// Thread: main
class NodeCopies final : public CopyListener {
 public:
  /// `listener` is borrowed and outlives the object.
  explicit NodeCopies(NodeListener& listener) : listener_(listener) {}

  /// Begins a copy; its id, by which it is cancelled.
  std::string start(const CopyRequest& request);
  /// False when there is no such copy under way.
  bool cancel(const std::string& operationId);
  /// Ends all; `completion` is called when the last has ended, inside the call when there is none.
  void cancelAll(std::function<void()> completion);

  void copyProgressed(const CopyJob& job, std::uint64_t bytes, std::uint64_t totalBytes) override;
  void copyMetLowStorage(const CopyJob& job, bool goesOn) override;
  void copyCancelled(const CopyJob& job) override;
  void copyEnded(const CopyJob& job, const std::optional<FRXError>& error) override;

 private:
  NodeListener& listener_;
  std::map<std::string, std::shared_ptr<CopyJob>> jobs_;
  std::function<void()> onAllEnded_;
};

}  // namespace ferrox::command
