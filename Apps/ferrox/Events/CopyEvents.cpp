#include "Apps/ferrox/Events/CopyEvents.h"

#include "Apps/ferrox/Copy/CopyJob.h"

namespace ferrox::command {

FRXDictionary copyMembers(const CopyJob& job) { return {{"operationId", job.operationId()}}; }

FRXDictionary copyProgressMembers(const CopyJob& job, std::uint64_t bytes, std::uint64_t totalBytes) {
  return {{"operationId", job.operationId()},
          {"bytes", static_cast<std::int64_t>(bytes)},
          {"totalBytes", static_cast<std::int64_t>(totalBytes)}};
}

FRXDictionary copyCompletedMembers(const CopyJob& job, const std::optional<FRXError>& error) {
  FRXDictionary members = copyMembers(job);
  members["success"] = !error;
  members["error"] = error ? FRXValue(error->localizedDescription) : FRXValue();
  if (job.wasCancelled()) members["cancelled"] = true;
  return members;
}

}  // namespace ferrox::command
