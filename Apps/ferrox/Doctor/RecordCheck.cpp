#include <fmt/format.h>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Platform/DNSSD/TXTRecord.h"
#include "Platform/Host/HostIdentity.h"

namespace ferrox::command {
namespace {

// As a node announces itself, with room for a status.
std::map<std::string, std::string> announcedEntries() {
  return {{"RegisteredAt", "2147483647"},
          {"DeviceId", FRXUtilities::currentDeviceUUID().value_or("")},
          {"FriendlyName", HostIdentity::current()->computerName()},
          {"Heartbeat", FRXUtilities::dateToString(std::chrono::system_clock::now()).value_or("")},
          {"App", "Vantle"},
          {"Status", ""}};
}

}  // namespace

Examination examineRecord() {
  Examination out{"identity", "Identity and announcement", {}};
  const auto uuid = FRXUtilities::currentDeviceUUID();
  const std::string name = HostIdentity::current()->computerName();
  if (uuid) {
    out.findings.push_back({Verdict::Good,
                            fmt::format("this device is {}, shown as \"{}\"", *uuid, name),
                            {{"deviceId", *uuid}, {"computerName", name}}});
  } else {
    out.findings.push_back(
        {Verdict::Bad, "this machine has no identity", {}, "give it one with --device-uuid"});
  }
  const auto record = encodeTXTRecord(announcedEntries());
  if (record) {
    out.findings.push_back(
        {Verdict::Good,
         fmt::format("the TXT record takes {} of {} bytes", record->size(), maxTXTRecordSize),
         {{"bytes", record->size()}, {"limit", maxTXTRecordSize}}});
  } else {
    out.findings.push_back({Verdict::Bad,
                            "the TXT record does not fit into one packet",
                            {{"limit", maxTXTRecordSize}},
                            "give a shorter --computer-name"});
  }
  return out;
}

}  // namespace ferrox::command
