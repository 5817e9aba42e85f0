// Loggers by the name of their class, for choosing the default logger.
//
// Knows how to make them; which one serves is Logger's decision. Any thread may use it.
#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/Logger.h"

namespace sevrin::LoggerRegistry {

using Factory = std::function<LoggerPtr()>;

// The logger that every program uses when it can.
inline constexpr std::string_view kStandardLogger = "LogFileLogger";

// A new logger of that class; nullptr when there is no such class. Throws what making one throws.
[[nodiscard]] LoggerPtr make(std::string_view name);

// Has `factory` make the loggers of that name; an empty one removes the name. Gives what made them
// before.
Factory setFactory(std::string_view name, Factory factory);

// The loggers to try, in this order, when the standard one cannot serve. Root's processes would
// rather be silent than write to a user's console, where a logger that discards everything exists.
[[nodiscard]] std::vector<std::string_view> fallbackLoggers(bool isRoot);

}  // namespace sevrin::LoggerRegistry
