#include "Apps/ferrox/Node/Offers.h"

#include <fmt/format.h>

#include <cctype>
#include <filesystem>

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
  Offer offer{std::string(label.substr(0, colon)), {}, std::string(text.substr(equals + 1))};
  offer.name = colon == std::string_view::npos ? offer.id : std::string(label.substr(colon + 1));
  if (offer.id.empty() || offer.name.empty()) return problem = "the ID or NAME is empty", std::nullopt;
  if (offer.id.find('/') != std::string::npos) return problem = "an ID holds no slash", std::nullopt;
  if (escapedForTerminal(label) != label) return problem = "ID and NAME are plain UTF-8 text", std::nullopt;

  std::error_code error;
  const std::filesystem::path directory = std::filesystem::canonical(offer.directory, error);
  if (error || !std::filesystem::is_directory(directory, error)) {
    return problem = fmt::format("\"{}\" is no directory", escapedForTerminal(offer.directory)), std::nullopt;
  }
  offer.directory = directory.string();
  return offer;
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
