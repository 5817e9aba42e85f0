// Regular files: the group of file attributes behind the common ones.
#include "Common/Source/Utilities/KTRegularFile.h"

#include <cstddef>
#include <mutex>

#include "Common/Source/Utilities/SVException.h"

namespace sevrin {

KTRegularFilePtr KTRegularFile::regularInfoForPathObjectThrowingException(
    const KTPathPtr& path, std::optional<std::string_view> reason) {
    const KTFileInfoPtr item = infoForPathObject(path);
    if (item && item->isRegularFile()) return item->asRegularFile();
    // Also something that is too bad to have an item is there.
    if (reason && (!item || item->exists())) {
        SVException::exceptionWithNameReason("IO", *reason).setPathObject(path).raise();
    }
    return nullptr;
}

KTRegularFilePtr KTRegularFile::regularInfoForPathObject(const KTPathPtr& path) {
    return regularInfoForPathObjectThrowingException(path, "expected regular file");
}

KTRegularFilePtr KTRegularFile::asRegularFile() {
    return std::static_pointer_cast<KTRegularFile>(shared_from_this());
}

std::size_t KTRegularFile::commonAttrSize() const noexcept {
    return sizeof(KTCommonAttrs) + sizeof(KTRegularFileAttrs);
}

std::size_t KTRegularFile::prepareAttrRequest(platform::attrlist& list) const {
    const std::size_t size = KTFileInfo::prepareAttrRequest(list);
    list.fileattr = kFileAttributes;
    return size + sizeof(KTRegularFileAttrsBuffer);
}

const std::byte* KTRegularFile::parseAttrsSet(const std::byte* data,
                                              const platform::attribute_set_t* returned) const {
    const std::byte* const own = KTFileInfo::parseAttrsSet(data, returned);
    using Packed = KTRegularFileAttrsBuffer;
    fileAttrs_ = {.linkCount = packedField<std::uint32_t>(own, offsetof(Packed, linkCount)),
                  .logicalSize = packedField<std::int64_t>(own, offsetof(Packed, totalSize)),
                  .physicalSize = packedField<std::int64_t>(own, offsetof(Packed, allocatedSize)),
                  .dataLength = packedField<std::int64_t>(own, offsetof(Packed, dataLength))};
    return own + sizeof(Packed);
}

template <typename Field>
Field KTRegularFile::fileAttribute(Field KTRegularFileAttrs::*field) const {
    const std::lock_guard guard(attrLock_);
    attrs();
    return fileAttrs_.*field;
}

std::uint32_t KTRegularFile::linkCount() const {
    return fileAttribute(&KTRegularFileAttrs::linkCount);
}
std::int64_t KTRegularFile::logicalSize() const {
    return fileAttribute(&KTRegularFileAttrs::logicalSize);
}
std::int64_t KTRegularFile::physicalSize() const {
    return fileAttribute(&KTRegularFileAttrs::physicalSize);
}
std::int64_t KTRegularFile::dataLength() const {
    return fileAttribute(&KTRegularFileAttrs::dataLength);
}

}  // namespace sevrin
