// Reading a directory to its end: names in large portions, kept until their records are wanted, so
// that nothing ever has to be gone back for.
#include "Platform/BulkReading.h"

#include <sched.h>

#include <array>
#include <cerrno>
#include <thread>

#include "Platform/linux/AttributeRequest.h"
#include "Platform/linux/DirectoryEntries.h"
#include "Platform/linux/EntryPacker.h"
#include "Platform/linux/HelpedReading.h"

namespace sevrin::platform {

namespace {

// What the C library reads names with.
constexpr std::size_t kNamesSize = 32768;

// From so many entries on a second thread is worth starting: they took a millisecond, it takes a
// twentieth of that.
constexpr std::size_t kEntriesAlone = 2000;

bool hasSecondProcessor() noexcept {
    cpu_set_t processors;
    if (::sched_getaffinity(0, sizeof processors, &processors) == 0) {
        return CPU_COUNT(&processors) > 1;
    }
    return std::thread::hardware_concurrency() > 1;
}

}  // namespace

class BulkReading::State {
public:
    State(int dirfd, const attrlist& list, std::uint64_t options) noexcept
        : dirfd_(dirfd),
          error_(readBulkRequest(&list, options, request_)),
          packer_(dirfd, request_, request_.packsInvalid) {}

    int next(std::byte* buffer, std::size_t size) noexcept {
        if (error_ != 0 || buffer == nullptr) {
            errno = error_ != 0 ? error_ : EFAULT;
            return -1;
        }
        if (!helped_ && at_ == namesSize_ && !hasTriedHelp_ && given_ >= kEntriesAlone) {
            hasTriedHelp_ = true;
            if (hasSecondProcessor()) helped_ = HelpedReading::tryToStart(dirfd_, request_);
        }
        if (helped_) return helped_->next(buffer, size);
        const int count = nextAlone(buffer, size);
        if (count > 0) given_ += static_cast<std::size_t>(count);
        return count;
    }

private:
    int nextAlone(std::byte* buffer, std::size_t size) noexcept {
        std::size_t used = 0;
        int count = 0;
        for (;;) {
            if (at_ == namesSize_) {
                // With something to give, the end and failures are for the next call.
                if (count != 0) return count;
                const long read = readEntries(dirfd_, names_.data(), names_.size());
                if (read <= 0) return static_cast<int>(read);
                at_ = 0;
                namesSize_ = static_cast<std::size_t>(read);
            }
            const DirectoryEntry& entry = entryAt(names_.data() + at_);
            std::size_t taken = 0;
            switch (isDotEntry(entry) ? EntryPacker::Outcome::Gone
                                      : packer_.pack(entry, buffer + used, size - used, taken)) {
                case EntryPacker::Outcome::NoRoom:
                    if (count == 0) errno = ERANGE;
                    return count == 0 ? -1 : count;
                case EntryPacker::Outcome::Packed:
                    used += taken;
                    ++count;
                    break;
                case EntryPacker::Outcome::Gone:
                    break;
            }
            at_ += entry.length;
        }
    }

    int dirfd_;
    AttributeRequest request_;
    int error_;
    EntryPacker packer_;
    std::unique_ptr<HelpedReading> helped_;
    bool hasTriedHelp_ = false;
    std::size_t given_ = 0;
    std::size_t at_ = 0;  // of the next entry in the names
    std::size_t namesSize_ = 0;
    alignas(8) std::array<std::byte, kNamesSize> names_;
};

BulkReading::BulkReading(int dirfd, const attrlist& list, std::uint64_t options)
    : state_(new State(dirfd, list, options)) {}

BulkReading::~BulkReading() = default;

int BulkReading::next(void* buffer, std::size_t size) noexcept {
    return state_->next(static_cast<std::byte*>(buffer), size);
}

}  // namespace sevrin::platform
