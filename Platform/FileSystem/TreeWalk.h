// A walk of everything beneath a directory, for listing it.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace ferrox {

/// Visits every entry beneath `root`, depth first, a directory before its contents, the entries of one
/// directory in the order of their bytes. Symbolic links are followed: one that leads to a directory counts
/// as a directory and is descended into, unless it leads to a directory that the walk is in already.
/// What cannot be examined (a dangling link) is no directory; what cannot be read has no contents.
/// Memory grows with the entries of the directories on the way down, not with the tree.
/// `relativePath` has "/" between components and none in front, and holds the bytes of the disk, whatever
/// their encoding. Returning false from the visitor ends the walk.
/// False when the root is no directory that can be read, or the visitor ended the walk. Thread: any; blocks
using TreeVisitor = std::function<bool(std::string_view relativePath, bool isDirectory)>;
[[nodiscard]] bool walkTree(const std::string& root, const TreeVisitor& visit);

}  // namespace ferrox
