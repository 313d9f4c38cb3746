// Unicode rules (ICU), coding of bytes as text, and dates as text.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox::text {

/// Full Unicode case mapping, independent of locale. Text that is not UTF-8 has its bad bytes replaced by
/// U+FFFD. Thread: any
FRX_EXPORT std::string upperCased(std::string_view utf8);
/// Case-insensitive equality by Unicode simple case folding.
FRX_EXPORT bool equalsIgnoringCase(std::string_view a, std::string_view b);
/// The same for texts that differ only in letter case or in how accents are composed: canonical caseless
/// matching (Unicode 3.13, D145), which is what disks do that do not tell case apart.
FRX_EXPORT std::string caselessForm(std::string_view utf8);
/// Without the characters of the white-space-and-newline class at both ends.
FRX_EXPORT std::string trimmed(std::string_view utf8);
/// Only letters, marks and decimal digits stay.
FRX_EXPORT std::string alphanumericOnly(std::string_view utf8);
FRX_EXPORT bool isValidUtf8(std::string_view bytes);
/// How many characters (code points) the text has.
FRX_EXPORT std::size_t characterCount(std::string_view utf8);
/// The first `count` characters.
FRX_EXPORT std::string prefix(std::string_view utf8, std::size_t count);
/// The longest beginning of at most `maxBytes` bytes that does not cut a character.
FRX_EXPORT std::string_view prefixOfBytes(std::string_view utf8, std::size_t maxBytes);

/// Standard base64 (RFC 4648 section 4) with padding and no line breaks.
FRX_EXPORT std::string base64Encoded(std::string_view bytes);
FRX_EXPORT std::optional<std::string> base64Decoded(std::string_view text);

/// A random UUID (RFC 9562 version 4), upper case.
FRX_EXPORT std::string randomUUID();
/// The same form made of given random or keyed bytes: version and variant bits are set over them.
FRX_EXPORT std::string uuidText(std::array<unsigned char, 16> bytes);

/// Formats and reads dates by a Unicode date pattern in the current locale and time zone. A pattern that is
/// not usable gives empty texts and no dates. Reading is strict: the whole text has to match, and day or hour
/// out of range are refused. Thread: any
class FRX_EXPORT DateFormatter {
 public:
  explicit DateFormatter(std::string_view pattern);
  ~DateFormatter();
  DateFormatter(const DateFormatter&) = delete;
  DateFormatter& operator=(const DateFormatter&) = delete;
  std::string format(FRXDate date) const;
  std::optional<FRXDate> parse(std::string_view text) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ferrox::text
