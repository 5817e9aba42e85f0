// Items by their names: paths, family, siblings, identity. Attributes, making and ending are next
// door.
#include "Common/Source/Utilities/KTFileInfo.h"

#include <cstring>
#include <functional>
#include <mutex>
#include <utility>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTListing.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSubPath.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/Logger.h"
#include "Platform/Assertion.h"
#include "Platform/FinderCompare.h"
#include "Platform/Format.h"
#include "Platform/PathString.h"

namespace sevrin {

std::shared_ptr<KTRegularFile> KTFileInfo::asRegularFile() {
    return nullptr;
}
std::shared_ptr<KTSymbolicLink> KTFileInfo::asSymbolicLink() {
    return nullptr;
}
KTDirectoryPtr KTFileInfo::asDirectory() {
    return nullptr;
}

KTFileInfoPtr KTFileInfo::reevaluateType() {
    return infoForFilePathObjectIfTypeDifferentFrom(-1, pathObject(), shared_from_this());
}

KTFileInfoPtr KTFileInfo::hardened() {
    const KTPathPtr path = pathObject();
    const KTPathPtr hard = path->hardenedReal();
    return hard == path ? shared_from_this() : infoForPathObject(hard);
}

KTPathPtr KTFileInfo::pathObject() const {
    const std::lock_guard guard(linkLock_);
    if (hasMark(kPathIsParents)) {
        const char* const name = reinterpret_cast<const char*>(this) + nameOffset_;
        pathObj_ = KTSubPath::initAssumingCNameParentPath(makeCString(name), pathObj_);
        clearMark(kPathIsParents);
        adoptPath(pathObj_);
    }
    return pathObj_;
}

KTPathPtr KTFileInfo::madePathObject() const {
    const std::lock_guard guard(linkLock_);
    return hasMark(kPathIsParents) ? nullptr : pathObj_;
}

void KTFileInfo::setPathObject(KTPathPtr path) {
    SEVRIN_ASSERT(path != nullptr, "an item has a path");
    KTPathPtr before;  // Ends outside of the lock.
    {
        const std::lock_guard guard(linkLock_);
        if (!hasMark(kPathIsParents)) pathObj_->withdrawDirectoryInfo(weak_from_this());
        before = std::exchange(pathObj_, std::move(path));
        setMark(kNameIsPaths);
        clearMark(kPathIsParents);
        adoptPath(pathObj_);
    }
}

const char* KTFileInfo::cName() const {
    if (nameOffset_ != 0 && !hasMark(kNameIsPaths)) {
        return reinterpret_cast<const char*>(this) + nameOffset_;
    }
    return pathObject()->cName();
}

std::string KTFileInfo::displayName() const {
    return pathObject()->displayName();
}

std::string KTFileInfo::extension() const {
    return std::string(platform::pathExtension(cName()));
}

std::string KTFileInfo::displayPath() const {
    const KTDirectoryPtr parent = parentDirectoryInfo();
    return (parent ? parent->displayPath() : "?/") + displayName();
}

KTVolumeInfoPtr KTFileInfo::volumeInfo() const {
    return pathObject()->volumeInfo();
}

std::optional<std::string> KTFileInfo::volumeRelativePath() const {
    try {
        const KTVolumeInfoPtr volume = volumeInfo();
        return volume ? volume->relativePathOfPath(*pathObject()) : std::nullopt;
    } catch (const platform::NSException&) {
        Logger::logFormat(LogClassification::Debug, "%s can't determine relative path for %@",
                          "-[KTFileInfo volumeRelativePath]", path());
        LogStackTrace("volumeRelativePath");
        return path();
    }
}

KTDirectoryPtr KTFileInfo::livingParent() const {
    KTPathPtr parent;
    {
        const std::lock_guard guard(linkLock_);
        if (hasMark(kPathIsParents)) {
            parent = pathObj_;
        } else if (dynamic_cast<const KTSubPath*>(pathObj_.get()) != nullptr) {
            parent = pathObj_->parent();
        }
    }
    return parent ? parent->directoryInfo() : nullptr;
}

KTDirectoryPtr KTFileInfo::parentDirectoryInfo() const {
    if (KTDirectoryPtr parent = livingParent()) return parent;
    const KTPathPtr own = pathObject();
    const KTPathPtr path = own->parent();
    // As text the current folder is its own parent, and so is the root; an item is not.
    return path && !path->isEqual(*own) ? path->directory() : nullptr;
}

KTAbstractDirectoryPtr KTFileInfo::abstractParent() const {
    return livingParent();
}

KTFileInfoPtr KTFileInfo::nextObj() const {
    for (;;) {
        {
            const std::lock_guard guard(linkLock_);
            if (!hasMark(kBeingSorted) || KTListing::isSortedHere()) return next_;
        }
        const std::uint16_t flags = flags_.load(std::memory_order_acquire);
        if ((flags & kBeingSorted) != 0) flags_.wait(flags);
    }
}

template <typename Wanted>
KTFileInfoPtr KTFileInfo::nextThat(Wanted wanted) const {
    KTFileInfoPtr item = nextObj();
    while (item && !wanted(*item))
        item = item->nextObj();
    return item;
}

KTFileInfoPtr KTFileInfo::nextContentFile() const {
    return nextThat([](const KTFileInfo& item) {
        return item.type() == platform::VREG || item.type() == platform::VLNK;
    });
}

KTRegularFilePtr KTFileInfo::nextRegularFile() const {
    return std::static_pointer_cast<KTRegularFile>(
        nextThat([](const KTFileInfo& item) { return item.type() == platform::VREG; }));
}

KTDirectoryPtr KTFileInfo::nextDirectory() const {
    return std::static_pointer_cast<KTDirectory>(
        nextThat([](const KTFileInfo& item) { return item.type() == platform::VDIR; }));
}

KTAbstractFilePtr KTFileInfo::nextAbstractObj() const {
    return nextObj();
}
KTAbstractFilePtr KTFileInfo::nextAbstractContentFile() const {
    return nextContentFile();
}
KTAbstractFilePtr KTFileInfo::nextAbstractRegularFile() const {
    return nextRegularFile();
}
KTAbstractDirectoryPtr KTFileInfo::nextAbstractDirectory() const {
    return nextDirectory();
}

int KTFileInfo::compareNames(const KTFileInfo& other) const {
    return platform::finderLikeCompare(cName(), other.cName());
}

bool KTFileInfo::isEqual(const platform::Object& other) const {
    const auto* item = dynamic_cast<const KTFileInfo*>(&other);
    return item != nullptr && std::strcmp(cPath(), item->cPath()) == 0;
}

std::size_t KTFileInfo::hash() const {
    return std::hash<std::string_view>{}(cPath());
}

std::string KTFileInfo::logFullDescription() const {
    return platform::stringWithFormat("%@ %@", logTypeDescription(), path());
}

std::string KTFileInfo::logDescription() const {
    return platform::stringWithFormat("%@ %@", logTypeDescription(), name());
}

std::shared_ptr<KTFileInfo> KTPath::fileInfo() {
    if (KTDirectoryPtr directory = directoryInfo()) return directory;
    return KTFileInfo::infoForPathObject(shared_from_this());
}

std::shared_ptr<KTDirectory> KTPath::directory() {
    const KTFileInfoPtr item = fileInfo();
    return item ? item->asDirectory() : nullptr;
}

}  // namespace sevrin
