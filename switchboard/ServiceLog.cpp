// The first lines of the service in the log.
#include "switchboard/ServiceLog.h"

#include <memory>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/NSLogLogger.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

LogLineIdentifierPtr startLogging(uid_t realUserID) {
    if (realUserID != 0) return Logger::logStartProcess(kSwitchboardVersion);
    Logger::setDefaultLogger(std::make_shared<NSLogLogger>());
    return nullptr;
}

void logService(const LogLineIdentifierPtr& startLine, const std::string& serviceName,
                const std::vector<std::uint32_t>& users) {
    if (startLine)
        Logger::logInLineKeyValue(LogClassification::Debug, startLine, "port", serviceName);
    std::string list;
    for (const std::uint32_t user : users)
        list += (list.empty() ? "" : ", ") + std::to_string(user);
    Logger::logInLineKeyValue(LogClassification::Debug, startLine, "users", list);
}

}  // namespace sevrin
