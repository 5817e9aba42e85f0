// Attributes of single objects. The object is held by a descriptor while it is asked, so that all
// of a record is about one object even when its name moves on to another meanwhile.
#include "Platform/AttributeList.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "Platform/linux/AttributeRecord.h"
#include "Platform/linux/EffectiveAccess.h"
#include "Platform/linux/OpenObject.h"
#include "Platform/linux/VolumeAttributes.h"

namespace sevrin::platform {

namespace {

constexpr std::size_t kSetEnd = sizeof(std::uint32_t) + sizeof(attribute_set_t);
constexpr attrgroup_t kNeedsPath = ATTR_CMN_NAME | ATTR_CMN_FULLPATH | ATTR_CMN_FLAGS;

int failWith(int error) noexcept {
    errno = error;
    return -1;
}

// Everything that a record of one object may point to, in one place on the stack.
struct Answer {
    ObjectFacts facts;
    PathRoom path;
    VolumeReport volume;
    alignas(8) std::array<std::byte, 20480> record;
};

bool hasRoomForHeader(const AttributeRequest& request, std::size_t size) noexcept {
    if (size < sizeof(std::uint32_t)) return false;
    return !request.returnsSet() || request.reportsFullSize || size >= kSetEnd;
}

void addPath(int fd, Answer& answer) noexcept {
    ObjectFacts& facts = answer.facts;
    const std::optional<std::string_view> path = pathOfObject(fd, facts.stat, answer.path);
    if (!path) {
        facts.known.commonattr &= ~ATTR_CMN_NAME;
        return;
    }
    facts.fullPath = *path;
    facts.known.commonattr |= ATTR_CMN_FULLPATH;
    const std::size_t slash = path->rfind('/');
    facts.name = path->size() == 1 ? *path : path->substr(slash + 1);
}

// Fills in what the list asks for and statx alone does not tell.
int addFacts(int fd, const AttributeRequest& request, Answer& answer) noexcept {
    ObjectFacts& facts = answer.facts;
    const attribute_set_t& wanted = request.wanted;
    facts.known = knownFromStatx(facts.stat);
    if ((wanted.commonattr & kNeedsPath) != 0) addPath(fd, answer);
    if ((wanted.commonattr & ATTR_CMN_FSID) != 0) {
        if (const std::optional<fsid_t> identity = identityOfFileSystem(fd)) {
            facts.fsid = *identity;
        } else {
            facts.known.commonattr &= ~ATTR_CMN_FSID;
        }
    }
    if ((wanted.commonattr & ATTR_CMN_USERACCESS) != 0) {
        facts.userAccess = EffectiveAccess(fd).of(fd, "", facts.stat);
    }
    if (facts.isDirectory() && (wanted.dirattr & ATTR_DIR_ENTRYCOUNT) != 0) {
        if (const std::optional<std::uint32_t> count = countEntries(fd, "")) {
            facts.entryCount = *count;
            facts.known.dirattr |= ATTR_DIR_ENTRYCOUNT;
        }
    }
    if (wanted.volattr == 0) return 0;
    if ((facts.stat.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0) return EINVAL;
    if (!answer.volume.fill(fd, facts.stat, wanted.volattr)) return errno;
    facts.volume = &answer.volume.facts();
    facts.known.volattr = answer.volume.known();
    return 0;
}

// What has its place in a record without a returned set, though it is not known: an object may have
// no name any longer, and its reference is then empty. Of anything else nobody could tell.
constexpr attrgroup_t kMayBeEmpty = ATTR_CMN_NAME | ATTR_CMN_FULLPATH;

bool isAllKnown(const RecordShape& all, const ObjectFacts& facts) noexcept {
    attribute_set_t known = facts.known;
    known.commonattr |= kMayBeEmpty;
    known.volattr |= ATTR_VOL_NAME;
    return isSame(all.packed, common(all.packed, known));
}

// The fields that the type and the path alone need cost a network file system nothing.
unsigned fieldsFor(const attribute_set_t& wanted) noexcept {
    constexpr attrgroup_t kCheap = ATTR_CMN_OBJTYPE | ATTR_CMN_FULLPATH | ATTR_CMN_RETURNED_ATTRS;
    const bool isCheap = (wanted.commonattr & ~kCheap) == 0 && wanted.volattr == 0 &&
                         wanted.dirattr == 0 && wanted.fileattr == 0;
    return isCheap ? STATX_TYPE | STATX_NLINK : kStatxFields;
}

int attributesOf(int fd, const AttributeRequest& request, void* buffer, std::size_t size) noexcept {
    Answer answer;
    ObjectFacts& facts = answer.facts;
    if (!statObject(fd, fieldsFor(request.wanted), facts.stat)) return -1;
    if (const int error = addFacts(fd, request, answer); error != 0) return failWith(error);
    const bool packsAll = request.packsInvalid || !request.returnsSet();
    const RecordShape shape = shapeOf(request.wanted, packsAll, facts);
    if (!request.packsInvalid && packsAll && !isAllKnown(shape, facts)) return failWith(EINVAL);
    const std::size_t needed = recordSizeOf(shape, facts);
    writeRecord(shape, facts, answer.record.data());
    const std::size_t given = std::min(needed, size);
    const auto length = static_cast<std::uint32_t>(request.reportsFullSize ? needed : given);
    std::memcpy(answer.record.data(), &length, sizeof length);
    std::memcpy(buffer, answer.record.data(), given);
    return 0;
}

}  // namespace

int getattrlist(const char* path, const attrlist* list, void* buffer, std::size_t size,
                unsigned long options) noexcept {
    AttributeRequest request;
    if (const int error = readRequest(list, options, request); error != 0) return failWith(error);
    if (path == nullptr || buffer == nullptr) return failWith(EFAULT);
    if (!hasRoomForHeader(request, size)) return failWith(ERANGE);
    const UniqueFd object = openObject(path, request.followsLinks);
    return object ? attributesOf(object.get(), request, buffer, size) : -1;
}

int fgetattrlist(int fd, const attrlist* list, void* buffer, std::size_t size,
                 unsigned long options) noexcept {
    AttributeRequest request;
    if (const int error = readRequest(list, options, request); error != 0) return failWith(error);
    if (buffer == nullptr) return failWith(EFAULT);
    if (!hasRoomForHeader(request, size)) return failWith(ERANGE);
    return attributesOf(fd, request, buffer, size);
}

}  // namespace sevrin::platform
