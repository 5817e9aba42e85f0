// What a path asks the file system about its item. Nothing is changed there; what cannot be told
// has an answer of its own.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <variant>

#include "Common/Source/Utilities/KTPath.h"
#include "Common/Source/Utilities/Logger.h"
#include "Platform/FileCalls.h"
#include "Platform/Format.h"
#include "Platform/UniqueFd.h"

namespace sevrin {

using platform::NSErrorPtr;
using platform::Value;

namespace {

// The opaque identifier of the volume, null when it cannot be had.
Value volumeIdentifierOf(const KTPath& path) {
    const auto answer = path.url()->resourceValueForKey(platform::NSURLVolumeIdentifierKey);
    const Value* identifier = std::get_if<Value>(&answer);
    return identifier == nullptr ? Value() : *identifier;
}

bool isSameVolume(const Value& left, const Value& right) {
    if (left == right) return true;
    const platform::ObjectPtr object = left.object();
    const platform::ObjectPtr other = right.object();
    return object && other && object->isEqual(*other);
}

}  // namespace

KTPathPtr KTPath::realPath(std::string_view path) {
    return pathWithPath(path)->real();
}

const KTPathPtr& KTPath::tempPath() {
    // Never destroyed: other threads may still ask when the process ends.
    static const KTPathPtr& thePath = *new KTPathPtr(realPath("/tmp"));
    return thePath;
}

KTPathPtr KTPath::tempPathWithPrefixExtension(std::string_view prefix, std::string_view extension) {
    // A name ends at a NUL: what makes this one new may not stand behind it.
    prefix = prefix.substr(0, prefix.find('\0'));
    for (;;) {
        const KTPathPtr path = tempPath()->pathOfChild(
            platform::stringWithFormat("%@-%08x.%@", prefix, platform::arc4random(), extension));
        if (!path->exists()) return path;
    }
}

std::string KTPath::displayName() const {
    const auto answer = url()->resourceValueForKey(platform::NSURLLocalizedNameKey);
    if (const NSErrorPtr* error = std::get_if<NSErrorPtr>(&answer)) {
        Logger::logFormat(LogClassification::Debug, "%s could not obtain display name for %s (%@)",
                          "-[KTPath displayName]", cPath(), *error);
        return name();
    }
    const std::string* text = std::get<Value>(answer).ifString();
    return text == nullptr ? name() : *text;
}

bool KTPath::containsPath(const KTPath& other) const {
    const std::string_view head = cPath();
    const std::string_view path = other.cPath();
    if (path == head) return true;
    if (!path.starts_with(head)) return false;
    if (path[head.size()] != '/' && head != "/") return false;
    return isSameVolume(volumeIdentifierOf(*this), volumeIdentifierOf(other));
}

KTPathPtr KTPath::real() {
    const std::optional<std::string> resolved = platform::realPath(cPath());
    if (!resolved || *resolved == cPath()) return shared_from_this();
    return initWithPath(*resolved);
}

KTPathPtr KTPath::hardenedReal() {
    // Opening a named pipe would otherwise wait for somebody to write into it.
    const platform::UniqueFd item(::open(cPath(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!item) return real();
    const std::optional<std::string> found = platform::pathWithoutFirmlinks(item.get());
    if (!found) return real();
    if (*found == cPath()) return shared_from_this();
    return initWithPath(*found);
}

bool KTPath::exists() const {
    struct stat found {};
    return ::stat(cPath(), &found) == 0;
}

std::uint64_t KTPath::limit(int name) const {
    const long answer = platform::pathconf(cPath(), name);
    return answer < 0 ? 0 : static_cast<std::uint64_t>(answer);
}

std::uint64_t KTPath::minTransferSize() const {
    return limit(_PC_REC_MIN_XFER_SIZE);
}
std::uint64_t KTPath::maxTransferSize() const {
    return limit(_PC_REC_MAX_XFER_SIZE);
}
std::uint64_t KTPath::fileSizeBits() const {
    return limit(_PC_FILESIZEBITS);
}

}  // namespace sevrin
