// The capabilities of a volume by name, and the attributes that its objects have.
#include "Common/Source/Utilities/KTVolumeInfo.h"

namespace sevrin {

bool KTVolumeInfo::hasPersistentObjects() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_PERSISTENTOBJECTIDS);
}
bool KTVolumeInfo::hasSymbolicLinks() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_SYMBOLICLINKS);
}
bool KTVolumeInfo::hasHardLinks() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_HARDLINKS);
}
bool KTVolumeInfo::hasJournal() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_JOURNAL);
}
bool KTVolumeInfo::hasActiveJournal() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_JOURNAL_ACTIVE);
}
bool KTVolumeInfo::hasUnreliableRootTimes() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_NO_ROOT_TIMES);
}
bool KTVolumeInfo::hasSparseFiles() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_SPARSE_FILES);
}
bool KTVolumeInfo::hasZeroRuns() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_ZERO_RUNS);
}
bool KTVolumeInfo::isCaseSensitive() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_CASE_SENSITIVE);
}
bool KTVolumeInfo::isCasePreserving() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_CASE_PRESERVING);
}
bool KTVolumeInfo::hasFastStatfs() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_FAST_STATFS);
}
bool KTVolumeInfo::has2TBFiles() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_2TB_FILESIZE);
}
bool KTVolumeInfo::hasOpenDeny() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_OPENDENYMODES);
}
bool KTVolumeInfo::hasHiddenFiles() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_HIDDEN_FILES);
}
bool KTVolumeInfo::hasPathFromID() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_PATH_FROM_ID);
}
bool KTVolumeInfo::hasVolumeSizes() const {
    return !hasFormatCapability(platform::VOL_CAP_FMT_NO_VOLUME_SIZES);
}
bool KTVolumeInfo::has64BitObjects() const {
    return hasFormatCapability(platform::VOL_CAP_FMT_64BIT_OBJECT_IDS);
}

bool KTVolumeInfo::hasGetAttrList() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_ATTRLIST);
}
bool KTVolumeInfo::hasGetDirEntriesAttr() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_READDIRATTR);
}
bool KTVolumeInfo::hasExchangeData() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_EXCHANGEDATA);
}
bool KTVolumeInfo::hasPreallocation() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_ALLOCATE);
}
bool KTVolumeInfo::canRename() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_VOL_RENAME);
}
bool KTVolumeInfo::hasAdvisoryLocking() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_ADVLOCK);
}
bool KTVolumeInfo::hasFileLocking() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_FLOCK);
}
bool KTVolumeInfo::hasMandatoryLocking() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_MANLOCK);
}
bool KTVolumeInfo::hasACLs() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_EXTENDED_SECURITY);
}
bool KTVolumeInfo::hasUserAccess() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_USERACCESS);
}
bool KTVolumeInfo::hasExtendedAttributes() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_EXTENDED_ATTR);
}
bool KTVolumeInfo::hasFileCloning() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_CLONE);
}
bool KTVolumeInfo::hasSnapshots() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_SNAPSHOT);
}
bool KTVolumeInfo::hasSwapping() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_RENAME_SWAP);
}
bool KTVolumeInfo::hasExclusiveRenaming() const {
    return hasInterfaceCapability(platform::VOL_CAP_INT_RENAME_EXCL);
}

namespace {

bool hasAll(platform::attrgroup_t group, platform::attrgroup_t mask) {
    return (group & mask) == mask;
}

}  // namespace

bool KTVolumeInfo::supportsTheseCommonAttributes(platform::attrgroup_t mask) const {
    return hasAll(attributes_.validattr.commonattr, mask);
}
bool KTVolumeInfo::supportsTheseCommonAttributesNatively(platform::attrgroup_t mask) const {
    return hasAll(attributes_.nativeattr.commonattr, mask);
}
bool KTVolumeInfo::supportsTheseVolumeAttributes(platform::attrgroup_t mask) const {
    return hasAll(attributes_.validattr.volattr, mask);
}
bool KTVolumeInfo::supportsTheseVolumeAttributesNatively(platform::attrgroup_t mask) const {
    return hasAll(attributes_.nativeattr.volattr, mask);
}
bool KTVolumeInfo::supportsTheseDirectoryAttributes(platform::attrgroup_t mask) const {
    return hasAll(attributes_.validattr.dirattr, mask);
}
bool KTVolumeInfo::supportsTheseDirectoryAttributesNatively(platform::attrgroup_t mask) const {
    return hasAll(attributes_.nativeattr.dirattr, mask);
}
bool KTVolumeInfo::supportsTheseFileAttributes(platform::attrgroup_t mask) const {
    return hasAll(attributes_.validattr.fileattr, mask);
}
bool KTVolumeInfo::supportsTheseFileAttributesNatively(platform::attrgroup_t mask) const {
    return hasAll(attributes_.nativeattr.fileattr, mask);
}

}  // namespace sevrin
