#include "Classes/Utilities/FRXUtilities.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/Utilities/PercentCoding.h"
#include "Classes/Utilities/StringUtilities.h"
#include "Platform/Host/HostIdentity.h"
#include "Platform/Log/Log.h"
#include "Platform/Queues/BackgroundQueue.h"

namespace ferrox {
namespace {

std::string_view beforeFirstDash(std::string_view serviceId) {
  return serviceId.substr(0, serviceId.find('-'));
}

}  // namespace

std::optional<std::string> FRXUtilities::urlEncodePathComponent(const std::optional<std::string>& component) {
  if (!component) return std::nullopt;
  return percentEncoded(*component, PercentSet::Host);
}

std::optional<std::string> FRXUtilities::urlDecodePathComponent(const std::optional<std::string>& component) {
  if (!component) return std::nullopt;
  return percentDecoded(*component);
}

const text::DateFormatter& FRXUtilities::dateFormatter() {
  static const text::DateFormatter& formatter = *new text::DateFormatter("yyyy-MM-dd' 'HH:mm:ssZ");
  return formatter;
}

std::optional<std::string> FRXUtilities::dateToString(const std::optional<FRXDate>& date) {
  if (!date) return std::nullopt;
  return dateFormatter().format(*date);
}

std::optional<FRXDate> FRXUtilities::stringToDate(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return dateFormatter().parse(*text);
}

void FRXUtilities::getHostNameWithCallback(HostNameCallback callback) {
  if (!callback) return;
  BackgroundQueue::shared().post(
      [callback = std::move(callback)] { callback(HostIdentity::current()->computerName()); });
}

std::optional<std::string> FRXUtilities::currentDeviceUUID() {
  const auto uuid = HostIdentity::current()->deviceUUID();
  if (!uuid) return std::nullopt;
  return text::upperCased(*uuid);
}

std::optional<std::string> FRXUtilities::currentDeviceUUIDWithDashesRemoved() {
  auto uuid = currentDeviceUUID();
  if (uuid) std::erase(*uuid, '-');
  return uuid;
}

std::optional<std::string> FRXUtilities::currentDeviceFRXId() { return LocalServiceDirectory::frxServerId(); }

std::int64_t FRXUtilities::secondsSinceReferenceDate(FRXDate date) {
  constexpr std::int64_t referenceDate = 978'307'200;  // 2001-01-01 00:00:00 UTC since 1970
  const auto sinceReference = date.time_since_epoch() - std::chrono::seconds(referenceDate);
  return std::chrono::duration_cast<std::chrono::seconds>(sinceReference).count();
}

std::string FRXUtilities::createAndEncodeServiceVersion() {
  return createAndEncodeServiceVersion(std::chrono::system_clock::now());
}

std::string FRXUtilities::createAndEncodeServiceVersion(FRXDate now) {
  constexpr std::int64_t versions = 130'000;
  return text::base64Encoded(std::to_string(secondsSinceReferenceDate(now) % versions));
}

std::optional<std::string> FRXUtilities::decodeServiceVersion(std::string_view version) {
  auto decoded = text::base64Decoded(version);
  if (!decoded || !text::isValidUtf8(*decoded)) return std::nullopt;
  return decoded;
}

std::optional<std::string> FRXUtilities::addressForSender(const std::optional<std::string>& serviceId) {
  const auto service = serviceId ? LocalServiceDirectory::serviceWithId(*serviceId) : nullptr;
  if (!service || service->port() <= 0 || !service->hostName()) {
    FRX_LOG_WARN("Unable to resolve address for remote FRX service: " + serviceId.value_or("(null)"));
    return std::nullopt;
  }
  return *service->hostName() + ":" + std::to_string(service->port());
}

std::optional<std::string> FRXUtilities::localizedNameFromServiceId(
    const std::optional<std::string>& serviceId) {
  if (isNilOrEmpty(serviceId)) return std::nullopt;
  const std::size_t slash = serviceId->rfind('/');
  return slash == std::string::npos ? *serviceId : serviceId->substr(slash + 1);
}

std::optional<std::string> FRXUtilities::deviceIdFromServiceId(const std::optional<std::string>& serviceId) {
  if (isNilOrEmpty(serviceId)) return std::nullopt;
  return std::string(beforeFirstDash(*serviceId));
}

bool FRXUtilities::isLocalDeviceService(const std::optional<std::string>& serviceId) {
  if (!serviceId) return false;
  const auto local = LocalServiceDirectory::frxServerId();
  return local && text::equalsIgnoringCase(beforeFirstDash(*serviceId), beforeFirstDash(*local));
}

bool FRXUtilities::isUWPService(const FRXNetService* service) {
  if (service == nullptr) return false;
  const auto name = service->name();
  return name && text::upperCased(text::prefix(*name, 1)) == "Z";
}

RequestRange FRXUtilities::readSimpleByteRangeHeader(const std::optional<std::string>& value) {
  constexpr std::string_view unit = "bytes=";
  if (!value || std::count(value->begin(), value->end(), '-') != 1 || !value->starts_with(unit)) return {};
  const std::size_t dash = value->find('-');
  std::string first = value->substr(0, dash);
  for (std::size_t at = first.find(unit); at != std::string::npos; at = first.find(unit, at)) {
    first.erase(at, unit.size());
  }
  // With the only dash taken away neither reading can be negative.
  const auto start = static_cast<std::uint64_t>(integerValue(first));
  const auto end = static_cast<std::uint64_t>(integerValue(std::string_view(*value).substr(dash + 1)));
  return {start, end, true};
}

}  // namespace ferrox
