// Slices of a directory between two threads.
#include "Platform/linux/HelpedReading.h"

#include <fcntl.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/linux/DirectoryEntries.h"

namespace sevrin::platform {

std::unique_ptr<HelpedReading> HelpedReading::tryToStart(int dirfd,
                                                         const AttributeRequest& request) noexcept {
    if (EntryPacker(dirfd, request, false).fixedSizeMax() > kRecordSizeMax) return nullptr;
    try {
        return std::make_unique<HelpedReading>(dirfd, request);
    } catch (const std::exception&) {
        return nullptr;
    }
}

// Two threads that ask through one open file would pass its count of users to and fro between the
// processors with every call, so the helper opens the directory for itself, where it may.
HelpedReading::HelpedReading(int dirfd, const AttributeRequest& request)
    : dirfd_(dirfd),
      request_(request),
      packer_(dirfd, request, request.packsInvalid),
      helpersDirectory_(::openat(dirfd, ".", O_PATH | O_DIRECTORY | O_CLOEXEC)),
      slices_(new std::array<Slice, kSlices>),
      helper_([this] { help(); }) {}

HelpedReading::~HelpedReading() {
    {
        const std::lock_guard guard(mutex_);
        isOver_ = true;
    }
    hasWork_.notify_one();
    helper_.join();
}

int HelpedReading::next(std::byte* buffer, std::size_t size) noexcept {
    for (;;) {
        Slice* taken = nullptr;
        switch (nextStep(taken)) {
            case Step::Deliver: {
                Slice& done = slice(oldest_);
                const int count = deliver(done, buffer, size);
                if (done.delivered == done.recordsSize) ++oldest_;
                if (count != 0) return count;
                break;
            }
            case Step::ReadNames:
                readNames();
                break;
            case Step::Fill:
                fill(*taken, packer_);
                finish(*taken);
                break;
            case Step::End:
                // What failed may be tried again.
                hasEnded_ = error_ == 0;
                errno = std::exchange(error_, 0);
                return hasEnded_ ? 0 : -1;
        }
    }
}

// What is best done by the caller now; it waits here when the helper has all that is left.
HelpedReading::Step HelpedReading::nextStep(Slice*& taken) noexcept {
    std::unique_lock lock(mutex_);
    if (oldest_ == end_ && hasEnded_) return Step::End;
    if (oldest_ != end_ && slice(oldest_).stage == Stage::Done) return Step::Deliver;
    const bool isRoomLeft = end_ - oldest_ < kSlices && end_ - firstWaiting_ < kWaitingMax;
    if (!hasEnded_ && isRoomLeft) return Step::ReadNames;
    taken = takeWaiting();
    if (taken != nullptr) return Step::Fill;
    hasResult_.wait(lock, [this] { return slice(oldest_).stage == Stage::Done; });
    return Step::Deliver;
}

void HelpedReading::readNames() noexcept {
    Slice& fresh = slice(end_);
    const long read = readEntries(dirfd_, fresh.names.data(), fresh.names.size());
    if (read <= 0) {
        hasEnded_ = true;
        error_ = read < 0 ? errno : 0;
        return;
    }
    fresh.namesSize = static_cast<std::size_t>(read);
    fresh.recordsSize = 0;
    fresh.delivered = 0;
    {
        const std::lock_guard guard(mutex_);
        fresh.stage = Stage::Waiting;
        ++end_;
    }
    hasWork_.notify_one();
}

// Under mutex_.
HelpedReading::Slice* HelpedReading::takeWaiting() noexcept {
    if (firstWaiting_ == end_) return nullptr;
    Slice& taken = slice(firstWaiting_++);
    taken.stage = Stage::Taken;
    return &taken;
}

void HelpedReading::finish(Slice& done) noexcept {
    {
        const std::lock_guard guard(mutex_);
        done.stage = Stage::Done;
    }
    hasResult_.notify_one();
}

void HelpedReading::fill(Slice& filled, EntryPacker& packer) noexcept {
    for (std::size_t at = 0; at < filled.namesSize;) {
        const DirectoryEntry& entry = entryAt(filled.names.data() + at);
        at += entry.length;
        if (isDotEntry(entry)) continue;
        std::size_t taken = 0;
        const auto outcome = packer.pack(entry, filled.records.data() + filled.recordsSize,
                                         filled.records.size() - filled.recordsSize, taken);
        SEVRIN_ASSERT(outcome != EntryPacker::Outcome::NoRoom, "a slice has room for its records");
        if (outcome == EntryPacker::Outcome::Packed) filled.recordsSize += taken;
    }
}

// Copies as many records as fit; 0 when the slice has none left, -1 when not even one fits.
int HelpedReading::deliver(Slice& done, std::byte* buffer, std::size_t size) noexcept {
    const std::byte* const first = done.records.data() + done.delivered;
    std::size_t used = 0;
    int count = 0;
    while (done.delivered + used < done.recordsSize) {
        std::uint32_t length = 0;
        std::memcpy(&length, first + used, sizeof length);
        if (used + length > size) break;
        used += length;
        ++count;
    }
    if (count == 0 && done.delivered < done.recordsSize) {
        errno = ERANGE;
        return -1;
    }
    std::memcpy(buffer, first, used);
    done.delivered += used;
    return count;
}

void HelpedReading::help() noexcept {
    ::pthread_setname_np(::pthread_self(), "directory-help");
    const int directory = helpersDirectory_ ? helpersDirectory_.get() : dirfd_;
    EntryPacker packer(directory, request_, request_.packsInvalid);
    for (;;) {
        std::unique_lock lock(mutex_);
        hasWork_.wait(lock, [this] { return isOver_ || firstWaiting_ != end_; });
        if (isOver_) return;
        Slice& taken = *takeWaiting();
        lock.unlock();
        fill(taken, packer);
        finish(taken);
    }
}

}  // namespace sevrin::platform
