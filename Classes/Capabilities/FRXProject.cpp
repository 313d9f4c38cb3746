#include "Classes/Capabilities/FRXProject.h"

#include <utility>

#include "Classes/Capabilities/OfferChanges.h"
#include "Classes/Utilities/StringUtilities.h"
#include "Platform/Host/Text.h"

namespace ferrox {

std::optional<std::string> FRXProject::name() const {
  const std::lock_guard lock(mutex_);
  return name_;
}

void FRXProject::setName(std::optional<std::string> name) {
  const std::lock_guard lock(mutex_);
  name_ = std::move(name);
  OfferChanges::note();
}

std::optional<std::string> FRXProject::id() const {
  const std::lock_guard lock(mutex_);
  return id_;
}

void FRXProject::setId(std::optional<std::string> id) {
  const std::lock_guard lock(mutex_);
  id_ = std::move(id);
  OfferChanges::note();
}

std::uint16_t FRXProject::port() const {
  const std::lock_guard lock(mutex_);
  return port_;
}

void FRXProject::setPort(std::uint16_t port) {
  const std::lock_guard lock(mutex_);
  port_ = port;
  OfferChanges::note();
}

std::optional<std::string> FRXProject::fileSystemPath() const {
  const std::lock_guard lock(mutex_);
  return fileSystemPath_;
}

void FRXProject::setFileSystemPath(std::optional<std::string> path) {
  const std::lock_guard lock(mutex_);
  fileSystemPath_ = std::move(path);
  OfferChanges::note();
}

std::optional<std::string> FRXProject::key() const {
  auto id = this->id();
  if (isNilOrEmpty(id)) return std::nullopt;
  return id;
}

std::optional<FRXProject::Description> FRXProject::description() const {
  const std::lock_guard lock(mutex_);
  if (!name_ || !id_ || !text::isValidUtf8(*name_) || !text::isValidUtf8(*id_)) return std::nullopt;
  return Description{*name_, *id_, port_};
}

std::optional<FRXDictionary> FRXProject::jsonSerializableObject() const {
  auto now = description();
  if (!now) return std::nullopt;
  return FRXDictionary{{"name", std::move(now->name)}, {"id", std::move(now->id)}, {"port", now->port}};
}

}  // namespace ferrox
