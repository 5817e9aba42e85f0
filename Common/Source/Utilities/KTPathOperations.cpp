// What a path does to its item: move, copy, delete, exchange, touch.
#include <sys/time.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>

#include "Common/Source/Utilities/KTPath.h"
#include "Common/Source/Utilities/PathFolder.h"
#include "Common/Source/Utilities/PathSwap.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/FileCalls.h"
#include "Platform/NSFileManager.h"
#include "Platform/PathString.h"
#include "Platform/PosixError.h"

namespace sevrin {

using platform::NSErrorPtr;
using platform::NSFileManager;

namespace {

std::string targetIn(const KTPath& item, const std::optional<std::string_view>& directory,
                     const std::optional<std::string_view>& name) {
    return platform::stringByAppendingPathComponent(
        directory ? std::string(*directory) : folderOf(item)->path(),
        name ? std::string(*name) : item.name());
}

// `target` as an absolute path, or one relative to where the item is.
std::string resolvedTarget(const KTPath& item, std::string_view target) {
    if (target.starts_with('/')) return platform::stringByStandardizingPath(target);
    return platform::stringByStandardizingPath(
        platform::stringByAppendingPathComponent(folderOf(item)->path(), target));
}

// Where an item is, without links on the way to it; the item itself may be one.
std::string placeOf(std::string_view path) {
    const std::string folder(platform::dirname(path));
    return platform::stringByAppendingPathComponent(
        platform::realPath(folder.c_str()).value_or(folder), platform::basename(path));
}

// Whether removing what is at `target` would take the item along.
bool isItemOrHoldsIt(std::string_view target, const KTPath& item) {
    const std::string held = placeOf(item.cPath());
    const std::string holder = placeOf(target);
    return held == holder || held.starts_with(holder == "/" ? holder : holder + "/");
}

[[noreturn]] void raiseError(const NSErrorPtr& error, std::string_view reason, const KTPath& item,
                             const std::string& target) {
    SVException::errorNameReason(error, "IO", reason)
        .setPathObject(item)
        .setDetailKey(target, "target")
        .raise();
}

}  // namespace

KTPathPtr KTPath::moveToDirectoryWithNameOverwriting(std::optional<std::string_view> directory,
                                                     std::optional<std::string_view> name,
                                                     bool overwriting) const {
    return moveToOverwriting(targetIn(*this, directory, name), overwriting);
}

KTPathPtr KTPath::moveToOverwriting(std::string_view target, bool overwriting) const {
    const std::string to = resolvedTarget(*this, target);
    if (overwriting) {
        if (::rename(cPath(), to.c_str()) != 0) {
            SVException::ioErrnoWithReason("cannot rename filesystem object")
                .setPathObject(*this)
                .setDetailKey(to, "to")
                .raise();
        }
        return pathWithPath(to);
    }
    const NSErrorPtr error = NSFileManager::defaultManager().moveItemAtPathToPath(path(), to);
    if (error) raiseError(error, "cannot move item", *this, to);
    return pathWithPath(to);
}

KTPathPtr KTPath::copyToDirectoryWithNameOverwriting(std::optional<std::string_view> directory,
                                                     std::optional<std::string_view> name,
                                                     bool overwriting) const {
    return copyToDirectoryWithNameOverwritingClone(directory, name, overwriting, true);
}

KTPathPtr KTPath::copyToDirectoryWithNameOverwritingClone(std::optional<std::string_view> directory,
                                                          std::optional<std::string_view> name,
                                                          bool overwriting, bool clone) const {
    return copyToOverwritingClone(targetIn(*this, directory, name), overwriting, clone);
}

KTPathPtr KTPath::copyToOverwriting(std::string_view target, bool overwriting) const {
    return copyToOverwritingClone(target, overwriting, true);
}

// Whether a copy shares storage with its source is for the platform to decide, so the last argument
// decides nothing.
KTPathPtr KTPath::copyToOverwritingClone(std::string_view target, bool overwriting, bool) const {
    const NSFileManager& manager = NSFileManager::defaultManager();
    const std::string to = resolvedTarget(*this, target);
    if (overwriting && manager.fileExistsAtPath(to)) {
        const NSErrorPtr error = isItemOrHoldsIt(to, *this) ? platform::posixError(EINVAL, to)
                                                            : manager.removeItemAtPath(to);
        if (error) raiseError(error, "cannot overwrite item", *this, to);
    }
    const NSErrorPtr error = manager.copyItemAtPathToPath(path(), to);
    if (error) raiseError(error, "cannot copy item", *this, to);
    return pathWithPath(to);
}

bool KTPath::tryToDeleteFile() const {
    return NSFileManager::defaultManager().removeItemAtPath(path()) == nullptr;
}

void KTPath::deleteFile() const {
    const NSErrorPtr error = NSFileManager::defaultManager().removeItemAtPath(path());
    if (error)
        SVException::errorNameReason(error, "IO", "cannot delete item")
            .setPathObject(*this)
            .raise();
}

void KTPath::swapWith(const KTPath& other) const {
    swapItems(*this, other, SwapMethods::forItem(*this));
}

void KTPath::touch() const {
    static_cast<void>(::utimes(cPath(), nullptr));
}

}  // namespace sevrin
