// The first lines that the service logs: that it has started, under which name, and for whom.
//
// Their keys, their order and which of them are there at all are part of the contract with log
// readers. Called once each, on the main thread, at the start.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Common/Source/Utilities/LogLineIdentifier.h"

namespace sevrin {

// Chooses where the process of `realUserID` logs, and writes the start record: gives its head line.
// Root's, the system's switchboard, logs to the console, which shows no such record; so it writes
// none, and there is no line.
[[nodiscard]] LogLineIdentifierPtr startLogging(uid_t realUserID);

// Notes in the start record under which name and for whom this process serves. Without a record
// (nullptr) only for whom.
void logService(const LogLineIdentifierPtr& startLine, const std::string& serviceName,
                const std::vector<std::uint32_t>& users);

}  // namespace sevrin
