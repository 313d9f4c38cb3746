#include "Classes/Copy/ProjectStructureDocument.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

#include "Classes/Copy/DownloadErrors.h"
#include "Classes/HTTPServer/ProjectStructureKeys.h"
#include "Platform/Base/JsonStream.h"
#include "Platform/Host/Text.h"

namespace ferrox {
namespace {

FRXError unsound(const std::string& message) {
  return downloadError("CopyR24ProjectOperation", "project structure refused: " + message);
}

/// Folders and files as one row: the folders first.
class Entries {
 public:
  explicit Entries(const ProjectStructureDocument& document) : document_(document) {}
  std::size_t size() const { return document_.directories.size() + document_.files.size(); }
  bool isFile(std::size_t index) const { return index >= document_.directories.size(); }
  std::string_view operator[](std::size_t index) const {
    return isFile(index) ? document_.files[index - document_.directories.size()]
                         : document_.directories[index];
  }

 private:
  const ProjectStructureDocument& document_;
};

/// An order in which what lies beneath a folder follows it directly.
bool standsBefore(std::string_view a, std::string_view b) {
  const auto [left, right] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  if (left == a.end() || right == b.end()) return left == a.end() && right != b.end();
  const auto rank = [](char c) { return c == '/' ? 0 : static_cast<int>(static_cast<unsigned char>(c)); };
  return rank(*left) < rank(*right);
}

/// What two entries say of each other that cannot both be true.
std::optional<FRXError> contradiction(const ProjectStructureDocument& document) {
  const Entries entries(document);
  std::vector<std::uint32_t> order(entries.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<std::uint32_t>(i);
  std::sort(order.begin(), order.end(),
            [&entries](std::uint32_t a, std::uint32_t b) { return standsBefore(entries[a], entries[b]); });
  for (std::size_t i = 1; i < order.size(); ++i) {
    const std::string_view former = entries[order[i - 1]];
    const std::string_view path = entries[order[i]];
    const bool bothKinds = entries.isFile(order[i - 1]) != entries.isFile(order[i]);
    if (path == former) {
      return unsound("the path " + shownPath(path) +
                     (bothKinds ? " is both a directory and a file" : " comes twice"));
    }
    if (entries.isFile(order[i - 1]) && path.starts_with(former) && path[former.size()] == '/') {
      return unsound("the path " + shownPath(path) + " leads through the file " + shownPath(former));
    }
  }
  return std::nullopt;
}

/// The hash of an entry's caseless form: small enough to have one of every entry.
struct Mark {
  std::size_t hash = 0;
  std::size_t index = 0;
};
using IndexPair = std::pair<std::size_t, std::size_t>;

/// Of entries with the same hash, the two of the same caseless form whose second one comes first.
std::optional<IndexPair> collisionAmong(const Entries& entries, const std::vector<Mark>& marks) {
  std::vector<std::pair<std::string, std::size_t>> forms;
  for (const Mark& mark : marks) forms.emplace_back(text::caselessForm(entries[mark.index]), mark.index);
  std::sort(forms.begin(), forms.end());
  std::optional<IndexPair> first;
  for (std::size_t i = 1; i < forms.size(); ++i) {
    if (forms[i].first != forms[i - 1].first) continue;
    if (!first || forms[i].second < first->second) first.emplace(forms[i - 1].second, forms[i].second);
  }
  return first;
}

}  // namespace

struct ProjectStructureReader::Impl final : JsonStreamEvents {
  explicit Impl(const ProjectStructureDocumentLimits& wanted)
      : limits(wanted), reader(*this, JsonLimits{.depth = 32, .bytes = wanted.bytes}) {}

  bool onObjectBegin() override { return beginValue(true, false); }
  bool onObjectEnd() override { return endValue(); }
  bool onArrayBegin() override { return beginValue(false, true); }
  bool onArrayEnd() override { return endValue(); }
  bool onKey(std::string_view key) override;
  bool onText(std::string_view text) override;
  bool onOther() override { return onScalar(); }

  bool beginValue(bool isObject, bool isArray);
  bool endValue();
  bool onScalar();
  bool append(std::string_view path);
  bool refuse(const std::string& message);
  std::string memberName() const { return member == &document.files ? "\"files\"" : "\"directories\""; }

