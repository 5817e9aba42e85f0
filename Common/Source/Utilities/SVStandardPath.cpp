// Looking standard folders up, for the user whose home this process works in.
#include "Common/Source/Utilities/SVStandardPath.h"

#include <sys/stat.h>

#include <utility>
#include <vector>

#include "Platform/FileCalls.h"
#include "Platform/NSProcessInfo.h"
#include "Platform/PathString.h"
#include "Platform/ProgramFile.h"
#include "Platform/SearchPath.h"

namespace sevrin {

using platform::NSCoder;
using platform::NSCodingClass;

namespace {

constexpr std::string_view kDirectoryKey = "wellknown";
constexpr std::string_view kDomainsKey = "domains";
constexpr std::string_view kSuiteFolder = "Sevrin";

// From the suite's support folder up to the home folder: Sevrin, Application Support, Library.
constexpr int kFoldersBelowHome = 3;

// Archives name the class before this program has mentioned it.
[[maybe_unused]] const platform::Class& registered = SVStandardPath::classObject();

// What stands for the home folder in this process instead of the user's; once per process.
//
// The path is the program's first argument. Whoever starts a set-user-id program chooses that
// argument too, so it is believed only when it leads to the program that runs.
const std::optional<std::string>& homeReplacement() {
    static const auto& theReplacement = *new std::optional<std::string>([] {
        const std::vector<std::string> arguments =
            platform::NSProcessInfo::processInfo().arguments();
        if (arguments.empty() || !platform::isRunningProgram(arguments[0]))
            return std::optional<std::string>();
        return SVStandardPath::homeForProgram(arguments[0]);
    }());
    return theReplacement;
}

}  // namespace

SVStandardPathPtr SVStandardPath::initWithStandardDirectory(std::uint64_t directory) {
    return initWithStandardDirectoryInDomainsWithAttributes(directory, platform::NSUserDomainMask,
                                                            std::nullopt);
}

SVStandardPathPtr SVStandardPath::initWithStandardDirectoryInDomainsWithAttributes(
    std::uint64_t directory, std::uint64_t domainMask, Attributes attributes) {
    return std::make_shared<SVStandardPath>(Passkey{}, directory, domainMask,
                                            std::move(attributes));
}

SVStandardPath::SVStandardPath(Passkey key, std::uint64_t directory, std::uint64_t domainMask,
                               Attributes attributes)
    : SVPath(key, std::move(attributes)), standardDirectory_(directory), domainMask_(domainMask) {}

// The tilde is asked for as it is: an expanded path has none left to replace.
std::optional<std::string> SVStandardPath::constructPath() {
    const auto paths =
        platform::NSSearchPathForDirectoriesInDomains(standardDirectory_, domainMask_, false);
    if (paths.empty()) return std::nullopt;
    const std::string& first = paths.front();
    if (first.starts_with('~') && homeReplacement()) return *homeReplacement() + first.substr(1);
    return platform::stringByExpandingTildeInPath(first);
}

std::optional<std::string> SVStandardPath::homeForProgram(const std::string& path) {
    struct stat item {};
    if (::lstat(path.c_str(), &item) != 0 || S_ISLNK(item.st_mode) || !(item.st_mode & S_ISUID))
        return std::nullopt;
    // A relative path would mean another folder once the process has changed its own.
    std::optional<std::string> folder =
        platform::realPath(std::string(platform::dirname(path)).c_str());
    if (!folder) return std::nullopt;
    if (platform::lastPathComponent(*folder) == kSuiteFolder) {
        for (int count = 0; count < kFoldersBelowHome; ++count)
            folder = std::string(platform::dirname(*folder));
    }
    if (*folder == "/") return std::nullopt;
    return folder;
}

platform::Class& SVStandardPath::classObject() {
    static NSCodingClass& theClass = *new NSCodingClass(
        "SVStandardPath", &SVPath::classObject(),
        [](NSCoder& coder) -> platform::ObjectPtr { return SVStandardPath::initWithCoder(coder); });
    return theClass;
}

SVStandardPathPtr SVStandardPath::initWithCoder(NSCoder& coder) {
    Attributes attributes = decodeAttributes(coder);
    const auto directory = static_cast<std::uint64_t>(coder.decodeInt64ForKey(kDirectoryKey));
    const auto domains = static_cast<std::uint64_t>(coder.decodeInt64ForKey(kDomainsKey));
    return initWithStandardDirectoryInDomainsWithAttributes(directory, domains,
                                                            std::move(attributes));
}

void SVStandardPath::encodeWithCoder(NSCoder& coder) const {
    SVPath::encodeWithCoder(coder);
    coder.encodeInt64ForKey(static_cast<std::int64_t>(standardDirectory_), kDirectoryKey);
    coder.encodeInt64ForKey(static_cast<std::int64_t>(domainMask_), kDomainsKey);
}

}  // namespace sevrin
