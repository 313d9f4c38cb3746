#include "Platform/Host/Text.h"

#include <sys/random.h>
#include <unicode/normalizer2.h>
#include <unicode/smpdtfmt.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "Platform/Base/Mutex.h"
#include "Platform/Base/Utf8.h"

namespace ferrox::text {
namespace {

/// Walks over code points; a bad byte is one step with a negative character.
class CodePoints {
 public:
  explicit CodePoints(std::string_view text) : text_(text) {}

  bool atEnd() const { return position_ >= text_.size(); }
  std::size_t position() const { return position_; }
  UChar32 next() {
    const std::optional<char32_t> character = nextCharacter(text_, position_);
    return character ? static_cast<UChar32>(*character) : -1;
  }

 private:
  std::string_view text_;
  std::size_t position_ = 0;
};

constexpr std::string_view base64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<signed char, 256> makeBase64Values() {
  std::array<signed char, 256> values{};
  values.fill(-1);
  for (std::size_t i = 0; i < base64Alphabet.size(); ++i) {
    values[static_cast<unsigned char>(base64Alphabet[i])] = static_cast<signed char>(i);
  }
  return values;
}
constexpr std::array<signed char, 256> base64Values = makeBase64Values();

icu::UnicodeString unicode(std::string_view utf8) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
}

}  // namespace

std::string upperCased(std::string_view utf8) {
  std::string result;
  unicode(utf8).toUpper(icu::Locale::getRoot()).toUTF8String(result);
  return result;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  CodePoints left(a);
  CodePoints right(b);
  while (!left.atEnd() && !right.atEnd()) {
    const std::size_t leftStart = left.position();
    const std::size_t rightStart = right.position();
    const UChar32 l = left.next();
    const UChar32 r = right.next();
    if (l < 0 || r < 0) {
      // Bad bytes have no case; they are equal to themselves only.
      if (l >= 0 || r >= 0 || a[leftStart] != b[rightStart]) return false;
    } else if (u_foldCase(l, U_FOLD_CASE_DEFAULT) != u_foldCase(r, U_FOLD_CASE_DEFAULT)) {
      return false;
    }
  }
  return left.atEnd() && right.atEnd();
}

std::string caselessForm(std::string_view utf8) {
  std::string result(utf8);
  if (std::all_of(utf8.begin(), utf8.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    for (char& c : result) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    }
    return result;
  }
  UErrorCode failure = U_ZERO_ERROR;
  const icu::Normalizer2* const decomposition = icu::Normalizer2::getNFDInstance(failure);
  if (U_FAILURE(failure)) return result;
  icu::UnicodeString folded = decomposition->normalize(unicode(utf8), failure);
  folded = decomposition->normalize(folded.foldCase(), failure);
  if (U_FAILURE(failure)) return result;
  result.clear();
  folded.toUTF8String(result);
  return result;
}

std::string trimmed(std::string_view utf8) {
  CodePoints walk(utf8);
  std::size_t begin = utf8.size();
  std::size_t end = utf8.size();
  while (!walk.atEnd()) {
    const std::size_t start = walk.position();
    const UChar32 c = walk.next();
    if (c >= 0 && u_isUWhiteSpace(c)) continue;
    if (begin == utf8.size()) begin = start;
    end = walk.position();
  }
  return std::string(utf8.substr(begin, end - begin));
}

std::string alphanumericOnly(std::string_view utf8) {
  constexpr std::uint32_t kept = U_GC_L_MASK | U_GC_M_MASK | U_GC_ND_MASK;
  std::string result;
  CodePoints walk(utf8);
  while (!walk.atEnd()) {
    const std::size_t start = walk.position();
    const UChar32 c = walk.next();
    if (c >= 0 && (U_GET_GC_MASK(c) & kept) != 0) result += utf8.substr(start, walk.position() - start);
  }
  return result;
}

bool isValidUtf8(std::string_view bytes) { return isUtf8(bytes); }

std::size_t characterCount(std::string_view utf8) {
  std::size_t count = 0;
  for (CodePoints walk(utf8); !walk.atEnd(); ++count) walk.next();
  return count;
}

