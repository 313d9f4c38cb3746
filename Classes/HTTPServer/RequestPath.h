// How the target of a request divides into the parts that the routes look at.
#pragma once

#include <string_view>

namespace ferrox {

/// True when the whole target has the form "/projects/.+/files/.+", where no line break counts as a
/// character. Thread: any
bool isProjectFilePath(std::string_view path);

/// The part after the last "/", "/"s at the end aside: "c" of "/a/b/c" and of "/a/b/c/". Thread: any
std::string_view lastPathComponent(std::string_view path);
/// What is before that part, without a "/" at its end: "/a/b" of "/a/b/c" and of "/a/b/c/"; "/" of "/a".
/// Thread: any
std::string_view deletingLastPathComponent(std::string_view path);

}  // namespace ferrox
