// Has the DNS-SD stack verify the pointer record by which one instance is announced.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ferrox {

class DNSSD;

/// The data of the PTR record that announces `serviceName` as "_ferrox._tcp.local.", in DNS wire form
/// (RFC 1035 sections 3.1 and 3.3.12). Nothing, logged at ERROR, for a name that is empty, holds a "." or
/// exceeds 63 bytes. Thread: any
std::optional<std::string> pointerRecordData(std::string_view serviceName);

/// Asks `discovery` to verify that record. What goes wrong is logged. Thread: any
void reconfirmPointerRecord(DNSSD& discovery, const std::string& serviceName);

}  // namespace ferrox
