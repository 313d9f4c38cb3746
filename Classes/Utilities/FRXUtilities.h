// Identity of this device, service ids and their parts, coding of path components, the one date format.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"
#include "Platform/Host/Text.h"

namespace ferrox {

class FRXNetService;

/// A simple byte range as written in a header: `end` is the last byte, 0 when it was left out. The offsets
/// mean something only while `isValid`.
struct RequestRange {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  bool isValid = false;
};

/// A service id is UUID-VERSION/NAME: the device's UUID without dashes, a version that differs from one
/// generated name to the next, the computer's name.
/// Thread: any
class FRX_EXPORT FRXUtilities {
 public:
  using HostNameCallback = std::function<void(const std::string& hostName)>;

  /// Percent-encodes all but the characters allowed in a URL's host (RFC 3986 section 3.2.2): "/" is encoded.
  static std::optional<std::string> urlEncodePathComponent(const std::optional<std::string>& component);
  /// Nothing for a malformed escape and for what is not UTF-8.
  static std::optional<std::string> urlDecodePathComponent(const std::optional<std::string>& component);

  /// "yyyy-MM-dd' 'HH:mm:ssZ" in the current locale and time zone; made once.
  static const text::DateFormatter& dateFormatter();
  static std::optional<std::string> dateToString(const std::optional<FRXDate>& date);
  static std::optional<FRXDate> stringToDate(const std::optional<std::string>& text);

  /// Hands the computer's name to `callback` later, on a background thread.
  static void getHostNameWithCallback(HostNameCallback callback);

  /// Upper case, with dashes.
  static std::optional<std::string> currentDeviceUUID();
  static std::optional<std::string> currentDeviceUUIDWithDashesRemoved();
  /// The published service id of the local server; nothing while there is no server.
  static std::optional<std::string> currentDeviceFRXId();

  /// Whole seconds since 2001-01-01 00:00:00 UTC, truncated towards zero.
  static std::int64_t secondsSinceReferenceDate(FRXDate date);
  /// Seconds since 2001-01-01 UTC modulo 130000, as decimal digits in base64.
  static std::string createAndEncodeServiceVersion();
  static std::string createAndEncodeServiceVersion(FRXDate now);
  static std::optional<std::string> decodeServiceVersion(std::string_view version);

  /// "HOST:port" of a known service; nothing, logged at WARN, when it is not known or not resolved.
  static std::optional<std::string> addressForSender(const std::optional<std::string>& serviceId);
  static std::optional<std::string> localizedNameFromServiceId(const std::optional<std::string>& serviceId);
  static std::optional<std::string> deviceIdFromServiceId(const std::optional<std::string>& serviceId);
  /// True for every service of this machine, whatever its version and name.
  static bool isLocalDeviceService(const std::optional<std::string>& serviceId);
  /// Such instances publish names that begin with "Z"; they are connected to without being monitored.
  static bool isUWPService(const FRXNetService* service);

  /// Understands "bytes=START-END" and "bytes=START-" only; a suffix range reads as one that starts at 0.
  static RequestRange readSimpleByteRangeHeader(const std::optional<std::string>& value);
};

}  // namespace ferrox
