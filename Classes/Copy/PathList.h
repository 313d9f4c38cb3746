// Very many paths in little memory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ferrox {

/// The bytes of all paths stand in one text. Thread: one at a time; any for reading
class PathList {
 public:
  void append(std::string_view path) {
    bytes_ += path;
    ends_.push_back(bytes_.size());
  }
  std::size_t size() const { return ends_.size(); }
  bool empty() const { return ends_.empty(); }
  /// Valid until the next `append`.
  std::string_view operator[](std::size_t index) const {
    const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
    return std::string_view(bytes_).substr(begin, ends_[index] - begin);
  }

 private:
  std::string bytes_;
  std::vector<std::size_t> ends_;
};

}  // namespace ferrox
