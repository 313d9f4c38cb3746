#include "Classes/Discovery/FRXLocalServiceRecord.h"

#include <utility>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Platform/Host/HostIdentity.h"
#include "Platform/Net/HostName.h"

namespace ferrox {
namespace {

/// The server's host name is the computer's name, as people write it. One that cannot stand in a URL would be
/// refused by every peer; the machine's host name takes its place.
std::optional<std::string> usableHostName(std::optional<std::string> computerName) {
  if (!computerName || isUsableHostName(*computerName)) return computerName;
  return HostIdentity::current()->hostName();
}

}  // namespace

FRXLocalServerInfo sharedServerInfo() {
  const std::shared_ptr<FRXServer> server = FRXServer::sharedInstance();
  if (!server) return {};
  return {usableHostName(server->hostName()), server->port(), server->frxServerId()};
}

void FRXLocalServiceRecord::setAnnounced(const std::string& hostName, std::uint16_t port,
                                         const std::string& serviceName) {
  auto record = std::make_shared<FRXNetService>(hostName, port, serviceName);
  const MutexLock lock(mutex_);
  announced_ = std::move(record);
}

void FRXLocalServiceRecord::forgetAnnounced() {
  const MutexLock lock(mutex_);
  announced_.reset();
}

std::shared_ptr<FRXNetService> FRXLocalServiceRecord::announced() const {
  const MutexLock lock(mutex_);
  return announced_;
}

std::shared_ptr<FRXNetService> FRXLocalServiceRecord::record() const {
  if (auto record = announced()) return record;
  return recordFromServer();
}

std::shared_ptr<FRXNetService> FRXLocalServiceRecord::recordFromServer() const {
  if (!server_) return nullptr;
  FRXLocalServerInfo info = server_();
  if (!info.hostName) return nullptr;
  const MutexLock lock(mutex_);
  if (fromServer_ && info == lastInfo_) return fromServer_;
  const bool isLocalName = info.hostName->ends_with(".local");
  fromServer_ = std::make_shared<FRXNetService>(isLocalName ? *info.hostName : *info.hostName + ".local",
                                                info.port, info.serviceName);
  lastInfo_ = std::move(info);
  return fromServer_;
}

}  // namespace ferrox
