// A file of lines that any thread appends to without a lock, and that can be exchanged for another,
// or closed, under those that write.
//
// The kernel orders what is appended, so threads need not wait for each other here. What they do
// need is a descriptor that leads to the right file: it keeps its number from the first opening to
// the end of this object, and changes hands within the kernel. A line that comes meanwhile goes to
// the file before or to the one after, never into a file of somebody else's that got the number.
//
// Keeps lines whole when the disk is full: the rest of a line that is cut short is not written
// later, and the next line begins where a line begins. On any thread; raises nothing.
#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <atomic>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

#include "Platform/UniqueFd.h"

namespace sevrin {

class AppendedFile {
public:
    // Without a file.
    AppendedFile() = default;
    AppendedFile(const AppendedFile&) = delete;
    AppendedFile& operator=(const AppendedFile&) = delete;
    ~AppendedFile();

    [[nodiscard]] bool isOpen() const noexcept { return fileRef_.load() >= 0; }

    // Goes on in the file of `next`, an open descriptor for appending. Gives the error number with
    // which closing the file before has failed, 0 when it has not: EBADF when its descriptor was
    // closed behind our back, whosever it is now.
    [[nodiscard]] int replace(platform::UniqueFd next) noexcept;

    // Closes the file if there is one; gives the same.
    [[nodiscard]] int close() noexcept;

    // Whether `path` itself, no link, is the open file still, and the descriptor leads there too.
    // A file that is not open has lost nothing.
    [[nodiscard]] bool isStillAt(const std::string& path) noexcept;

    // Appends the line and a line feed, by one gathering write. Gives the error number, 0 when
    // there is none, EBADF without a file. Allocates nothing.
    [[nodiscard]] int appendLine(std::string_view line) noexcept;

    // Forces what was written to the disk.
    void flush() noexcept;

private:
    // Which file is open, so that neither its name nor its descriptor passes for it once it is
    // another's.
    struct Identity {
        dev_t device = 0;
        ino_t inode = 0;
        friend bool operator==(const Identity&, const Identity&) = default;
    };

    static Identity identityOf(int descriptor) noexcept;
    static bool isTornFile(const Identity& file) noexcept;
    [[nodiscard]] bool isStillOurs() const noexcept;
    [[nodiscard]] int exchange(platform::UniqueFd next, bool wasOpen) noexcept;
    [[nodiscard]] int appendAfterTornLine(std::span<const iovec> pieces) noexcept;
    [[nodiscard]] ssize_t write(std::span<const iovec> pieces) const noexcept;
    void setTorn(bool isTorn) noexcept;

    std::atomic<int> fileRef_ = -1;     // What lines are written to; -1 without a file.
    std::atomic<bool> isTorn_ = false;  // The last line has no line feed.

    std::mutex lineLock_;  // Guards what follows; and the lines that come after a torn one.
    int number_ = -1;      // The descriptor, which leads to nothing while there is no file.
    Identity identity_;    // Of what it leads to.
};

}  // namespace sevrin
