#include "Classes/Discovery/FRXRecordReconfirmation.h"

#include <array>
#include <cstdint>

#include "Platform/DNSSD/DNSSD.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

constexpr std::size_t maxLabelSize = 63;    // RFC 1035 section 2.3.4
constexpr std::size_t maxRecordSize = 255;  // a domain name in wire form
constexpr std::uint16_t pointerRecordType = 12;
constexpr std::uint16_t internetClass = 1;
constexpr const char* serviceDomain = "_ferrox._tcp.local.";
// The empty label at the end is the root and supplies the terminating zero byte.
constexpr std::array<std::string_view, 4> serviceDomainLabels = {"_ferrox", "_tcp", "local", ""};

void appendLabel(std::string& data, std::string_view label) {
  data.push_back(static_cast<char>(label.size()));
  data.append(label);
}

}  // namespace

std::optional<std::string> pointerRecordData(std::string_view serviceName) {
  if (serviceName.empty() || serviceName.find('.') != std::string_view::npos) {
    FRX_LOG_ERROR("No or illegal service name provided: " + std::string(serviceName));
    return std::nullopt;
  }
  if (serviceName.size() > maxLabelSize) {
    FRX_LOG_ERROR("Service name too long (64 character maximum): " + std::string(serviceName));
    return std::nullopt;
  }
  std::string data;
  appendLabel(data, serviceName);
  for (const std::string_view label : serviceDomainLabels) appendLabel(data, label);
  if (data.size() > maxRecordSize) {
    FRX_LOG_ERROR("Service record data too long for " + std::string(serviceName));
    return std::nullopt;
  }
  return data;
}

void reconfirmPointerRecord(DNSSD& discovery, const std::string& serviceName) {
  const std::optional<std::string> data = pointerRecordData(serviceName);
  if (!data) return;
  const int code = discovery.reconfirmRecord(0, 0, serviceDomain, pointerRecordType, internetClass, *data);
  if (code != 0) {
    FRX_LOG_WARN("Error reconfirming service " + serviceName + ": " + std::to_string(code));
  }
}

}  // namespace ferrox
