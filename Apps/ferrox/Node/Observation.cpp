#include "Apps/ferrox/Node/Observation.h"

#include "Platform/Host/Text.h"

namespace ferrox::command {

bool isBlank(std::string_view text) { return text::trimmed(text).empty(); }

std::optional<Observation> Observation::fromText(std::string_view text, std::string& problem) {
  if (!text::isValidUtf8(text)) return problem = "NAME and FILTER are UTF-8 text", std::nullopt;
  const std::size_t equals = text.find('=');
  Observation observation{std::string(text.substr(0, equals)), std::nullopt};
  if (equals != std::string_view::npos) observation.filter = std::string(text.substr(equals + 1));
  if (isBlank(observation.name)) return problem = "the NAME is blank", std::nullopt;
  if (observation.filter && isBlank(*observation.filter))
    return problem = "the FILTER is blank", std::nullopt;
  return observation;
}

}  // namespace ferrox::command
