// The attributes of items: fetched in one call, changed here, written back in one call.
#include <array>
#include <cstring>
#include <mutex>
#include <variant>

#include "Common/Source/Utilities/BSDTimeSpec.h"
#include "Common/Source/Utilities/KTFileInfo.h"
#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/SVException.h"

namespace sevrin {

using platform::attribute_set_t;
using platform::attrlist;
using platform::NSDate;
using platform::NSErrorPtr;
using platform::Value;

std::size_t KTFileInfo::commonAttrSize() const noexcept {
    return sizeof(KTCommonAttrs);
}

std::size_t KTFileInfo::prepareAttrRequest(attrlist& list) const {
    list.commonattr = kCommonAttributes;
    return sizeof(KTFileSystemObjAttrsBuffer);
}

const std::byte* KTFileInfo::parseAttrsSet(const std::byte* data, const attribute_set_t*) const {
    constexpr std::uint32_t kPermissions = 0xFFF;
    using Packed = KTFileSystemObjAttrsBuffer;
    const auto number = [&](std::size_t offset) {
        return packedField<std::uint32_t>(data, offset);
    };
    const auto time = [&](std::size_t offset) { return packedField<timespec>(data, offset); };
    attrs_ = {
        .modifiedAttrs = 0,
        .script = number(offsetof(Packed, script)),
        .created = time(offsetof(Packed, created)),
        .modified = time(offsetof(Packed, modified)),
        .attributeChanged = time(offsetof(Packed, attributeChanged)),
        .ownerID = number(offsetof(Packed, ownerID)),
        .groupID = number(offsetof(Packed, groupID)),
        .fileFlags = number(offsetof(Packed, flags)),
        .access = static_cast<std::uint16_t>(number(offsetof(Packed, accessMask)) & kPermissions),
        .effectiveAccess = static_cast<std::uint16_t>(number(offsetof(Packed, userAccess))),
        .acl = nullptr,
        .localIdentifier = packedField<std::uint64_t>(data, offsetof(Packed, fileID)),
        .deviceID = packedField<std::int32_t>(data, offsetof(Packed, device))};
    return data + sizeof(Packed);
}

void KTFileInfo::getCommonAttrs() const {
    struct Header {
        std::uint32_t length;
        attribute_set_t returned;
    };
    attrlist list{};
    list.bitmapcount = platform::ATTR_BIT_MAP_COUNT;
    const std::size_t size = sizeof(Header) + prepareAttrRequest(list);
    list.commonattr |= platform::ATTR_CMN_RETURNED_ATTRS;

    // What became of another kind meanwhile has not all that is asked for; that is zero then.
    std::array<std::byte, 192> buffer{};
    constexpr auto kOptions = platform::FSOPT_NOFOLLOW | platform::FSOPT_REPORT_FULLSIZE |
                              platform::FSOPT_PACK_INVAL_ATTRS;
    if (platform::getattrlist(cPath(), &list, buffer.data(), size, kOptions) != 0) {
        SVException::ioErrnoWithReason("failed to get attributes").setFileInfo(*this).raise();
    }
    Header header;
    std::memcpy(&header, buffer.data(), sizeof header);
    parseAttrsSet(buffer.data() + sizeof header, &header.returned);
    setMark(kHasAttributes);
}

template <typename Field>
Field KTFileInfo::attribute(Field KTCommonAttrs::*field) const {
    const std::lock_guard guard(attrLock_);
    attrs();
    return attrs_.*field;
}

std::uint64_t KTFileInfo::localIdentifier() const {
    return attribute(&KTCommonAttrs::localIdentifier);
}
std::int32_t KTFileInfo::deviceID() const {
    return attribute(&KTCommonAttrs::deviceID);
}
std::uint32_t KTFileInfo::script() const {
    return attribute(&KTCommonAttrs::script);
}
timespec KTFileInfo::createdTimeSpec() const {
    return attribute(&KTCommonAttrs::created);
}
timespec KTFileInfo::modifiedTimeSpec() const {
    return attribute(&KTCommonAttrs::modified);
}
timespec KTFileInfo::attributeChangedTimeSpec() const {
    return attribute(&KTCommonAttrs::attributeChanged);
}
std::uint32_t KTFileInfo::ownerID() const {
    return attribute(&KTCommonAttrs::ownerID);
}
std::uint32_t KTFileInfo::groupID() const {
    return attribute(&KTCommonAttrs::groupID);
}
std::uint32_t KTFileInfo::access() const {
    return attribute(&KTCommonAttrs::access);
}
std::uint32_t KTFileInfo::effectiveAccess() const {
    return attribute(&KTCommonAttrs::effectiveAccess);
}
std::uint32_t KTFileInfo::fileFlags() const {
    return attribute(&KTCommonAttrs::fileFlags);
}

std::optional<NSDate> KTFileInfo::createdDate() const {
    return newCFDateWithBSDTimeSpec(createdTimeSpec());
}
std::optional<NSDate> KTFileInfo::modifiedDate() const {
    return newCFDateWithBSDTimeSpec(modifiedTimeSpec());
}
std::optional<NSDate> KTFileInfo::attributeChangedDate() const {
    return newCFDateWithBSDTimeSpec(attributeChangedTimeSpec());
}

template <typename Field>
void KTFileInfo::setAttribute(Field KTCommonAttrs::*field, const Field& value, std::uint32_t bit) {
    const std::lock_guard guard(attrLock_);
    attrs();
    attrs_.*field = value;
    attrs_.modifiedAttrs |= bit;
}

void KTFileInfo::setScript(std::uint32_t script) {
    setAttribute(&KTCommonAttrs::script, script, platform::ATTR_CMN_SCRIPT);
}
void KTFileInfo::setCreatedTimeSpec(const timespec& time) {
    setAttribute(&KTCommonAttrs::created, time, platform::ATTR_CMN_CRTIME);
}
void KTFileInfo::setModifiedTimeSpec(const timespec& time) {
    setAttribute(&KTCommonAttrs::modified, time, platform::ATTR_CMN_MODTIME);
}
void KTFileInfo::setAttributeChangedTimeSpec(const timespec& time) {
    setAttribute(&KTCommonAttrs::attributeChanged, time, platform::ATTR_CMN_CHGTIME);
}
void KTFileInfo::setOwnerID(std::uint32_t owner) {
    setAttribute(&KTCommonAttrs::ownerID, owner, platform::ATTR_CMN_OWNERID);
}
void KTFileInfo::setGroupID(std::uint32_t group) {
    setAttribute(&KTCommonAttrs::groupID, group, platform::ATTR_CMN_GRPID);
}
void KTFileInfo::setAccess(std::uint32_t access) {
    setAttribute(&KTCommonAttrs::access, static_cast<std::uint16_t>(access),
                 platform::ATTR_CMN_ACCESSMASK);
}
void KTFileInfo::setFileFlags(std::uint32_t flags) {
    setAttribute(&KTCommonAttrs::fileFlags, flags, platform::ATTR_CMN_FLAGS);
}

platform::acl_t KTFileInfo::acl() const {
    const std::lock_guard guard(attrLock_);
    attrs();
    // Nothing is asked about what has no attributes because it does not exist.
    if (hasMark(kHasAttributes) && !hasMark(kHasACL)) {
        attrs_.acl = platform::acl_get_link_np(cPath(), platform::ACL_TYPE_EXTENDED);
        setMark(kHasACL);
    }
    return attrs_.acl;
}

void KTFileInfo::setModifiedAttributes() {
    std::uint32_t modified = 0;
    {
        const std::lock_guard guard(attrLock_);
        if (hasMark(kHasAttributes)) modified = attrs_.modifiedAttrs;
    }
    if (modified != 0) setCommonAttributes(modified);
}

namespace {

// The values of the chosen attributes, in the order of their bits, as setattrlist() wants them.
class PackedValues {
public:
    PackedValues(const KTCommonAttrs& attrs, std::uint32_t bits) {
        for (std::uint32_t bit = 1; bit != 0; bit <<= 1) {
            if ((bits & bit) != 0) addValue(attrs, bit);
        }
    }

