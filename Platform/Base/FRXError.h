// The one error type of the library: a domain, a code within it, and a text for people.
#pragma once

#include <string>
#include <utility>

namespace ferrox {

/// What went wrong. Operations that may fail return a value or nothing and fill an optional trailing
/// `FRXError* error`; asynchronous ones hand a `std::optional<FRXError>` to their completion.
struct FRXError {
  std::string domain;
  int code = 0;
  std::string localizedDescription;

  bool operator==(const FRXError&) const = default;
};

/// Fills the caller's optional place for an error; does nothing when none was given.
inline void setError(FRXError* place, FRXError error) {
  if (place != nullptr) *place = std::move(error);
}

}  // namespace ferrox
