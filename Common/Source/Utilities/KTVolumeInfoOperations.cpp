// What a volume object does: its root directory, paths on it, reloading, unmounting, archives.
#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/OSVersion.h"
#include "Common/Source/Utilities/Process.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/PathString.h"

namespace sevrin {

using platform::NSCoder;
using platform::NSCodingClass;

KTDirectoryPtr KTVolumeInfo::rootDirectory() {
    {
        const std::lock_guard guard(propLock_);
        if (rootDirectory_) return rootDirectory_;
    }
    KTDirectoryPtr made = KTDirectory::directoryWithPath(path());
    if (!made) return nullptr;
    made->setVolumeInfo(shared_from_this());
    // Another thread may have been faster; then its directory is the one.
    const std::lock_guard guard(propLock_);
    if (!rootDirectory_) rootDirectory_ = std::move(made);
    return rootDirectory_;
}

std::optional<std::string> KTVolumeInfo::relativePathOfPath(const KTPath& path) {
    const KTDirectoryPtr root = rootDirectory();
    std::string relative = path.pathRelativeToPath(root ? *root->pathObject() : *pathObj_);
    if (!relative.starts_with('/')) return relative;

    // The volume is seen at another place as well.
    if (!path.volumeInfo()->isEqual(*this)) return std::nullopt;
    KTPathPtr highest = KTPath::initWithCPath(path.cPath());
    for (;;) {
        KTPathPtr above = highest->parent();
        if (above->isEqual(*highest)) return std::nullopt;
        if (!above->volumeInfo()->isEqual(*this)) return path.pathRelativeToPath(*highest);
        highest = std::move(above);
    }
}

KTVolumeInfoPtr KTVolumeInfo::findDataVolume() {
    KTDirectoryPtr probed;
    try {
        const KTDirectoryPtr root = rootDirectory();
        for (probed = root ? root->firstDirectory() : nullptr; probed;
             probed = probed->nextDirectory()) {
            if ((probed->fileFlags() & platform::SF_FIRMLINK) != 0) {
                return volumeInfoForPath(probed->path());
            }
        }
    } catch (const platform::NSException&) {
        const int error = errno;
        Logger::logFormat(LogClassification::Debug, "failed to probe %@, errno=%d",
                          probed ? probed->description() : path(), error);
    }
    return nullptr;
}

KTVolumeInfoPtr KTVolumeInfo::dataVolumeInfo() {
    {
        const std::lock_guard guard(propLock_);
        if (dataVolume_) return *dataVolume_;
        dataVolume_ = nullptr;
    }
    if (!isOSVersionCatalinaOrLater(Process::osVersion())) return nullptr;
    KTVolumeInfoPtr found = findDataVolume();
    const std::lock_guard guard(propLock_);
    dataVolume_ = found;
    return found;
}

void KTVolumeInfo::reloadStats() {
    {
        const std::lock_guard guard(propLock_);
        nsAttributes_.reset();
    }
    struct platform::statfs fresh {};
    if (platform::statfs(cPath(), &fresh) == 0) {
        stat_ = fresh;
        return;
    }
    const int error = errno;
    Logger::logFormat(LogClassification::Debug, "%s problem getting stats for device %s: %d(%s)",
                      "-[KTVolumeInfo reloadStats]", cPath(), error, std::strerror(error));
}

void KTVolumeInfo::reloadSizes() {
#pragma pack(push, 4)
    struct Answer {
        std::uint32_t length;
        std::int64_t spaceFree;
        std::int64_t spaceAvailable;
    };
#pragma pack(pop)
    static_assert(sizeof(Answer) == 20);
    {
        const std::lock_guard guard(propLock_);
        nsAttributes_.reset();
    }
    platform::attrlist list{};
    list.bitmapcount = platform::ATTR_BIT_MAP_COUNT;
    list.volattr =
        platform::ATTR_VOL_INFO | platform::ATTR_VOL_SPACEFREE | platform::ATTR_VOL_SPACEAVAIL;
    Answer answer{};
    constexpr auto kOptions = platform::FSOPT_NOFOLLOW | platform::FSOPT_REPORT_FULLSIZE;
    if (platform::getattrlist(cPath(), &list, &answer, sizeof answer, kOptions) == 0) {
        const std::lock_guard guard(propLock_);
        freeBytes_ = answer.spaceFree;
        availBytes_ = answer.spaceAvailable;
        return;
    }
    const int error = errno;
    Logger::logFormat(LogClassification::Debug, "%s problem getting sizes for device %s: %d(%s)",
                      "-[KTVolumeInfo reloadSizes]", cPath(), error, std::strerror(error));
}

void KTVolumeInfo::unmount() const {
    unmountForcibly(false);
}

void KTVolumeInfo::unmountForcibly(bool force) const {
    if (platform::unmount(cPath(), force ? platform::MNT_FORCE : 0) == 0) return;
    // The key is spelled as those who read it expect it.
    SVException::ioErrnoWithReason("cannot unmount volume")
        .setDetailKey(displayName(), "name")
        .setPathObject(*pathObj_)
        .setDecimalDetailKey(force ? 1 : 0, "forcably")
        .raise();
}

namespace {

constexpr std::string_view kMountPointKey = "mountpoint";

// Archives name the class before this program has mentioned it.
[[maybe_unused]] const platform::Class& registeredClass = KTVolumeInfo::classObject();

}  // namespace

platform::Class& KTVolumeInfo::classObject() {
    static NSCodingClass& theClass = *new NSCodingClass(
        "KTVolumeInfo", &platform::Object::classObject(),
        [](NSCoder& coder) -> platform::ObjectPtr { return KTVolumeInfo::initWithCoder(coder); });
    return theClass;
}

void KTVolumeInfo::encodeWithCoder(NSCoder& coder) const {
    if (coder.allowsKeyedCoding()) {
        coder.encodeObjectForKey(path(), kMountPointKey);
    } else {
        coder.encodeObject(path());
    }
}

KTVolumeInfoPtr KTVolumeInfo::initWithCoder(NSCoder& coder) {
    const platform::Value path =
        coder.allowsKeyedCoding() ? coder.decodeObjectForKey(kMountPointKey) : coder.decodeObject();
    const std::string* const text = path.ifString();
    if (text == nullptr) coder.failDecoding("a volume without its mount point");
    return volumeInfoForPath(*text);
}

}  // namespace sevrin
