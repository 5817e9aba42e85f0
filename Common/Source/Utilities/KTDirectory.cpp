// Directories: their attributes and names, the search in their lists, new subdirectories. Reading
// and sorting the list is next door.
#include "Common/Source/Utilities/KTDirectory.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>
#include <variant>

#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSubPath.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/FileCalls.h"
#include "Platform/Format.h"

namespace sevrin {

using platform::attribute_set_t;
using platform::attrlist;
using platform::Value;

KTDirectoryPtr KTDirectory::directoryWithPath(std::string_view path) {
    const KTFileInfoPtr item = infoForPath(path);
    return item ? item->asDirectory() : nullptr;
}

KTDirectory::~KTDirectory() {
    if (const KTPathPtr path = madePathObject()) path->withdrawDirectoryInfo(weak_from_this());
    release(std::move(firstObject_));
}

KTDirectoryPtr KTDirectory::self() const {
    return std::static_pointer_cast<KTDirectory>(
        std::const_pointer_cast<KTFileInfo>(shared_from_this()));
}

KTDirectoryPtr KTDirectory::asDirectory() {
    return self();
}

// A path stands for one directory item at most, so a second one gets a path of its own.
void KTDirectory::wasMade() {
    const KTPathPtr path = madePathObject();
    if (path && !path->claimDirectoryInfo(self())) setPathObject(path->copy());
}

void KTDirectory::adoptPath(const KTPathPtr& path) const {
    path->claimDirectoryInfo(self());
}

std::size_t KTDirectory::commonAttrSize() const noexcept {
    return sizeof(KTCommonAttrs) + sizeof(KTDirectoryAttrs);
}

std::size_t KTDirectory::prepareAttrRequest(attrlist& list) const {
    const std::size_t size = KTFileInfo::prepareAttrRequest(list);
    list.dirattr = kDirectoryAttributes;
    return size + sizeof(KTDirectoryAttrsBuffer);
}

const std::byte* KTDirectory::parseAttrsSet(const std::byte* data,
                                            const attribute_set_t* returned) const {
    const std::byte* const own = KTFileInfo::parseAttrsSet(data, returned);
    KTDirectoryAttrsBuffer packed;
    std::memcpy(&packed, own, sizeof packed);
    directoryAttrs_ = {.entryCount = packed.entryCount,
                       .linkCount = packed.linkCount,
                       .mountStatus = packed.mountStatus};
    knowsEntryCount_ =
        returned == nullptr || (returned->dirattr & platform::ATTR_DIR_ENTRYCOUNT) != 0;
    return own + sizeof packed;
}

template <typename Field>
Field KTDirectory::directoryAttribute(Field KTDirectoryAttrs::*field) const {
    const std::lock_guard guard(attrLock_);
    attrs();
    return directoryAttrs_.*field;
}

std::uint32_t KTDirectory::linkCount() const {
    return directoryAttribute(&KTDirectoryAttrs::linkCount);
}

bool KTDirectory::isMountPoint() const {
    return (directoryAttribute(&KTDirectoryAttrs::mountStatus) &
            platform::DIR_MNTSTATUS_MNTPOINT) != 0;
}

bool KTDirectory::isPackage() const {
    const auto answer = url()->resourceValueForKey(platform::NSURLIsPackageKey);
    const Value* value = std::get_if<Value>(&answer);
    return value != nullptr && *value == Value(true);
}

namespace {

#pragma pack(push, 4)

// The answer about a directory of which everything is asked but how many entries it has.
struct AttributesWithoutCount {
    std::uint32_t length;
    attribute_set_t returned;
    KTFileSystemObjAttrsBuffer common;
    std::uint32_t linkCount;
    std::uint32_t mountStatus;
};

// The same as the platform packs it when nothing is left out.
struct AllAttributes {
    KTFileSystemObjAttrsBuffer common;
    KTDirectoryAttrsBuffer directory;
};

#pragma pack(pop)

}  // namespace

// Counting entries means reading the directory, however many there are: that is left to those who
// ask for the count. The readers of whole directories leave it out for the same reason.
void KTDirectory::getCommonAttrs() const {
    attrlist list{};
    list.bitmapcount = platform::ATTR_BIT_MAP_COUNT;
    static_cast<void>(prepareAttrRequest(list));
    list.commonattr |= platform::ATTR_CMN_RETURNED_ATTRS;
    list.dirattr &= ~platform::ATTR_DIR_ENTRYCOUNT;
    AttributesWithoutCount answer{};
    constexpr auto kOptions = platform::FSOPT_NOFOLLOW | platform::FSOPT_PACK_INVAL_ATTRS;
    if (platform::getattrlist(cPath(), &list, &answer, sizeof answer, kOptions) != 0) {
        SVException::ioErrnoWithReason("failed to get attributes").setFileInfo(*this).raise();
    }
    const AllAttributes all{answer.common, {answer.linkCount, 0, answer.mountStatus}};
    parseAttrsSet(reinterpret_cast<const std::byte*>(&all), &answer.returned);
    setMark(kHasAttributes);
}

void KTDirectory::askForEntryCount() const {
    struct Answer {
        std::uint32_t length;
        attribute_set_t returned;
        std::uint32_t entryCount;
    };
    attrlist list{};
    list.bitmapcount = platform::ATTR_BIT_MAP_COUNT;
    list.commonattr = platform::ATTR_CMN_RETURNED_ATTRS;
    list.dirattr = platform::ATTR_DIR_ENTRYCOUNT;
    Answer answer{};
    if (platform::getattrlist(cPath(), &list, &answer, sizeof answer, platform::FSOPT_NOFOLLOW) !=
        0) {
        SVException::ioErrnoWithReason("failed to get attributes").setFileInfo(*this).raise();
    }
    knowsEntryCount_ = (answer.returned.dirattr & platform::ATTR_DIR_ENTRYCOUNT) != 0;
    if (knowsEntryCount_) directoryAttrs_.entryCount = answer.entryCount;
}

std::uint64_t KTDirectory::count() const {
    if (hasMark(kContentsRead)) return entryCount_;
    const std::lock_guard guard(attrLock_);
    attrs();
    if (!knowsEntryCount_) askForEntryCount();
    return directoryAttrs_.entryCount;
}

KTFileInfoPtr KTDirectory::firstContentFile() {
    const KTFileInfoPtr first = firstObject();
    if (!first || first->type() == platform::VREG || first->type() == platform::VLNK) return first;
    return first->nextContentFile();
}

KTRegularFilePtr KTDirectory::firstRegularFile() {
    const KTFileInfoPtr first = firstObject();
    if (!first) return nullptr;
    return first->isRegularFile() ? first->asRegularFile() : first->nextRegularFile();
}

KTDirectoryPtr KTDirectory::firstDirectory() {
    const KTFileInfoPtr first = firstObject();
    if (!first) return nullptr;
    return first->isDirectory() ? first->asDirectory() : first->nextDirectory();
}

std::size_t KTDirectory::countByEnumeratingWithStateObjectsCount(FastEnumerationState& state,
                                                                 std::span<KTFileInfoPtr> objects) {
    if (state.state == 0) {
        state.cursor = firstObject();
        state.mutationsPtr = &firstObject_;
        state.state = 1;
    }
    std::size_t count = 0;
    while (count < objects.size() && state.cursor) {
        KTFileInfoPtr next = state.cursor->nextObj();
        objects[count++] = std::exchange(state.cursor, std::move(next));
    }
    return count;
}

KTFileInfoPtr KTDirectory::objectMatchingCName(const char* name) {
    for (const KTFileInfoPtr& item : *this) {
        if (std::strcmp(item->cName(), name) == 0) return item;
    }
    return nullptr;
}

KTFileInfoPtr KTDirectory::objectMatchingName(std::string_view name) {
    return objectMatchingCName(makeCString(name).get());
}

KTDirectoryPtr KTDirectory::subdirectoryMatchingCName(const char* name) {
    const KTFileInfoPtr item = objectMatchingCName(name);
    return item ? item->asDirectory() : nullptr;
}

KTDirectoryPtr KTDirectory::subdirectoryMatchingName(std::string_view name) {
    return subdirectoryMatchingCName(makeCString(name).get());
}

KTAbstractFilePtr KTDirectory::firstAbstractObject() {
    return firstObject();
}
KTAbstractFilePtr KTDirectory::firstAbstractContentFile() {
    return firstContentFile();
}
KTAbstractFilePtr KTDirectory::firstAbstractRegularFile() {
    return firstRegularFile();
}
KTAbstractDirectoryPtr KTDirectory::firstAbstractDirectory() {
    return firstDirectory();
}
KTAbstractFilePtr KTDirectory::abstractObjectMatchingCName(const char* name) {
    return objectMatchingCName(name);
}
KTAbstractFilePtr KTDirectory::abstractObjectMatchingName(std::string_view name) {
    return objectMatchingName(name);
}
KTAbstractDirectoryPtr KTDirectory::abstractSubdirectoryMatchingCName(const char* name) {
    return subdirectoryMatchingCName(name);
}
KTAbstractDirectoryPtr KTDirectory::abstractSubdirectoryMatchingName(std::string_view name) {
    return subdirectoryMatchingName(name);
}

KTPathPtr KTDirectory::pathForCName(const char* name) {
    return KTSubPath::initAssumingCNameParentPath(makeCString(name), pathObject());
}

KTPathPtr KTDirectory::pathForName(std::string_view name) {
    return KTSubPath::initAssumingCNameParentPath(makeCString(name), pathObject());
}

KTFileInfoPtr KTDirectory::infoForCName(const char* name) {
    if (KTFileInfoPtr item = objectMatchingCName(name)) return item;
    return infoForPathObject(pathForCName(name));
}

KTFileInfoPtr KTDirectory::infoForName(std::string_view name) {
    return infoForCName(makeCString(name).get());
}

bool KTDirectory::containsFile(const KTAbstractPath& other) const {
    const KTPathPtr path = pathObject();
    const std::string_view own = path->cPath();
    const std::string_view theirs = other.cPath();
    return theirs.size() > own.size() && theirs.starts_with(own) && theirs[own.size()] == '/';
}

KTDirectoryPtr KTDirectory::parentDirectoryInfo() const {
    return isMountPoint() ? nullptr : KTFileInfo::parentDirectoryInfo();
}

std::string KTDirectory::displayName() const {
    return isMountPoint() ? volumeInfo()->displayName() : KTFileInfo::displayName();
}

std::string KTDirectory::displayPath() const {
    if (isMountPoint()) return volumeInfo()->displayPath() + "/";
    const KTDirectoryPtr parent = parentDirectoryInfo();
    return platform::stringWithFormat("%@%@/", parent ? parent->displayPath() : "?/",
                                      displayName());
}

std::string KTDirectory::logTypeDescription() const {
    return isMountPoint() ? "volume" : "folder";
}

bool KTDirectory::holdsVolumeWeakly() const {
    const std::lock_guard guard(volumeLock_);
    return !volumeInfo_ && !circularVolInfo_.expired();
}

// A volume keeps its root, the root its list, and the items of the list would keep the volume: so
// what lies below a root that holds its volume weakly holds it weakly too.
KTVolumeInfoPtr KTDirectory::volumeInfo() const {
    const std::lock_guard guard(volumeLock_);
    if (KTVolumeInfoPtr volume = circularVolInfo_.lock()) return volume;
    if (volumeInfo_) return volumeInfo_;
    const KTDirectoryPtr parent = isMountPoint() ? nullptr : livingParent();
    KTVolumeInfoPtr volume = parent ? parent->volumeInfo() : KTVolumeInfo::initWithPath(cPath());
    if (parent && parent->holdsVolumeWeakly()) {
        circularVolInfo_ = volume;
    } else {
        volumeInfo_ = volume;
    }
    return volume;
}

void KTDirectory::setVolumeInfo(const KTVolumeInfoPtr& volume) {
    const std::lock_guard guard(volumeLock_);
    circularVolInfo_ = volume;
    volumeInfo_.reset();
}

KTDirectoryPtr KTDirectory::createSubdirectoryWithNameMode(std::string_view name, mode_t mode) {
    const KTPathPtr path = pathForName(name);
    if (::mkdir(path->cPath(), mode) != 0) {
        SVException::ioErrnoWithReason("could not create directory")
            .setPathObject(path)
            .setDecimalDetailKey(mode, "mode")
            .raise();
    }
    return path->directory();
}

KTDirectoryPtr KTDirectory::createUniqueSubdirectoryWithPrefixExtensionMode(
    std::string_view prefix, std::optional<std::string_view> extension, mode_t mode) {
    // A name ends at a NUL: what makes this one new may not stand behind it.
    prefix = prefix.substr(0, prefix.find('\0'));
    for (;;) {
        std::string name = platform::stringWithFormat("%@.%08x", prefix, platform::arc4random());
        if (extension && !extension->empty()) name.append(".").append(*extension);
        try {
            return createSubdirectoryWithNameMode(name, mode);
        } catch (const platform::NSException& failure) {
            const Value* const number = failure.userInfo().find("POSIXErr");
            if (number == nullptr || *number != Value(EEXIST)) throw;
        }
    }
}

}  // namespace sevrin
