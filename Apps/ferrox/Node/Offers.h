// What a node offers: folders to copy and streams to watch, as given on the command line.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ferrox::command {

struct Offer {
  std::string id;
  std::string name;
  /// An absolute path of a directory.
  std::string directory;

  /// Reads ID=DIR or ID:NAME=DIR; without a name the id is the name. Nothing, with `problem` saying why,
  /// when a part is missing or DIR is no directory.
  static std::optional<Offer> fromText(std::string_view text, std::string& problem);
  /// The same from its parts.
  static std::optional<Offer> fromParts(std::string id, std::string name, const std::string& directory,
                                        std::string& problem);
  /// The directory as a file URL.
  std::string fileURL() const;

  bool operator==(const Offer&) const = default;
};

struct Offers {
  std::vector<Offer> projects;
  std::vector<Offer> streams;
  /// Streams of the content type for moments.
  std::vector<Offer> moments;
};

}  // namespace ferrox::command
