// A file of lines that any thread appends to, and that can be exchanged for another, or closed,
// under those that write.
//
// The kernel orders what processes append. Threads of one process take turns here all the same: two
// that meet in the kernel hinder each other more than one that sleeps for the length of a write,
// and nobody's descriptor is closed, and given to a file of somebody else's, while a line is on its
// way to it.
//
// Keeps lines whole when the disk is full: the rest of a line that is cut short is not written
// later, and the next line begins where a line begins. On any thread; raises nothing.
#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <string>
#include <string_view>

#include "Common/Source/Utilities/SpinLock.h"
#include "Platform/UniqueFd.h"

namespace sevrin {

class AppendedFile {
public:
    // Without a file.
    AppendedFile() = default;
    AppendedFile(const AppendedFile&) = delete;
    AppendedFile& operator=(const AppendedFile&) = delete;
    ~AppendedFile();

    [[nodiscard]] bool isOpen() noexcept;

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
    struct File {
        int fileRef = -1;
        Identity identity;
        bool isTorn = false;  // The last line has no line feed.
    };

    static Identity identityOf(int descriptor) noexcept;
    static bool isTornFile(const Identity& file) noexcept;
    static int closeFile(const File& file) noexcept;
    [[nodiscard]] int install(const File& next) noexcept;
    [[nodiscard]] File current() noexcept;
    void setTorn(bool isTorn) noexcept;

    SpinLock lineLock_;  // One line at a time; guards the file.
    File file_;
};

}  // namespace sevrin
