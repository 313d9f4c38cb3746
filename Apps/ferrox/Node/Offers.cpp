#include "Apps/ferrox/Node/Offers.h"

#include <fmt/format.h>

#include <cctype>
#include <filesystem>
#include <utility>

#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

bool isUnreservedInPath(unsigned char c) {
  return c < 0x80 && (std::isalnum(c) != 0 ||
                      std::string_view("/-._~").find(static_cast<char>(c)) != std::string_view::npos);
}

}  // namespace

std::optional<Offer> Offer::fromText(std::string_view text, std::string& problem) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return problem = "write it as ID=DIR or ID:NAME=DIR", std::nullopt;
  const std::string_view label = text.substr(0, equals);
  const std::size_t colon = label.find(':');
  std::string id(label.substr(0, colon));
  std::string name = colon == std::string_view::npos ? id : std::string(label.substr(colon + 1));
  return fromParts(std::move(id), std::move(name), std::string(text.substr(equals + 1)), problem);
}

std::optional<Offer> Offer::fromParts(std::string id, std::string name, const std::string& directory,
                                      std::string& problem) {
  if (id.empty() || name.empty()) return problem = "the ID or NAME is empty", std::nullopt;
  if (id.find('/') != std::string::npos) return problem = "an ID holds no slash", std::nullopt;
  if (escapedForTerminal(id) != id || escapedForTerminal(name) != name) {
    return problem = "ID and NAME are plain UTF-8 text", std::nullopt;
  }
  std::error_code error;
  const std::filesystem::path canonical = std::filesystem::canonical(directory, error);
  if (error || !std::filesystem::is_directory(canonical, error)) {
    return problem = fmt::format("\"{}\" is no directory", escapedForTerminal(directory)), std::nullopt;
  }
  return Offer{std::move(id), std::move(name), canonical.string()};
}

std::string Offer::fileURL() const {
  std::string url = "file://";
  for (const char c : directory) {
    const auto byte = static_cast<unsigned char>(c);
    url += isUnreservedInPath(byte) ? std::string(1, c) : fmt::format("%{:02X}", byte);
  }
  return url;
}

}  // namespace ferrox::command
