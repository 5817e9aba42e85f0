// The platform's rules for lists of attributes.
#include "Platform/linux/AttributeRequest.h"

#include <cerrno>

namespace sevrin::platform {

namespace {

constexpr std::uint64_t kOptions =
    FSOPT_NOFOLLOW | FSOPT_NOINMEMUPDATE | FSOPT_REPORT_FULLSIZE | FSOPT_PACK_INVAL_ATTRS;

}  // namespace

int readRequest(const attrlist* list, std::uint64_t options, AttributeRequest& request) noexcept {
    if (list == nullptr) return EFAULT;
    if (list->bitmapcount != ATTR_BIT_MAP_COUNT || (options & ~kOptions) != 0) return EINVAL;
    if ((list->volattr & ~kVolumeAttributes) != 0 || (list->dirattr & ~kDirectoryAttributes) != 0 ||
        (list->fileattr & ~kFileAttributes) != 0 || list->forkattr != 0) {
        return EINVAL;
    }
    if (list->volattr != 0) {
        if ((list->volattr & ATTR_VOL_INFO) == 0) return EINVAL;
        if (list->dirattr != 0 || list->fileattr != 0) return EINVAL;
    }
    request.wanted = {list->commonattr, list->volattr, list->dirattr, list->fileattr, 0};
    request.followsLinks = (options & FSOPT_NOFOLLOW) == 0;
    request.reportsFullSize = (options & FSOPT_REPORT_FULLSIZE) != 0;
    request.packsInvalid = (options & FSOPT_PACK_INVAL_ATTRS) != 0;
    return 0;
}

int readBulkRequest(const attrlist* list, std::uint64_t options,
                    AttributeRequest& request) noexcept {
    constexpr attrgroup_t kRequired = ATTR_CMN_NAME | ATTR_CMN_RETURNED_ATTRS;
    if (const int error = readRequest(list, options, request); error != 0) return error;
    const bool isForEntries =
        (request.wanted.commonattr & kRequired) == kRequired && request.wanted.volattr == 0;
    return isForEntries ? 0 : EINVAL;
}

}  // namespace sevrin::platform
