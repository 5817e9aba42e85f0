// The three ways to read the entries of a directory into a listing, and the calls they stand on.
//
// Each takes the directory's path, adds an item for every entry to the listing and counts it. False
// when the directory cannot be opened; raises "failed to read directory" when reading fails, with
// what was read so far in the listing. All of them use one buffer: one at a time, which is for the
// caller to see to.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Common/Source/Utilities/KTListing.h"
#include "Platform/AttributeList.h"
#include "Platform/BulkReading.h"

namespace sevrin {

// A listing being read.
struct KTDirectoryContents {
    KTListing listing;
    std::uint64_t entryCount = 0;

    // Adds an item and counts it; nullptr is left out.
    void add(KTFileInfoPtr item);
};

// By getattrlistbulk(): names and attributes, a buffer full with every call.
[[nodiscard]] bool readDirectoryInBulk(const KTPathPtr& path, KTDirectoryContents& contents);

// By getdirentriesattr(): the same for older systems. When the directory changes meanwhile, the
// listing begins anew; the count goes on.
[[nodiscard]] bool readDirectoryByAttributes(const KTPathPtr& path, KTDirectoryContents& contents);

// By readdir(): names and types; the attributes are fetched item by item, later.
[[nodiscard]] bool readDirectoryPlainly(const KTPathPtr& path, KTDirectoryContents& contents);

[[nodiscard]] inline int nextRecords(platform::BulkReading& reading, void* buffer,
                                     std::size_t size) {
    return reading.next(buffer, size);
}

// What the first two call.
struct KTDirectoryCalls {
    int (*getattrlistbulk)(platform::BulkReading&, void*, std::size_t) = &nextRecords;
    int (*getdirentriesattr)(int, const platform::attrlist*, void*, std::size_t, std::uint32_t*,
                             std::uint32_t*, std::uint32_t*,
                             std::uint32_t) = &platform::getdirentriesattr;
};

// For tests: other calls for as long as it lives; at most one at a time, and before any other
// thread reads.
class KTDirectoryCallsOverride {
public:
    explicit KTDirectoryCallsOverride(const KTDirectoryCalls& calls);
    KTDirectoryCallsOverride(const KTDirectoryCallsOverride&) = delete;
    KTDirectoryCallsOverride& operator=(const KTDirectoryCallsOverride&) = delete;
    ~KTDirectoryCallsOverride();
};

}  // namespace sevrin
