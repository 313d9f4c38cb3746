// Reads and writes DNS packets as multicast DNS uses them (RFC 1035 section 4, RFC 6762 section 18).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Export.h"

namespace ferrox::dnssd {

inline constexpr std::uint16_t recordTypeA = 1;      ///< IPv4 address
inline constexpr std::uint16_t recordTypePTR = 12;   ///< name of another name
inline constexpr std::uint16_t recordTypeTXT = 16;   ///< attributes
inline constexpr std::uint16_t recordTypeAAAA = 28;  ///< IPv6 address
inline constexpr std::uint16_t recordTypeSRV = 33;   ///< host and port of a service
inline constexpr std::uint16_t recordClassIN = 1;    ///< the Internet's, and the only one in use

/// Raw labels, without the empty one of the root.
using DNSName = std::vector<std::string>;

/// Compares without regard to ASCII case (RFC 1035 section 2.3.3).
FRX_EXPORT bool sameDNSName(const DNSName& a, const DNSName& b);
/// Labels of dotted text without escapes; a trailing dot is allowed. Nothing when a label is empty or longer
/// than 63 bytes, or the whole longer than 255 bytes in wire form.
FRX_EXPORT std::optional<DNSName> dnsNameFromText(std::string_view text);

/// RFC 1035 section 4.1.2. The highest bit of the class asks for a unicast answer (RFC 6762 section 5.4).
struct DNSQuestion {
  DNSName name;
  std::uint16_t type = 0;
  std::uint16_t recordClass = recordClassIN;
};

/// RFC 1035 section 4.1.3. The highest bit of the class flushes caches (RFC 6762 section 10.2); the time to
/// live is in seconds, and 0 says goodbye.
struct DNSRecord {
  DNSName name;
  std::uint16_t type = 0;
  std::uint16_t recordClass = recordClassIN;
  std::uint32_t timeToLive = 0;
  /// As it stands in the packet, but the name in a PTR or SRV record is written without compression.
  std::string rdata;
};

/// A whole packet (RFC 1035 section 4.1), as mDNS uses it.
struct DNSMessage {
  std::uint16_t id = 0;
  std::uint16_t flags = 0;
  std::vector<DNSQuestion> questions;
  /// Of all three sections when read; written as answers.
  std::vector<DNSRecord> records;

  bool isResponse() const { return (flags & 0x8000) != 0; }
};

/// What an SRV record tells (RFC 2782) besides its priority and weight, which mean nothing here.
struct SRVData {
  std::uint16_t port = 0;
  DNSName target;
};

/// Nothing unless the whole packet can be read. Thread: any
FRX_EXPORT std::optional<DNSMessage> readDNSMessage(std::string_view packet);
/// Without name compression. Nothing when a name is not valid or the packet would exceed 9000 bytes.
FRX_EXPORT std::optional<std::string> writeDNSMessage(const DNSMessage& message);
/// A name that fills `rdata` to its end, without compression.
FRX_EXPORT std::optional<DNSName> readPTRData(std::string_view rdata);
/// Nothing unless `rdata` is a whole SRV record without compression.
FRX_EXPORT std::optional<SRVData> readSRVData(std::string_view rdata);

}  // namespace ferrox::dnssd
