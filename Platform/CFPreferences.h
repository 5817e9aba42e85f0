// Preferences: values under keys, in domains that applications name, kept from run to run.
//
// A value is looked up in four places, and the first that has the key wins: the user's values of
// the domain, the user's values of all applications, the machine's of the domain, the machine's of
// all applications. Only the user's values of the domain are written. They last from
// CFPreferencesAppSynchronize() on; until then what was set is seen by this process only.
//
// What other processes write is seen at the next lookup. Two processes that change different keys
// of a domain lose nothing; of changes to the same key the one synchronised last stays. A process
// that is killed while it writes leaves all of the old values or all of the new ones.
//
// A domain is a name such as "com.sevrin.client": valid text of at most kPreferenceDomainBytesMax
// bytes without separators and control characters that does not begin with a point. Anything else,
// and a key that is no valid text, throws std::invalid_argument. Any thread may call anything here.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "Platform/Value.h"

namespace sevrin::platform {

inline constexpr std::size_t kPreferenceDomainBytesMax = 200;

// What one file of preferences may hold, in bytes; a larger one is as good as damaged.
inline constexpr std::size_t kPreferenceFileBytesMax = std::size_t{16} << 20;

// The domain whose values every application sees that has none of its own.
inline constexpr std::string_view kCFPreferencesAnyApplication = "kCFPreferencesAnyApplication";

// The value under `key`; null when no place has one.
[[nodiscard]] Value CFPreferencesCopyAppValue(std::string_view key, std::string_view domain);

// All values of the user in the domain, changes that are not synchronised included.
[[nodiscard]] Dictionary CFPreferencesCopyMultiple(std::string_view domain);

// Stores `value`, or removes the user's value when it is null. Throws std::invalid_argument for
// what no property list can hold.
void CFPreferencesSetAppValue(std::string_view key, const Value& value, std::string_view domain);

// Writes what was set in the domain to where it lasts. Answers whether it is there now; when not,
// the reason is reported and what was set is kept for the next time. Waits for other processes
// that write the same domain, but never longer than some seconds.
[[nodiscard]] bool CFPreferencesAppSynchronize(std::string_view domain);

// Told, without any lock held, about trouble with the files: of one that cannot be read, once for
// each state of it, and of each failure to write. `what` is a sentence. One for the process;
// without one nobody is told.
using CFPreferencesFaultReporter = std::function<void(const std::string& what)>;
void CFPreferencesSetFaultReporter(CFPreferencesFaultReporter reporter);

}  // namespace sevrin::platform
