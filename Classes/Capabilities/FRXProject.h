// One folder of media files that peers may copy.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

/// May be changed by the host while network threads read it.
/// Thread: any
class FRX_EXPORT FRXProject {
 public:
  /// What peers are told: both texts are there and are UTF-8.
  struct Description {
    std::string name;
    std::string id;
    std::uint16_t port = 0;
  };

  std::optional<std::string> name() const;
  void setName(std::optional<std::string> name);
  /// Required; the last part of the project's URL.
  std::optional<std::string> id() const;
  void setId(std::optional<std::string> id);
  /// 0 means the server's port.
  std::uint16_t port() const;
  void setPort(std::uint16_t port);
  /// File URL of the project's folder. Never leaves this machine.
  std::optional<std::string> fileSystemPath() const;
  void setFileSystemPath(std::optional<std::string> path);

  /// The key under which the project is shared: its id; nothing while that is empty.
  std::optional<std::string> key() const;
  /// All of one moment; nothing while a part of it is missing or not UTF-8.
  std::optional<Description> description() const;
  /// {"name", "id", "port"}; nothing while there is no description.
  std::optional<FRXDictionary> jsonSerializableObject() const;

 private:
  mutable std::mutex mutex_;
  std::optional<std::string> name_;
  std::optional<std::string> id_;
  std::optional<std::string> fileSystemPath_;
  std::uint16_t port_ = 0;
};

}  // namespace ferrox