std::string prefix(std::string_view utf8, std::size_t count) {
  CodePoints walk(utf8);
  while (count > 0 && !walk.atEnd()) {
    walk.next();
    --count;
  }
  return std::string(utf8.substr(0, walk.position()));
}

std::string_view prefixOfBytes(std::string_view utf8, std::size_t maxBytes) {
  if (utf8.size() <= maxBytes) return utf8;
  const auto continues = [utf8](std::size_t index) {
    return (static_cast<unsigned char>(utf8[index]) & 0xc0) == 0x80;
  };
  std::size_t end = maxBytes;
  // A character has at most three continuation bytes; more of them are not UTF-8 and may be cut anywhere.
  for (int step = 0; step < 3 && end > 0 && continues(end); ++step) --end;
  return utf8.substr(0, continues(end) ? maxBytes : end);
}

std::string base64Encoded(std::string_view bytes) {
  std::string result;
  result.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      result += k <= count ? base64Alphabet[group >> (18 - 6 * k) & 63] : '=';
    }
  }
  return result;
}

std::optional<std::string> base64Decoded(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::string_view digits = text;
  for (int i = 0; i < 2 && digits.ends_with('='); ++i) digits.remove_suffix(1);
  std::string result;
  result.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;
  unsigned count = 0;
  for (const char c : digits) {
    const signed char value = base64Values[static_cast<unsigned char>(c)];
    if (value < 0) return std::nullopt;
    bits = bits << 6 | static_cast<std::uint32_t>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      result += static_cast<char>(bits >> count & 0xff);
    }
  }
  // Bits left over must be zero (RFC 4648 section 3.5), or two texts would stand for the same bytes.
  if ((bits & ((1U << count) - 1)) != 0) return std::nullopt;
  return result;
}

std::string randomUUID() {
  std::array<unsigned char, 16> bytes{};
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t got = getrandom(bytes.data() + filled, bytes.size() - filled, 0);
    if (got > 0) filled += static_cast<std::size_t>(got);
  }
  return uuidText(bytes);
}

std::string uuidText(std::array<unsigned char, 16> bytes) {
  // Version and variant (RFC 9562 section 5.4).
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
  constexpr std::string_view hexDigits = "0123456789ABCDEF";
  std::string result;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) result += '-';
    result += hexDigits[bytes[i] >> 4];
    result += hexDigits[bytes[i] & 15];
  }
  return result;
}

struct FRX_HIDDEN DateFormatter::Impl {
  Mutex mutex;
  std::unique_ptr<icu::SimpleDateFormat> format FRX_GUARDED_BY(mutex);
};

DateFormatter::DateFormatter(std::string_view pattern) : impl_(std::make_unique<Impl>()) {
  UErrorCode status = U_ZERO_ERROR;
  auto format = std::make_unique<icu::SimpleDateFormat>(unicode(pattern), status);
  if (U_FAILURE(status)) return;
  format->setLenient(false);
  const MutexLock lock(impl_->mutex);
  impl_->format = std::move(format);
}

DateFormatter::~DateFormatter() = default;

std::string DateFormatter::format(FRXDate date) const {
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(date.time_since_epoch()).count();
  icu::UnicodeString text;
  {
    const MutexLock lock(impl_->mutex);
    if (impl_->format == nullptr) return {};
    impl_->format->format(static_cast<UDate>(milliseconds), text);
  }
  std::string result;
  text.toUTF8String(result);
  return result;
}

std::optional<FRXDate> DateFormatter::parse(std::string_view text) const {
  const icu::UnicodeString source = unicode(text);
  icu::ParsePosition position(0);
  UDate milliseconds = 0;
  {
    const MutexLock lock(impl_->mutex);
    if (impl_->format == nullptr) return std::nullopt;
    milliseconds = impl_->format->parse(source, position);
  }
  if (position.getErrorIndex() >= 0 || position.getIndex() != source.length()) return std::nullopt;
  // The calendar type counts nanoseconds in 64 bits: years 1678 to 2261.
  constexpr double limit = 9.2e15 / 1000;
  if (!std::isfinite(milliseconds) || std::abs(milliseconds) > limit) return std::nullopt;
  return FRXDate(std::chrono::milliseconds(static_cast<std::int64_t>(milliseconds)));
}

}  // namespace ferrox::text
