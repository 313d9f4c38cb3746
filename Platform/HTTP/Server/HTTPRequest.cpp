#include "Platform/HTTP/Server/HTTPRequest.h"

namespace ferrox {

std::map<std::string, std::string> parseGetParams(std::string_view uri) {
  std::map<std::string, std::string> parameters;
  uri = uri.substr(0, uri.find('#'));
  const std::size_t mark = uri.find('?');
  if (mark == std::string_view::npos) return parameters;
  std::string_view query = uri.substr(mark + 1);
  while (!query.empty()) {
    const std::size_t end = query.find('&');
    const std::string_view pair = query.substr(0, end);
    query = end == std::string_view::npos ? std::string_view() : query.substr(end + 1);
    if (pair.empty()) continue;
    const std::size_t equals = pair.find('=');
    const std::string_view value =
        equals == std::string_view::npos ? std::string_view() : pair.substr(equals + 1);
    parameters.emplace(pair.substr(0, equals), value);
  }
  return parameters;
}

}  // namespace ferrox
