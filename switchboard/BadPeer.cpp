// One line for each client that lost its connection.
#include "switchboard/BadPeer.h"

#include "Common/Source/Utilities/Logger.h"

namespace sevrin {

void logBadPeer(const platform::NSXPCConnection& connection, const std::string& what) {
    Logger::logFormat(LogClassification::Debug, "disconnected a client of user %u (process %d): %s",
                      connection.effectiveUserIdentifier(), connection.processIdentifier(), what);
}

}  // namespace sevrin