  const ProjectStructureDocumentLimits limits;
  JsonStreamReader reader;
  ProjectStructureDocument document;
  std::size_t depth = 0;
  PathList* member = nullptr;  ///< whose value is being read; none for a member that is passed over
  bool sawFiles = false;
  bool sawDirectories = false;
  std::optional<FRXError> fault;
};

bool ProjectStructureReader::Impl::refuse(const std::string& message) {
  fault = unsound(message);
  return false;
}

bool ProjectStructureReader::Impl::onKey(std::string_view key) {
  if (depth != 1) return true;
  member = nullptr;
  if (key != FRX_FILES_JSON_KEY && key != FRX_DIRECTORIES_JSON_KEY) return true;
  bool& seen = key == FRX_FILES_JSON_KEY ? sawFiles : sawDirectories;
  member = key == FRX_FILES_JSON_KEY ? &document.files : &document.directories;
  if (seen) return refuse("the member " + memberName() + " comes twice");
  seen = true;
  return true;
}

bool ProjectStructureReader::Impl::beginValue(bool isObject, bool isArray) {
  if (depth == 0 && !isObject) return refuse("the document is no object");
  if (depth == 1 && member != nullptr && !isArray)
    return refuse("the member " + memberName() + " is no array");
  if (depth >= 2 && member != nullptr) return refuse("the member " + memberName() + " holds what is no text");
  ++depth;
  return true;
}

bool ProjectStructureReader::Impl::endValue() {
  --depth;
  if (depth == 1) member = nullptr;
  return true;
}

bool ProjectStructureReader::Impl::onScalar() {
  if (depth == 0) return refuse("the document is no object");
  if (member == nullptr) return true;
  if (depth == 1) return refuse("the member " + memberName() + " is no array");
  return refuse("the member " + memberName() + " holds what is no text");
}

bool ProjectStructureReader::Impl::onText(std::string_view text) {
  return member != nullptr && depth == 2 ? append(text) : onScalar();
}

bool ProjectStructureReader::Impl::append(std::string_view path) {
  if (document.files.size() + document.directories.size() >= limits.entries) {
    return refuse("there are more than " + std::to_string(limits.entries) + " entries");
  }
  if (const auto reason = whyUnusable(path, limits.pathBytes)) {
    return refuse("the path " + shownPath(path) + " " + *reason);
  }
  member->append(path);
  return true;
}

ProjectStructureReader::ProjectStructureReader(const ProjectStructureDocumentLimits& limits)
    : impl_(std::make_unique<Impl>(limits)) {}

ProjectStructureReader::~ProjectStructureReader() = default;

bool ProjectStructureReader::write(std::string_view piece) { return impl_->reader.write(piece); }

std::optional<ProjectStructureDocument> ProjectStructureReader::finish() {
  Impl& impl = *impl_;
  if (!impl.reader.finish()) return std::nullopt;
  if (!impl.sawFiles || !impl.sawDirectories) {
    impl.refuse(std::string("the member ") + (impl.sawFiles ? "\"directories\"" : "\"files\"") +
                " is missing");
  } else {
    impl.fault = contradiction(impl.document);
  }
  if (impl.fault) return std::nullopt;
  return std::move(impl.document);
}

std::optional<FRXError> ProjectStructureReader::error() const {
  return impl_->fault ? impl_->fault : impl_->reader.error();
}

std::optional<std::pair<std::string, std::string>> caseCollision(const ProjectStructureDocument& document) {
  const Entries entries(document);
  std::vector<Mark> marks;
  marks.reserve(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    marks.push_back({std::hash<std::string>{}(text::caselessForm(entries[i])), i});
  }
  std::sort(marks.begin(), marks.end(), [](const Mark& a, const Mark& b) { return a.hash < b.hash; });
  std::optional<IndexPair> first;
  for (auto begin = marks.cbegin(); begin != marks.cend();) {
    const auto end =
        std::find_if(begin, marks.cend(), [begin](const Mark& mark) { return mark.hash != begin->hash; });
    const auto found = end - begin > 1 ? collisionAmong(entries, {begin, end}) : std::nullopt;
    if (found && (!first || found->second < first->second)) first = found;
    begin = end;
  }
  if (!first) return std::nullopt;
  return std::pair(std::string(entries[first->first]), std::string(entries[first->second]));
}

}  // namespace ferrox
