#include "Classes/HTTPServer/ProjectStructure.h"

#include <string_view>

#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Platform/Base/Json.h"
#include "Platform/FileSystem/TreeWalk.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

/// The elements of one of the two arrays, written as they come: a large project is never held as values.
class JsonTextList {
 public:
  void append(std::string_view text) {
    if (!elements_.empty()) elements_ += ',';
    appendJsonString(elements_, text);
  }
  const std::string& elements() const { return elements_; }

 private:
  std::string elements_;
};

void appendArrayMember(std::string& json, std::string_view key, const JsonTextList& list) {
  appendJsonString(json, key);
  json += ":[";
  json += list.elements();
  json += ']';
}

}  // namespace

std::optional<std::string> projectStructureJson(const std::string& root,
                                                const ProjectStructureLimits& limits) {
  JsonTextList files;
  JsonTextList directories;
  std::size_t entries = 0;
  std::size_t unnameable = 0;
  const auto isWithinLimits = [&] {
    return entries <= limits.entries &&
           files.elements().size() + directories.elements().size() <= limits.bytes;
  };
  const bool complete = walkTree(root, [&](std::string_view path, bool isDirectory) {
    ++entries;
    if (text::isValidUtf8(path)) {
      (isDirectory ? directories : files).append(path);
    } else {
      ++unnameable;
    }
    return isWithinLimits();
  });
  if (!complete && !isWithinLimits()) {
    FRX_LOG_WARN("Project is too large to be listed: " + root);
    return std::nullopt;
  }
  if (unnameable > 0) {
    FRX_LOG_WARN("Left " + std::to_string(unnameable) + " entries whose names are not UTF-8 out of " + root);
  }
  std::string json;
  json.reserve(files.elements().size() + directories.elements().size() + 32);
  json += '{';
  appendArrayMember(json, FRX_FILES_JSON_KEY, files);
  json += ',';
  appendArrayMember(json, FRX_DIRECTORIES_JSON_KEY, directories);
  json += '}';
  return json;
}

}  // namespace ferrox
