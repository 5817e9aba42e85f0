// Paths as strings, the way the platform takes them apart and puts them together.
//
// A path is its bytes: nothing is decoded, so a name that is not UTF-8 survives, and the byte "/"
// is the only one with a meaning. Pure text, except that a tilde is looked up. A path holds no NUL;
// the callers take it from, or hand it to, C strings. On any thread.
#pragma once

#include <string>
#include <string_view>

namespace sevrin::platform {

// The last component as the system call's library has it: separators at the end do not count, that
// of "/" is "/", that of the empty path ".". Of any length.
[[nodiscard]] std::string_view basename(std::string_view path) noexcept;

// What is before the last component, in the same sense: that of "/a" and of "/" is "/", that of a
// path of one relative component, and of the empty path, ".".
[[nodiscard]] std::string_view dirname(std::string_view path) noexcept;

// The last component as strings have it: as basename(), but that of the empty path is empty.
[[nodiscard]] std::string_view lastPathComponent(std::string_view path) noexcept;

// What follows the last point of the last component; empty when there is none, when nothing follows
// it, and when it is the first character: a name that begins with a point is hidden, not extended.
[[nodiscard]] std::string_view pathExtension(std::string_view path) noexcept;

// `path` and `component` with exactly one separator between them. An empty one of the two gives the
// other. Separators that are doubled or at the end go.
[[nodiscard]] std::string stringByAppendingPathComponent(std::string_view path,
                                                         std::string_view component);

// `path` with a tilde at its start expanded and, as text, without the components "." and "..",
// without what a ".." takes back, without doubled separators and separators at the end. Links are
// not asked. ".." at the root is dropped, at the start of a relative path it stays; what remains of
// a relative path that takes itself back is ".".
[[nodiscard]] std::string stringByStandardizingPath(std::string_view path);

// `path` with "~" at its start replaced by the home folder of this process, "~name" by that of the
// user of that name. A user that there is not leaves the path as it is.
[[nodiscard]] std::string stringByExpandingTildeInPath(std::string_view path);

// The home folder of this process: CFFIXED_USER_HOME and HOME, unless the program runs with more
// rights than its caller, else what the system has on file for the user; "/" when nothing is known.
[[nodiscard]] std::string homeDirectory();

}  // namespace sevrin::platform
