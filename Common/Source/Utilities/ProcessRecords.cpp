// The first and the last record of a process: which program ran, as whom, and how it ended.
//
// The facts come straight from the system, so that the records can be written before anything else
// of the program is set up.
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "Common/Source/Utilities/Logger.h"
#include "Platform/NSProcessInfo.h"

namespace sevrin {

using platform::NSProcessInfo;
using platform::Value;
using platform::ValueArray;

namespace {

constexpr LogClassification kDebug = LogClassification::Debug;

// The processor that the program was built for.
#if defined(__x86_64__)
constexpr const char* kArchitecture = "x86_64";
#elif defined(__aarch64__)
constexpr const char* kArchitecture = "arm64";
#elif defined(__i386__)
constexpr const char* kArchitecture = "i386";
#elif defined(__arm__)
constexpr const char* kArchitecture = "arm";
#elif defined(__riscv) && __riscv_xlen == 64
constexpr const char* kArchitecture = "riscv64";
#elif defined(__powerpc64__)
constexpr const char* kArchitecture = "ppc64";
#elif defined(__s390x__)
constexpr const char* kArchitecture = "s390x";
#else
#error "name the processor that this is built for"
#endif

// Empty when there is none any more, or none that may be known.
std::string currentDirectory() {
    std::string path(PATH_MAX, '\0');
    while (::getcwd(path.data(), path.size()) == nullptr) {
        if (errno != ERANGE) return {};
        path.resize(2 * path.size());
    }
    path.resize(path.find('\0'));
    return path;
}

ValueArray argumentValues() {
    ValueArray values;
    for (std::string& argument : NSProcessInfo::processInfo().arguments())
        values.emplace_back(std::move(argument));
    return values;
}

}  // namespace

LogLineIdentifierPtr Logger::logStartProcess(std::string_view name) {
    const NSProcessInfo& process = NSProcessInfo::processInfo();
    const LogLineIdentifierPtr head = logFormat(kDebug, "started %s", name);

    logInLineKeyValue(kDebug, head, "id", process.processName());
    logInLineKeyValue(kDebug, head, "os", process.operatingSystemVersionString());
    logInLineKeyValue(kDebug, head, "arch", kArchitecture);

    logInLineFormat(kDebug, head, "ppid: %u", ::getppid());
    logInLineFormat(kDebug, head, "uid: %u", ::getuid());
    if (::geteuid() != ::getuid()) logInLineFormat(kDebug, head, "euid: %u", ::geteuid());

    logInLineKeyValue(kDebug, head, "up", process.systemUptime());
    logInLineKeyValue(kDebug, head, "wd", currentDirectory());
    logInLineKeyValue(kDebug, head, "args", argumentValues());
    return head;
}

LogLineIdentifierPtr Logger::logStopProcessExitStatus(std::string_view name, std::int32_t status) {
    if (status == 0) return logFormat(kDebug, "stopping %s", name);
    return logFormat(kDebug, "stopping %s, exiting with status %d", name, status);
}

}  // namespace sevrin
