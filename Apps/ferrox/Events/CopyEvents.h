// The members of the events that tell of a copy.
#pragma once

#include <cstdint>
#include <optional>

#include "Platform/Base/FRXError.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox::command {

class CopyJob;

/// "operationId".
FRXDictionary copyMembers(const CopyJob& job);
/// The same with "bytes" and "totalBytes".
FRXDictionary copyProgressMembers(const CopyJob& job, std::uint64_t bytes, std::uint64_t totalBytes);
/// The same with "success" and "error", which is null after a success. A copy that was cancelled counts as
/// one unless something failed, and has "cancelled".
FRXDictionary copyCompletedMembers(const CopyJob& job, const std::optional<FRXError>& error);

}  // namespace ferrox::command
