// The system's name for people, from what a distribution and its kernel say of themselves.
//
// Pure text; reading the files is the caller's.
#pragma once

#include <string>
#include <string_view>

namespace sevrin::platform {

// PRETTY_NAME of an os-release file with its quotes and escapes resolved: of several assignments
// the last, and "Linux", as that format wants it, when there is none or it is empty.
[[nodiscard]] std::string prettyNameFromOsRelease(std::string_view osRelease);

// "6.1.0" of a kernel release such as "6.1.0-18-amd64": its leading digits and points. The whole
// text when it does not begin with a digit.
[[nodiscard]] std::string_view versionFromKernelRelease(std::string_view release);

}  // namespace sevrin::platform
