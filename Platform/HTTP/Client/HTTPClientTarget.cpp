#include "Platform/HTTP/Client/HTTPClientTarget.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <string_view>

#include "Platform/Net/HostName.h"

namespace ferrox {
namespace {

struct URLDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using URLHandle = std::unique_ptr<CURLU, URLDeleter>;

std::optional<std::string> part(CURLU* url, CURLUPart which, unsigned flags = 0) {
  char* text = nullptr;
  if (curl_url_get(url, which, &text, flags) != CURLUE_OK) return std::nullopt;
  std::string result(text);
  curl_free(text);
  return result;
}

// The library forgives one slash and three, and takes the path's first segment for the host.
bool hasTwoSlashes(std::string_view url) {
  const auto rest = url.substr(url.find(':') + 1);
  return rest.starts_with("//") && !rest.starts_with("///");
}

std::optional<std::string> hostOf(CURLU* url) {
  auto host = part(url, CURLUPART_HOST);
  if (!host || !host->starts_with('[')) return host;
  host = host->substr(1, host->size() - 2);
  if (const auto zone = part(url, CURLUPART_ZONEID)) *host += "%" + *zone;
  return host;
}

std::uint16_t portOf(CURLU* url) {
  const auto text = part(url, CURLUPART_PORT, CURLU_DEFAULT_PORT).value_or("");
  std::uint16_t port = 0;
  std::from_chars(text.data(), text.data() + text.size(), port);
  return port;
}

bool isToken(std::string_view text) {
  constexpr std::string_view punctuation = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::all_of(text.begin(), text.end(), [punctuation](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           punctuation.find(c) != std::string_view::npos;
  });
}

bool isHeaderValue(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

FRXError invalidRequest(std::string description) {
  return {HTTPClientErrorDomain, HTTPClientErrorInvalidRequest, std::move(description)};
}

}  // namespace

std::optional<HTTPClientTarget> targetOfURL(const std::string& url, FRXError* error) {
  const auto bad = [error](std::string why) {
    setError(error, {HTTPClientErrorDomain, HTTPClientErrorBadURL, std::move(why)});
    return std::nullopt;
  };
  if (url.find('\0') != std::string::npos) return bad("A URL must not hold a NUL character");
  const URLHandle handle(curl_url());
  if (!handle) return bad("Out of memory");
  const auto code =
      curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), CURLU_DISALLOW_USER | CURLU_PATH_AS_IS);
  if (code != CURLUE_OK) return bad(curl_url_strerror(code));
  if (part(handle.get(), CURLUPART_SCHEME) != "http") return bad("Only http URLs can be requested");
  if (!hasTwoSlashes(url)) return bad("The URL names no host");
  const auto host = hostOf(handle.get());
  if (!host || !isUsableHostName(*host)) return bad("The URL names no usable host");
  const auto port = portOf(handle.get());
  if (port == 0) return bad("The URL names no usable port");
  return HTTPClientTarget{*host, port};
}

bool isSendable(const HTTPClientRequest& request, FRXError* error) {
  if (!isToken(request.method)) {
    setError(error, invalidRequest("Not a method: the text is no token"));
    return false;
  }
  for (const auto& [name, value] : request.headers) {
    if (isToken(name) && isHeaderValue(value)) continue;
    setError(error, invalidRequest("Not a header: its name is no token or its value holds a line break"));
    return false;
  }
  return true;
}

}  // namespace ferrox
