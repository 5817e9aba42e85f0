// Where the suite keeps its files: the standard locations and what their folders are created with.
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <variant>

#include "Common/Source/Utilities/KTUserPreferences.h"
#include "Common/Source/Utilities/SVPath.h"
#include "Common/Source/Utilities/SVStandardPath.h"
#include "Common/Source/Utilities/SVSubPath.h"
#include "Platform/NSFileManager.h"
#include "Platform/SearchPath.h"

namespace sevrin {

using platform::Dictionary;
using platform::NSFileManager;
using platform::Value;

namespace {

constexpr std::string_view kSuiteFolder = "Sevrin";

// For the user alone; for the machine's administrators; for one user of the machine.
constexpr mode_t kUserPrivateMode = 0700;
constexpr mode_t kMachineSharedMode = 0775;
constexpr mode_t kPerUserMode = 0700;

Dictionary userPrivate() {
    return {{platform::NSFilePosixPermissions, kUserPrivateMode}};
}

Dictionary machineShared() {
    return {{platform::NSFilePosixPermissions, kMachineSharedMode},
            {platform::NSFileOwnerAccountID, 0},
            {platform::NSFileGroupOwnerAccountName, "admin"}};
}

Dictionary perUserMachineFolder() {
    return {{platform::NSFilePosixPermissions, kPerUserMode},
            {platform::NSFileOwnerAccountID, ::geteuid()}};
}

SVPathPtr userFolder(std::uint64_t directory) {
    return SVStandardPath::initWithStandardDirectory(directory);
}

SVPathPtr localFolder(std::uint64_t directory) {
    return SVStandardPath::initWithStandardDirectoryInDomainsWithAttributes(
        directory, platform::NSLocalDomainMask, std::nullopt);
}

SVPathPtr folderIn(std::string_view name, SVPathPtr enclosing) {
    return SVSubPath::initWithNameInPath(name, std::move(enclosing));
}

// The number of the file system that holds the folder, 0 when that cannot be told.
Value fileSystemOf(const SVPathPtr& location) {
    if (!location->path()) return 0;
    const auto facts =
        NSFileManager::defaultManager().attributesOfFileSystemForPath(*location->path());
    const auto* const attributes = std::get_if<Dictionary>(&facts);
    const Value* const number =
        attributes != nullptr ? attributes->find(platform::NSFileSystemNumber) : nullptr;
    return number != nullptr ? *number : Value(0);
}

}  // namespace

SVPathPtr SVPath::userLibraryPath() {
    return userFolder(platform::NSLibraryDirectory);
}

SVPathPtr SVPath::userApplicationSupportPath() {
    return userFolder(platform::NSApplicationSupportDirectory);
}

SVPathPtr SVPath::userPreferencesPath() {
    return folderIn("Preferences", userLibraryPath());
}

SVPathPtr SVPath::userLogsPath() {
    return folderIn("Logs", userLibraryPath());
}

SVPathPtr SVPath::userAgentConfigPath() {
    return folderIn("LaunchAgents", userLibraryPath());
}

SVPathPtr SVPath::userServicesPath() {
    return folderIn("Services", userLibraryPath());
}

SVPathPtr SVPath::userSVApplicationSupportPath() {
    return SVSubPath::initWithNameInPathWithAttributes(kSuiteFolder, userApplicationSupportPath(),
                                                       userPrivate());
}

SVPathPtr SVPath::userSVPreferencesPath() {
    return folderIn(kSuiteFolder, userPreferencesPath());
}

SVPathPtr SVPath::userSVPreferencesPathToGroup(std::string_view name) {
    return folderIn(name, userSVPreferencesPath());
}

SVPathPtr SVPath::localApplicationPath() {
    return localFolder(platform::NSApplicationDirectory);
}

SVPathPtr SVPath::localLibraryPath() {
    return localFolder(platform::NSLibraryDirectory);
}

SVPathPtr SVPath::localApplicationSupportPath() {
    return localFolder(platform::NSApplicationSupportDirectory);
}

SVPathPtr SVPath::localSVApplicationSupportPath() {
    return SVSubPath::initWithNameInPathWithAttributes(kSuiteFolder, localApplicationSupportPath(),
                                                       machineShared());
}

SVPathPtr SVPath::perUserLocalSVApplicationSupportPath() {
    return SVSubPath::initWithNameInPathWithAttributes(
        std::to_string(::geteuid()), localSVApplicationSupportPath(), perUserMachineFolder());
}

SVPathPtr SVPath::localDaemonConfigPath() {
    return folderIn("LaunchDaemons", localLibraryPath());
}

SVPathPtr SVPath::localAgentConfigPath() {
    return folderIn("LaunchAgents", localLibraryPath());
}

SVPathPtr SVPath::bootSVApplicationSupportPath() {
    return userAppSupportFolderOnBoot() ? userSVApplicationSupportPath()
                                        : perUserLocalSVApplicationSupportPath();
}

bool SVPath::userAppSupportFolderOnBoot() {
    static const bool isOnBoot =
        fileSystemOf(userApplicationSupportPath()) == fileSystemOf(localApplicationSupportPath());
    return isOnBoot;
}

bool SVPath::usesPrivilegedHelper() {
    return KTUserPreferences::sharedPreferences()->boolForKeyInDomainWithDefault(
        "SVUseAdminPrivileges", "com.sevrin.client", true);
}

}  // namespace sevrin