    [[nodiscard]] const void* data() const { return bytes_.data(); }
    [[nodiscard]] std::size_t size() const { return size_; }

private:
    void addValue(const KTCommonAttrs& attrs, std::uint32_t bit) {
        switch (bit) {
            case platform::ATTR_CMN_SCRIPT:
                return add(attrs.script);
            case platform::ATTR_CMN_CRTIME:
                return add(attrs.created);
            case platform::ATTR_CMN_MODTIME:
                return add(attrs.modified);
            case platform::ATTR_CMN_CHGTIME:
                return add(attrs.attributeChanged);
            case platform::ATTR_CMN_OWNERID:
                return add(attrs.ownerID);
            case platform::ATTR_CMN_GRPID:
                return add(attrs.groupID);
            case platform::ATTR_CMN_ACCESSMASK:
                return add(std::uint32_t{attrs.access});
            default:
                return add(attrs.fileFlags);
        }
    }

    template <typename Type>
    void add(const Type& value) {
        std::memcpy(bytes_.data() + size_, &value, sizeof value);
        size_ += sizeof value;
    }

    // Three times and five numbers at most.
    std::array<std::byte, 3 * sizeof(timespec) + 5 * sizeof(std::uint32_t)> bytes_;
    std::size_t size_ = 0;
};

}  // namespace

void KTFileInfo::setCommonAttributes(std::uint32_t bits) {
    const std::uint32_t chosen = bits & kWritableAttributes;
    KTCommonAttrs values;
    {
        const std::lock_guard guard(attrLock_);
        if (chosen == 0 || !hasMark(kHasAttributes)) return;
        values = attrs_;
    }
    const PackedValues packed(values, chosen);
    attrlist list{};
    list.bitmapcount = platform::ATTR_BIT_MAP_COUNT;
    list.commonattr = chosen;
    if (platform::setattrlist(cPath(), &list, packed.data(), packed.size(),
                              platform::FSOPT_NOFOLLOW) != 0) {
        SVException::ioErrnoWithReason("unable to set attributes")
            .setFileInfo(*this)
            .setHexDetailKey(chosen, "attributeSet")
            .raise();
    }
    const std::lock_guard guard(attrLock_);
    attrs_.modifiedAttrs &= ~chosen;
}

void KTFileInfo::releaseAttrs() const noexcept {
    if (attrs_.acl == nullptr) return;
    platform::acl_free(attrs_.acl);
    attrs_.acl = nullptr;
}

void KTFileInfo::flushAttributes() {
    {
        const std::lock_guard guard(attrLock_);
        releaseAttrs();
        // With its list, an item forgets that it has asked for one.
        clearMark(kHasAttributes | kHasACL);
    }
    if (const KTPathPtr path = madePathObject()) path->flushResourceValues();
}

Value KTFileInfo::urlValue(std::string_view key, std::string_view reason) const {
    const auto answer = url()->resourceValueForKey(key);
    if (const Value* value = std::get_if<Value>(&answer)) return *value;
    Logger::logException(LogClassification::Debug,
                         SVException::errorNameReason(std::get<NSErrorPtr>(answer), "IO", reason)
                             .setFileInfo(*this));
    return {};
}

bool KTFileInfo::isHidden() const {
    return urlValue(platform::NSURLIsHiddenKey, "problem obtaining isHidden attribute") ==
           Value(true);
}

bool KTFileInfo::isHiddenExtension() const {
    return urlValue(platform::NSURLHasHiddenExtensionKey,
                    "problem obtaining isHiddenExtension attribute") == Value(true);
}

bool KTFileInfo::isExcludedFromBackup() const {
    return urlValue(platform::NSURLIsExcludedFromBackupKey,
                    "problem obtaining isExcludedFromBackup attribute") == Value(true);
}

Value KTFileInfo::volumeIdentifier() const {
    return urlValue(platform::NSURLVolumeIdentifierKey,
                    "problem obtaining volumeIdentifier attribute");
}

}  // namespace sevrin
