// The reading of one directory to its end: what getattrlistbulk() called again and again gives, for
// who has the whole directory in mind.
//
// The records, their order and the failures are those of getattrlistbulk(). But a reading may read
// names ahead, so the descriptor's position is its own while it lives; it keeps what it learnt from
// one portion for the next; and where the process has a second processor, a second thread helps
// with the attributes of a large directory. That thread lives as long as the reading at most. One
// thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/AttributeList.h"

namespace sevrin::platform {

class BulkReading {
public:
    // From where the descriptor is, which is borrowed. The list and the options as for
    // getattrlistbulk(); what is wrong with them the first portion tells.
    BulkReading(int dirfd, const attrlist& list, std::uint64_t options);
    BulkReading(const BulkReading&) = delete;
    BulkReading& operator=(const BulkReading&) = delete;
    ~BulkReading();

    // The next records, as many as `size` bytes hold: their number, 0 at the end, -1 with errno
    // when there are none for a failure, after which the next call goes on. ERANGE: not even one
    // fits; it comes again.
    [[nodiscard]] int next(void* buffer, std::size_t size) noexcept;

private:
    class State;
    std::unique_ptr<State> state_;
};

}  // namespace sevrin::platform
