// Making items: the probe of a path, the entry of a directory, the choice of the class.
#include <dirent.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTItemAllocator.h"
#include "Common/Source/Utilities/KTNonexistentFile.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/Assertion.h"

namespace sevrin {

using platform::attribute_set_t;
using platform::attrlist;

namespace {

// Answers with what `make` makes of the class for things of this type; nullptr when there is none.
template <typename Make>
KTFileInfoPtr withClassOf(std::uint32_t type, Make make) {
    switch (type) {
        case platform::VNON:
        case platform::VBAD:
            return nullptr;
        case platform::VREG:
            return make.template operator()<KTRegularFile>();
        case platform::VDIR:
            return make.template operator()<KTDirectory>();
        case platform::VLNK:
            return make.template operator()<KTSymbolicLink>();
        default:
            return make.template operator()<KTFileInfo>();
    }
}

// The type of an entry by the number that readdir() gives for it.
std::uint32_t typeOfEntryType(unsigned char entryType) {
    switch (entryType) {
        case DT_FIFO:
            return platform::VFIFO;
        case DT_CHR:
            return platform::VCHR;
        case DT_DIR:
            return platform::VDIR;
        case DT_BLK:
            return platform::VBLK;
        case DT_REG:
            return platform::VREG;
        case DT_LNK:
            return platform::VLNK;
        case DT_SOCK:
            return platform::VSOCK;
        default:
            return platform::VNON;
    }
}

// What the probe asks for, as it comes back; the path is not looked at.
struct Probe {
    std::uint32_t length;
    std::uint32_t type;
    platform::attrreference_t path;
    std::array<char, 1024> pathText;
};
static_assert(sizeof(Probe) == 1040);

}  // namespace

// Beyond all types there are; what is more has no class of its own either.
constexpr std::uint32_t kTypeMax = std::numeric_limits<std::uint8_t>::max();

KTFileInfo::KTFileInfo(Passkey, Origin origin)
    : nameOffset_(origin.name == nullptr
                      ? std::uint16_t{0}
                      : static_cast<std::uint16_t>(origin.name->place -
                                                   reinterpret_cast<const char*>(this))),
      vtype_(static_cast<std::uint8_t>(std::min(origin.type, kTypeMax))),
      pathObj_(std::move(origin.path)) {
    SEVRIN_ASSERT(pathObj_ != nullptr, "an item has a path");
    if (origin.name != nullptr) setMarkOfNew(kPathIsParents);
}

template <typename Item>
KTFileInfoPtr KTFileInfo::make(std::uint32_t type, KTPathPtr path) {
    auto item = std::make_shared<Item>(Passkey{}, Origin{type, std::move(path)});
    static_cast<KTFileInfo&>(*item).wasMade();
    return item;
}

template <typename Item>
KTFileInfoPtr KTFileInfo::makeNamed(std::uint32_t type, std::string_view name, KTPathPtr parent) {
    static_assert(sizeof(Item) < std::numeric_limits<std::uint16_t>::max());
    NameRoom room{name.size() + 1};
    NameRoom::wanted = &room;
    auto item = std::allocate_shared<Item>(KTItemAllocator<Item, NameRoom>(), Passkey{},
                                           Origin{type, std::move(parent), &room});
    name.copy(room.place, name.size());
    room.place[name.size()] = '\0';
    static_cast<KTFileInfo&>(*item).wasMade();
    return item;
}

KTFileInfoPtr KTFileInfo::makeEntry(std::uint32_t type, std::string_view name,
                                    const KTPathPtr& parent) {
    return withClassOf(type, [&]<typename Item>() { return makeNamed<Item>(type, name, parent); });
}

KTFileInfoPtr KTFileInfo::infoForFilePathObjectIfTypeDifferentFrom(int fd, const KTPathPtr& path,
                                                                   const KTFileInfoPtr& previous) {
    attrlist list{};
    list.bitmapcount = platform::ATTR_BIT_MAP_COUNT;
    list.commonattr = platform::ATTR_CMN_OBJTYPE | platform::ATTR_CMN_FULLPATH;
    constexpr auto kOptions = platform::FSOPT_NOFOLLOW | platform::FSOPT_REPORT_FULLSIZE;
    Probe probe{};
    const int result =
        fd >= 0 ? platform::fgetattrlist(fd, &list, &probe, sizeof probe, kOptions)
                : platform::getattrlist(path->cPath(), &list, &probe, sizeof probe, kOptions);
    if (result == 0) {
        if (previous && previous->vtype_ == probe.type) return previous;
        return withClassOf(probe.type,
                           [&]<typename Item>() { return make<Item>(probe.type, path); });
    }
    if (errno != ENOENT && errno != ENOTDIR) {
        SVException::ioErrnoWithReason("failed to probe object vtype").setPathObject(path).raise();
    }
    if (previous && !previous->exists()) return previous;
    return make<KTNonexistentFile>(platform::VNON, path);
}

KTFileInfoPtr KTFileInfo::infoForPathObject(const KTPathPtr& path) {
    return infoForFilePathObjectIfTypeDifferentFrom(-1, path, nullptr);
}

KTFileInfoPtr KTFileInfo::infoForCPath(const char* path) {
    return infoForPathObject(KTPath::initWithCPath(path));
}

KTFileInfoPtr KTFileInfo::infoForPath(std::string_view path) {
    return infoForPathObject(KTPath::initWithPath(path));
}

KTFileInfoPtr KTFileInfo::infoForURL(const platform::NSURLPtr& url) {
    return infoForPathObject(KTPath::initWithURL(url));
}

KTFileInfoPtr KTFileInfo::initWithTypePathObject(std::uint8_t type, KTPathPtr path) {
    return withClassOf(type, [&]<typename Item>() { return make<Item>(type, std::move(path)); });
}

KTFileInfoPtr KTFileInfo::initWithDirEntryParentPath(const dirent& entry, const KTPathPtr& parent) {
    return makeEntry(typeOfEntryType(entry.d_type), entry.d_name, parent);
}

KTFileInfoPtr KTFileInfo::initWithBatchAttrSetParentPath(const std::byte* content,
                                                         const attribute_set_t* returned,
                                                         const KTPathPtr& parent) {
    const KTBatchEntryName entry = nameOfBatchEntry(content);
    KTFileInfoPtr item = makeEntry(entry.objectType, entry.name, parent);
    if (!item) return nullptr;
    item->parseAttrsSet(content + offsetof(KTBatchAttrsContent, common), returned);
    // Where the attributes of an entry may not be seen there is nothing but its name, type and id;
    // whoever wants more shall hear why it cannot be had.
    if (returned == nullptr || (returned->commonattr & platform::ATTR_CMN_MODTIME) != 0) {
        item->setMarkOfNew(kHasAttributes);
    }
    return item;
}

}  // namespace sevrin
