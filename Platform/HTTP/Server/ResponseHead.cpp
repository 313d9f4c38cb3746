#include "Platform/HTTP/Server/ResponseHead.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "Platform/HTTP/Server/RequestHead.h"

namespace ferrox {

std::string_view reasonPhrase(int status) {
  switch (status) {
    case 100:
      return "Continue";
    case 101:
      return "Switching Protocols";
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 202:
      return "Accepted";
    case 204:
      return "No Content";
    case 206:
      return "Partial Content";
    case 301:
      return "Moved Permanently";
    case 302:
      return "Found";
    case 304:
      return "Not Modified";
    case 307:
      return "Temporary Redirect";
    case 308:
      return "Permanent Redirect";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 406:
      return "Not Acceptable";
    case 408:
      return "Request Timeout";
    case 409:
      return "Conflict";
    case 410:
      return "Gone";
    case 413:
      return "Content Too Large";
    case 414:
      return "URI Too Long";
    case 416:
      return "Range Not Satisfiable";
    case 417:
      return "Expectation Failed";
    case 426:
      return "Upgrade Required";
    case 431:
      return "Request Header Fields Too Large";
    case 500:
      return "Internal Server Error";
    case 501:
      return "Not Implemented";
    case 503:
      return "Service Unavailable";
    case 505:
      return "HTTP Version Not Supported";
    default:
      return "";
  }
}

bool forbidsBody(int status) { return status < 200 || status == 204 || status == 304; }

namespace {

bool isSafe(std::string_view name, std::string_view value) {
  const auto token = [](char c) { return c > ' ' && c < 127 && c != ':'; };
  const auto text = [](char c) { return c == '\t' || (static_cast<unsigned char>(c) >= ' ' && c != 127); };
  return !name.empty() && std::all_of(name.begin(), name.end(), token) &&
         std::all_of(value.begin(), value.end(), text);
}

bool belongsToServer(std::string_view name) {
  static constexpr std::array<std::string_view, 5> names = {"Content-Length", "Transfer-Encoding",
                                                            "Connection", "Date", "Content-Range"};
  return std::any_of(names.begin(), names.end(),
                     [&](std::string_view own) { return equalsIgnoringAsciiCase(own, name); });
}

}  // namespace

ResponseHead::ResponseHead(std::string& out, int status, std::string_view date) : out_(out) {
  out_.append("HTTP/1.1 ");
  char digits[8];
  const auto [end, failure] = std::to_chars(digits, digits + sizeof digits, status);
  out_.append(digits, end).append(" ").append(reasonPhrase(status)).append("\r\n");
  add("Date", date);
}

void ResponseHead::add(std::string_view name, std::string_view value) {
  out_.append(name).append(": ").append(value).append("\r\n");
}

void ResponseHead::add(std::string_view name, std::uint64_t value) {
  char digits[24];
  const auto [end, failure] = std::to_chars(digits, digits + sizeof digits, value);
  add(name, std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

void ResponseHead::addFromHandler(const HTTPHeaders& headers) {
  for (const auto& [name, value] : headers) {
    if (isSafe(name, value) && !belongsToServer(name)) add(name, value);
  }
}

void ResponseHead::addPersistence(bool keepAlive, int minorVersion) {
  if (!keepAlive) return add("Connection", "close");
  if (minorVersion == 0) add("Connection", "keep-alive");
}

}  // namespace ferrox
