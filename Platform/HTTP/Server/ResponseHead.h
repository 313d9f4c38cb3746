// Writes status lines and header fields.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/HTTP/Server/HTTPResponse.h"

namespace ferrox {

std::string_view reasonPhrase(int status);

/// Appends one response head to a connection's output, without a temporary. Thread: network
class ResponseHead {
 public:
  ResponseHead(std::string& out, int status, std::string_view date);
  void add(std::string_view name, std::string_view value);
  void add(std::string_view name, std::uint64_t value);
  /// What the handler wants to say. Fields that would break the message apart, or that frame it, are left
  /// out: those are the server's.
  void addFromHandler(const HTTPHeaders& headers);
  /// `Connection`, where the client could not know (RFC 9112 section 9.3).
  void addPersistence(bool keepAlive, int minorVersion);
  void end() { out_.append("\r\n"); }

 private:
  std::string& out_;
};

/// True for a status that never has a body nor a length (RFC 9110 sections 15.2, 15.3.5, 15.4.5).
bool forbidsBody(int status);

}  // namespace ferrox
