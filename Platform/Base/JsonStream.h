// Reading a large JSON text (RFC 8259) while it arrives, without holding it.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "Platform/Base/FRXError.h"
#include "Platform/Base/Json.h"

namespace ferrox {

/// What a JSON text consists of, in its order. Returning false ends the reading: its error is then
/// `JsonErrorStopped`.
class JsonStreamEvents {
 public:
  virtual bool onObjectBegin() = 0;
  virtual bool onObjectEnd() = 0;
  virtual bool onArrayBegin() = 0;
  virtual bool onArrayEnd() = 0;
  /// A text is whole and unescaped; valid during the call.
  virtual bool onKey(std::string_view key) = 0;
  virtual bool onText(std::string_view text) = 0;
  /// A number, true, false or null.
  virtual bool onOther() = 0;

 protected:
  ~JsonStreamEvents() = default;
};

/// The receiver of the events wanted no more.
inline constexpr int JsonErrorStopped = 6;

/// Memory grows with the longest single text only. Thread: one at a time
class JsonStreamReader {
 public:
  /// `events` is borrowed.
  explicit JsonStreamReader(JsonStreamEvents& events, const JsonLimits& limits = {});
  ~JsonStreamReader();
  JsonStreamReader(const JsonStreamReader&) = delete;
  JsonStreamReader& operator=(const JsonStreamReader&) = delete;

  /// The next piece of the text. False once it cannot become a usable JSON text any more.
  bool write(std::string_view piece);
  /// Says that there is no more. False unless the text was whole.
  bool finish();
  /// Why it is not usable; the codes are those of `parseJson`.
  const std::optional<FRXError>& error() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ferrox
