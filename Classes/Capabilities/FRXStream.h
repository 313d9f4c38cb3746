// One live video stream that this instance serves.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

/// The content type of a stream with a camera's pictures.
inline constexpr std::string_view FRXContentTypeVideoAngle = "video-angle";
/// The content type of a stream with what belongs to moments of the pictures.
inline constexpr std::string_view FRXContentTypeMomentsData = "moments-data";

/// May be changed by the host while network threads read it.
/// Thread: any
class FRX_EXPORT FRXStream {
 public:
  /// What peers are told: every text is there and is UTF-8.
  struct Description {
    std::string name;
    std::string path;
    std::string contentType;
    std::uint16_t port = 0;
  };

  std::optional<std::string> id() const;
  void setId(std::optional<std::string> id);
  std::optional<std::string> name() const;
  void setName(std::optional<std::string> name);
  /// One of the FRXContentType constants, or a kind of the host's own.
  std::optional<std::string> contentType() const;
  void setContentType(std::optional<std::string> contentType);
  /// 0 means the server's port.
  std::uint16_t port() const;
  void setPort(std::uint16_t port);
  /// "/streams/" and the percent-encoded text that was set, or else the id; nothing without either. Once
  /// taken from the id it stays.
  std::optional<std::string> servedPath();
  void setServedPath(const std::optional<std::string>& path);
  /// File URL of the folder that holds the stream's files. Never leaves this machine.
  std::optional<std::string> fileSystemPath() const;
  void setFileSystemPath(std::optional<std::string> path);

  /// The key under which the stream is served: the percent-decoded served path.
  std::optional<std::string> key();
  /// All of one moment; nothing while a part of it is missing or not UTF-8.
  std::optional<Description> description();
  /// {"name", "port", "path", "contentType"}; nothing while there is no description.
  std::optional<FRXDictionary> jsonSerializableObject();

 private:
  std::optional<std::string> servedPathLocked();

  mutable std::mutex mutex_;
  std::optional<std::string> id_;
  std::optional<std::string> name_;
  std::optional<std::string> contentType_;
  std::optional<std::string> servedPath_;
  std::optional<std::string> fileSystemPath_;
  std::uint16_t port_ = 0;
};

}  // namespace ferrox
