// The platform's own classes that archives hold in forms of their own, and the names above each.
//
// For the archiver and the unarchiver.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace sevrin::platform {

enum class FoundationClass { String, Data, Date, Array, Set, Dictionary, URL, UUID, Null };

// Which one a name means, mutable or not; nothing for other names.
[[nodiscard]] std::optional<FoundationClass> foundationClassNamed(std::string_view name);

// The names from the class itself up to the root, for one of the names above.
[[nodiscard]] std::span<const std::string_view> foundationClassChain(std::string_view name);

// What archives call the root of all classes.
inline constexpr std::string_view kRootClassName = "NSObject";

}  // namespace sevrin::platform
