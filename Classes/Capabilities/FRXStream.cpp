#include "Classes/Capabilities/FRXStream.h"

#include <utility>

#include "Classes/Capabilities/OfferChanges.h"
#include "Classes/Utilities/PercentCoding.h"
#include "Classes/Utilities/StringUtilities.h"
#include "Platform/Host/Text.h"

namespace ferrox {
namespace {

std::string servedPathFrom(std::string_view text) {
  std::string path = "/streams";
  const std::size_t begin = text.find_first_not_of('/');
  if (begin != std::string_view::npos) path += "/" + percentEncoded(text.substr(begin), PercentSet::Path);
  while (path.ends_with('/')) path.pop_back();
  return path;
}

bool isText(const std::optional<std::string>& text) { return text && text::isValidUtf8(*text); }

}  // namespace

std::optional<std::string> FRXStream::id() const {
  const std::lock_guard lock(mutex_);
  return id_;
}

void FRXStream::setId(std::optional<std::string> id) {
  const std::lock_guard lock(mutex_);
  id_ = std::move(id);
  OfferChanges::note();
}

std::optional<std::string> FRXStream::name() const {
  const std::lock_guard lock(mutex_);
  return name_;
}

void FRXStream::setName(std::optional<std::string> name) {
  const std::lock_guard lock(mutex_);
  name_ = std::move(name);
  OfferChanges::note();
}

std::optional<std::string> FRXStream::contentType() const {
  const std::lock_guard lock(mutex_);
  return contentType_;
}

void FRXStream::setContentType(std::optional<std::string> contentType) {
  const std::lock_guard lock(mutex_);
  contentType_ = std::move(contentType);
  OfferChanges::note();
}

std::uint16_t FRXStream::port() const {
  const std::lock_guard lock(mutex_);
  return port_;
}

void FRXStream::setPort(std::uint16_t port) {
  const std::lock_guard lock(mutex_);
  port_ = port;
  OfferChanges::note();
}

std::optional<std::string> FRXStream::servedPath() {
  const std::lock_guard lock(mutex_);
  return servedPathLocked();
}

std::optional<std::string> FRXStream::servedPathLocked() {
  if (isNilOrEmpty(servedPath_)) {
    if (isNilOrEmpty(id_)) return std::nullopt;
    servedPath_ = servedPathFrom(*id_);
  }
  return servedPath_;
}

void FRXStream::setServedPath(const std::optional<std::string>& path) {
  auto served = path ? std::optional(servedPathFrom(*path)) : std::nullopt;
  const std::lock_guard lock(mutex_);
  servedPath_ = std::move(served);
  OfferChanges::note();
}

std::optional<std::string> FRXStream::fileSystemPath() const {
  const std::lock_guard lock(mutex_);
  return fileSystemPath_;
}

void FRXStream::setFileSystemPath(std::optional<std::string> path) {
  const std::lock_guard lock(mutex_);
  fileSystemPath_ = std::move(path);
  OfferChanges::note();
}

std::optional<std::string> FRXStream::key() {
  const auto path = servedPath();
  return path ? percentDecoded(*path) : std::nullopt;
}

std::optional<FRXStream::Description> FRXStream::description() {
  const std::lock_guard lock(mutex_);
  auto path = servedPathLocked();
  if (!path || !isText(name_) || !isText(contentType_)) return std::nullopt;
  return Description{*name_, std::move(*path), *contentType_, port_};
}

std::optional<FRXDictionary> FRXStream::jsonSerializableObject() {
  auto now = description();
  if (!now) return std::nullopt;
  return FRXDictionary{{"name", std::move(now->name)},
                       {"port", now->port},
                       {"path", std::move(now->path)},
                       {"contentType", std::move(now->contentType)}};
}

}  // namespace ferrox
