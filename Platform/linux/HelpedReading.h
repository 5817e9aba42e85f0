// Reads a large directory with two threads: the caller's and a helper.
//
// The caller reads names, in slices; whichever thread is free takes the oldest slice that nobody
// has, and asks for the attributes of its entries; records leave in the order of the names. So
// neither waits while the other has work left, and where there is no second processor after all,
// the caller does nearly everything itself.
//
// The helper is a thread of its own for each reading, and not one of a pool: a thread is born with
// the credentials of the thread that makes it, which here may differ from those of the process.
#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "Platform/UniqueFd.h"
#include "Platform/linux/AttributeRequest.h"
#include "Platform/linux/DirectoryEntries.h"
#include "Platform/linux/EntryPacker.h"

namespace sevrin::platform {

class HelpedReading {
public:
    // A reading from where the descriptor is; nullptr when there is no memory or thread for it, or
    // when so much is asked for that a slice might not hold it. The descriptor and the request are
    // borrowed.
    [[nodiscard]] static std::unique_ptr<HelpedReading> tryToStart(
        int dirfd, const AttributeRequest& request) noexcept;

    HelpedReading(int dirfd, const AttributeRequest& request);
    HelpedReading(const HelpedReading&) = delete;
    HelpedReading& operator=(const HelpedReading&) = delete;
    ~HelpedReading();

    // As BulkReading::next().
    [[nodiscard]] int next(std::byte* buffer, std::size_t size) noexcept;

private:
    // Bytes of names in one slice: of about a hundred entries, so some 50 us of work.
    static constexpr std::size_t kNamesSize = 4096;
    // A record before its name, which takes a few bytes more than in the slice of names if it is
    // short; and room for the records of a slice, were all names of the shortest.
    static constexpr std::size_t kRecordSizeMax = 184;
    static constexpr std::size_t kRecordsSize = kNamesSize / kEntrySizeMin * (kRecordSizeMax + 8);
    // Slices that wait for a thread before the caller takes one itself, and slices in all: what the
    // caller can do while the helper, which others keep from running, sits on the oldest.
    static constexpr std::size_t kWaitingMax = 4;
    static constexpr std::size_t kSlices = 32;

    enum class Stage : std::uint8_t { Waiting, Taken, Done };

    struct Slice {
        Stage stage = Stage::Waiting;  // under mutex_; what follows is whose the stage says
        std::size_t namesSize = 0;
        std::size_t recordsSize = 0;
        std::size_t delivered = 0;
        alignas(8) std::array<std::byte, kNamesSize> names;
        alignas(8) std::array<std::byte, kRecordsSize> records;
    };

    [[nodiscard]] Slice& slice(std::size_t number) { return (*slices_)[number % kSlices]; }
    enum class Step { Deliver, ReadNames, Fill, End };
    [[nodiscard]] Step nextStep(Slice*& taken) noexcept;
    void readNames() noexcept;
    [[nodiscard]] Slice* takeWaiting() noexcept;
    void finish(Slice& slice) noexcept;
    static void fill(Slice& slice, EntryPacker& packer) noexcept;
    [[nodiscard]] static int deliver(Slice& slice, std::byte* buffer, std::size_t size) noexcept;
    void help() noexcept;

    const int dirfd_;
    const AttributeRequest& request_;
    EntryPacker packer_;         // the caller's
    UniqueFd helpersDirectory_;  // may be none
    std::unique_ptr<std::array<Slice, kSlices>> slices_;
    bool hasEnded_ = false;   // no more names
    int error_ = 0;           // why there are none, not told yet
    std::size_t oldest_ = 0;  // the number of the next slice to deliver

    std::mutex mutex_;                   // guards what follows, and the stages
    std::condition_variable hasWork_;    // for the helper
    std::condition_variable hasResult_;  // for the caller
    std::size_t firstWaiting_ = 0;       // number of the oldest slice that nobody took
    std::size_t end_ = 0;                // number after the last slice read
    bool isOver_ = false;
    std::thread helper_;  // last, so that all it uses is there
};

}  // namespace sevrin::platform
