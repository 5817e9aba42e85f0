// Reading directories: open, ask until nothing comes, make an item of everything that does.
#include "Common/Source/Utilities/KTDirectoryReading.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTItemAllocator.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/UniqueFd.h"

namespace sevrin {

using platform::attribute_set_t;
using platform::attrlist;
using platform::UniqueFd;

namespace {

constexpr std::size_t kBufferSize = 16384;
alignas(8) std::array<std::byte, kBufferSize> theBuffer;

KTDirectoryCalls theCalls;

// A link is not followed, and nothing that took the directory's place is waited for.
UniqueFd openDirectory(const KTPath& path) {
    return UniqueFd(::open(path.cPath(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

attrlist entryAttributes() {
    attrlist list{};
    list.bitmapcount = platform::ATTR_BIT_MAP_COUNT;
    list.commonattr = kCommonAttributes | platform::ATTR_CMN_NAME;
    list.dirattr = kDirectoryAttributes;
    list.fileattr = kFileAttributes;
    return list;
}

SVException readFailure(const KTPathPtr& path, std::string_view api) {
    return SVException::ioErrnoWithReason("failed to read directory")
        .setPathObject(path)
        .setAPI(std::string(api));
}

std::uint32_t lengthOf(const std::byte* entry) {
    std::uint32_t length;
    std::memcpy(&length, entry, sizeof length);
    return length;
}

// What follows the length of a record and the set of what was returned.
constexpr std::size_t kBulkContent = sizeof(std::uint32_t) + sizeof(attribute_set_t);

std::size_t sizeOfItem(std::uint32_t type) {
    if (type == platform::VDIR) return sizeof(KTDirectory);
    return type == platform::VLNK ? sizeof(KTSymbolicLink) : sizeof(KTRegularFile);
}

// The memory that the items of the buffer's entries take.
std::size_t roomForEntries(std::uint32_t count, std::size_t contentOffset) {
    std::size_t room = 0;
    const std::byte* entry = theBuffer.data();
    for (std::uint32_t i = 0; i < count; ++i) {
        const KTBatchEntryName name = nameOfBatchEntry(entry + contentOffset);
        room += KTItemChunk::roomFor(sizeOfItem(name.objectType), name.name.size());
        entry += lengthOf(entry);
    }
    return room;
}

// The entries of a full buffer, each with the set of what was returned for it.
void addBulkEntries(int count, const KTPathPtr& path, KTDirectoryContents& contents) {
    const KTItemChunk chunk(roomForEntries(static_cast<std::uint32_t>(count), kBulkContent));
    const std::byte* entry = theBuffer.data();
    for (int i = 0; i < count; ++i) {
        attribute_set_t returned;
        std::memcpy(&returned, entry + sizeof(std::uint32_t), sizeof returned);
        contents.add(
            KTFileInfo::initWithBatchAttrSetParentPath(entry + kBulkContent, &returned, path));
        entry += lengthOf(entry);
    }
}

void addAttributeEntries(std::uint32_t count, const KTPathPtr& path,
                         KTDirectoryContents& contents) {
    const KTItemChunk chunk(roomForEntries(count, sizeof(std::uint32_t)));
    const std::byte* entry = theBuffer.data();
    for (std::uint32_t i = 0; i < count; ++i) {
        contents.add(KTFileInfo::initWithBatchAttrSetParentPath(entry + sizeof(std::uint32_t),
                                                                nullptr, path));
        entry += lengthOf(entry);
    }
}

struct StreamCloser {
    void operator()(DIR* stream) const noexcept { ::closedir(stream); }
};
using Stream = std::unique_ptr<DIR, StreamCloser>;

Stream openStream(const KTPath& path) {
    UniqueFd directory = openDirectory(path);
    if (!directory) return nullptr;
    Stream stream(::fdopendir(directory.get()));
    if (stream) static_cast<void>(directory.release());
    return stream;
}

bool isDotEntry(const dirent& entry) {
    if (entry.d_type != DT_DIR) return false;
    const std::string_view name = entry.d_name;
    return name == "." || name == "..";
}

}  // namespace

void KTDirectoryContents::add(KTFileInfoPtr item) {
    if (!item) return;
    listing.append(std::move(item));
    ++entryCount;
}

bool readDirectoryInBulk(const KTPathPtr& path, KTDirectoryContents& contents) {
    const UniqueFd directory = openDirectory(*path);
    if (!directory) return false;
    attrlist list = entryAttributes();
    list.commonattr |= platform::ATTR_CMN_RETURNED_ATTRS;
    platform::BulkReading reading(directory.get(), list, platform::FSOPT_PACK_INVAL_ATTRS);
    bool hasFailed = false;
    for (;;) {
        const int count = theCalls.getattrlistbulk(reading, theBuffer.data(), theBuffer.size());
        if (count == 0) return true;
        if (count > 0) {
            addBulkEntries(count, path, contents);
        } else if (errno != ERANGE || hasFailed) {
            readFailure(path, "getattrlistbulk").raise();
        }
        hasFailed = count < 0;
    }
}

bool readDirectoryByAttributes(const KTPathPtr& path, KTDirectoryContents& contents) {
    constexpr std::uint32_t kEntriesMax = 102;
    const UniqueFd directory = openDirectory(*path);
    if (!directory) return false;
    const attrlist list = entryAttributes();
    std::optional<std::uint32_t> firstState;
    for (;;) {
        std::uint32_t count = kEntriesMax;
        std::uint32_t base = 0;
        std::uint32_t state = 0;
        const int result = theCalls.getdirentriesattr(directory.get(), &list, theBuffer.data(),
                                                      theBuffer.size(), &count, &base, &state, 0);
        if (result < 0) readFailure(path, "getdirentriesattr").raise();
        if (!firstState) firstState = state;
        if (result == 0 && state != *firstState) {
            // The directory changed: again from its start, as if nothing had been read.
            if (::lseek(directory.get(), 0, SEEK_SET) < 0) readFailure(path, "lseek").raise();
            contents.listing.restart();
            firstState.reset();
            continue;
        }
        addAttributeEntries(count, path, contents);
        if (result == 1) return true;
    }
}

bool readDirectoryPlainly(const KTPathPtr& path, KTDirectoryContents& contents) {
    const Stream stream = openStream(*path);
    if (!stream) return false;
    for (;;) {
        errno = 0;
        const dirent* const entry = ::readdir(stream.get());
        if (entry == nullptr && errno != 0) readFailure(path, "readdir").raise();
        if (entry == nullptr) return true;
        if (!isDotEntry(*entry)) {
            contents.add(KTFileInfo::initWithDirEntryParentPath(*entry, path));
        }
    }
}

KTDirectoryCallsOverride::KTDirectoryCallsOverride(const KTDirectoryCalls& calls) {
    theCalls = calls;
}

KTDirectoryCallsOverride::~KTDirectoryCallsOverride() {
    theCalls = {};
}

}  // namespace sevrin
