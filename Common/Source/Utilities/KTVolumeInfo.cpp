// Making volume objects: the record of the mount table, and the volume's attributes in one call.
#include "Common/Source/Utilities/KTVolumeInfo.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <utility>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/Assertion.h"
#include "Platform/PathString.h"

namespace sevrin {

using platform::attribute_set_t;
using platform::attrlist;

namespace {

// ATTR_VOL_INFO, sizes, name, capabilities, UUID and attribute sets.
constexpr platform::attrgroup_t kVolumeAttributes = 0xC006'201C;

#pragma pack(push, 4)

// They as they come, with the creation time before them and the name's text behind.
struct VolumeAttributes {
    std::uint32_t length;
    attribute_set_t returned;
    timespec created;
    std::int64_t size;
    std::int64_t spaceFree;
    std::int64_t spaceAvailable;
    platform::attrreference_t name;
    platform::vol_capabilities_attr_t capabilities;
    KTVolumeInfo::UUID uuid;
    platform::vol_attributes_attr_t attributes;
    std::array<char, 260> texts;
};

#pragma pack(pop)

static_assert(sizeof(VolumeAttributes) == 420);

// The name of the volume, if it has told one that fits.
std::optional<std::string_view> nameIn(const VolumeAttributes& answer) {
    if ((answer.returned.volattr & platform::ATTR_VOL_NAME) == 0) return std::nullopt;
    const auto* const all = reinterpret_cast<const char*>(&answer);
    const std::size_t begin =
        offsetof(VolumeAttributes, name) + static_cast<std::size_t>(answer.name.attr_dataoffset);
    const std::size_t length = answer.name.attr_length;
    if (length == 0 || begin > sizeof answer || length > sizeof answer - begin) return std::nullopt;
    return std::string_view(all + begin, length - 1);
}

}  // namespace

KTVolumeInfoPtr KTVolumeInfo::initWithPath(const char* path) {
    return initWithPathOrStat(path, nullptr);
}

KTVolumeInfoPtr KTVolumeInfo::initWithPathOrStat(const char* path,
                                                 const struct platform::statfs* stat) {
    SEVRIN_ASSERT(path != nullptr || stat != nullptr, "a volume is found by a path or a record");
    auto volume = std::make_shared<KTVolumeInfo>(Passkey{});
    if (path == nullptr) {
        volume->stat_ = *stat;
    } else if (platform::statfs(path, &volume->stat_) != 0) {
        SVException::ioErrnoWithReason("problem getting volume statfs").setStrPath(path).raise();
    }
    volume->fetchAttributes();
    return volume;
}

void KTVolumeInfo::fetchAttributes() {
    attrlist list{};
    list.bitmapcount = platform::ATTR_BIT_MAP_COUNT;
    list.commonattr = platform::ATTR_CMN_RETURNED_ATTRS | platform::ATTR_CMN_CRTIME;
    list.volattr = kVolumeAttributes;
    constexpr auto kOptions = platform::FSOPT_NOFOLLOW | platform::FSOPT_REPORT_FULLSIZE |
                              platform::FSOPT_PACK_INVAL_ATTRS;
    VolumeAttributes answer{};
    if (platform::getattrlist(stat_.f_mntonname, &list, &answer, sizeof answer, kOptions) != 0) {
        SVException::ioErrnoWithReason("problem getting volume attributes")
            .setStrPath(stat_.f_mntonname)
            .raise();
    }
    const auto has = [&](platform::attrgroup_t bit) {
        return (answer.returned.volattr & bit) != 0;
    };
    if ((answer.returned.commonattr & platform::ATTR_CMN_CRTIME) != 0) {
        createTimeSpec_ = answer.created;
    }
    if (has(platform::ATTR_VOL_SIZE)) totalBytes_ = answer.size;
    if (has(platform::ATTR_VOL_SPACEFREE)) freeBytes_ = answer.spaceFree;
    if (has(platform::ATTR_VOL_SPACEAVAIL)) availBytes_ = answer.spaceAvailable;
    if (has(platform::ATTR_VOL_UUID)) uuid_ = answer.uuid;
    capabilities_ = answer.capabilities;
    attributes_ = answer.attributes;
    pathObj_ = KTPath::initAssumingNamePath(
        makeCString(nameIn(answer).value_or(platform::basename(stat_.f_mntonname))),
        makeCString(stat_.f_mntonname));
}

KTVolumeInfoPtr KTVolumeInfo::volumeInfoForPathObject(const KTPath& path) {
    return initWithPath(path.cPath());
}

KTVolumeInfoPtr KTVolumeInfo::volumeInfoForPath(std::string_view path) {
    return initWithPath(makeCString(path).get());
}

template <typename Filter>
std::vector<KTVolumeInfoPtr> KTVolumeInfo::volumesThat(Filter isWanted) {
    const int mounted = platform::getfsstat(nullptr, 0, platform::MNT_NOWAIT);
    if (mounted < 0) SVException::ioErrnoWithReason("cannot get count of mounted volumes").raise();
    std::vector<struct platform::statfs> records(static_cast<std::size_t>(mounted));
    const int found = platform::getfsstat(
        records.data(), records.size() * sizeof(struct platform::statfs), platform::MNT_NOWAIT);
    if (found < 0) SVException::ioErrnoWithReason("cannot get stats of mounted volumes").raise();
    records.resize(std::min(records.size(), static_cast<std::size_t>(found)));

    std::vector<KTVolumeInfoPtr> volumes;
    for (const struct platform::statfs& record : records) {
        if (!isWanted(record)) continue;
        try {
            volumes.push_back(initWithPathOrStat(nullptr, &record));
        } catch (const platform::NSException& failure) {
            Logger::logException(LogClassification::Debug, failure);
        }
    }
    return volumes;
}

std::vector<KTVolumeInfoPtr> KTVolumeInfo::allVolumes() {
    return volumesThat([](const struct platform::statfs&) { return true; });
}

std::vector<KTVolumeInfoPtr> KTVolumeInfo::browsableVolumes() {
    return volumesThat([](const struct platform::statfs& record) {
        return (record.f_flags & platform::MNT_DONTBROWSE) == 0;
    });
}

KTVolumeInfoPtr KTVolumeInfo::copy() const {
    auto copy = std::make_shared<KTVolumeInfo>(Passkey{});
    const std::lock_guard guard(propLock_);
    copy->pathObj_ = pathObj_;
    copy->stat_ = stat_;
    copy->totalBytes_ = totalBytes_;
    copy->createTimeSpec_ = createTimeSpec_;
    copy->capabilities_ = capabilities_;
    copy->attributes_ = attributes_;
    copy->uuid_ = uuid_;
    copy->freeBytes_ = freeBytes_;
    copy->availBytes_ = availBytes_;
    copy->deviceName_ = deviceName_;
    copy->nsAttributes_ = nsAttributes_;
    if (uuidStr_) copy->uuidStr_ = makeCString(uuidStr_.get());
    return copy;
}

KTVolumeInfoPtr KTPath::volumeInfo() const {
    if (const auto directory = directoryInfo()) return directory->volumeInfo();
    return KTVolumeInfo::initWithPath(cPath());
}

}  // namespace sevrin
