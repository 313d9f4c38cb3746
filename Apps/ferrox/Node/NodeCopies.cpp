#include "Apps/ferrox/Node/NodeCopies.h"

#include <utility>
#include <vector>

#include "Apps/ferrox/Node/NodeListener.h"

namespace ferrox::command {

std::string NodeCopies::start(const CopyRequest& request) {
  const auto job = CopyJob::make(request, *this);
  jobs_.emplace(job->operationId(), job);
  job->start();
  return job->operationId();
}

bool NodeCopies::cancel(const std::string& operationId) {
  const auto found = jobs_.find(operationId);
  if (found == jobs_.end()) return false;
  found->second->cancel();
  return true;
}

void NodeCopies::cancelAll(std::function<void()> completion) {
  if (jobs_.empty()) return completion();
  onAllEnded_ = std::move(completion);
  for (const auto& [id, job] : jobs_) job->cancel();
}

void NodeCopies::copyProgressed(const CopyJob& job, std::uint64_t bytes, std::uint64_t totalBytes) {
  listener_.copyProgressed(job, bytes, totalBytes);
}

void NodeCopies::copyMetLowStorage(const CopyJob& job, bool goesOn) {
  listener_.copyMetLowStorage(job, goesOn);
}

void NodeCopies::copyCancelled(const CopyJob& job) { listener_.copyCancelled(job); }

void NodeCopies::copyEnded(const CopyJob& job, const std::optional<FRXError>& error) {
  listener_.copyEnded(job, error);
  jobs_.erase(job.operationId());
  if (jobs_.empty() && onAllEnded_) std::exchange(onAllEnded_, nullptr)();
}

}  // namespace ferrox::command
