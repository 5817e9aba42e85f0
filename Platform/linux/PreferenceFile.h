// One file of preferences: reading it, telling whether it has changed, replacing it.
//
// The file is a binary property list with a dictionary at the top. What it contains comes from
// anywhere and is never believed unchecked. Holds no state and no lock; on any thread.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <string>

#include "Platform/Value.h"

namespace sevrin::platform::preferences {

// What tells one state of a file from another.
struct FileIdentity {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    // A state so young that the file may change without a difference in the times, which advance in
    // steps: it is not to be relied on.
    bool isFresh = false;

    [[nodiscard]] bool isSameAs(const FileIdentity& other) const;
};

struct FileContent {
    enum class State {
        Absent,      // There is none.
        Whole,       // `values` are all of it.
        Damaged,     // Something is there that holds no preferences, and will never.
        Unreadable,  // The system does not let us have it, now or at all.
    };

    State state = State::Absent;
    Dictionary values;
    FileIdentity identity;
    std::string why;  // What is wrong with one that is damaged or unreadable.
};

// The state that the file is in now, by one system call. Links are followed.
[[nodiscard]] FileIdentity identityOf(const std::string& path);

// Reads the whole file. Never waits for anybody, whatever lies under that name.
[[nodiscard]] FileContent readFile(const std::string& path);

// Makes the folders of the path that are missing, for the user alone. Answers why that failed, or
// nothing.
[[nodiscard]] std::string makeFolders(const std::string& folder);

// Replaces the file by one with these values, mode 0600: whoever opens the path, also after a crash
// of the system, has all of the old or all of the new content. The caller holds the lock that
// writers agree on. A name that is a link is replaced itself, not what it leads to. Answers why it
// failed, and then nothing has changed, or nothing.
[[nodiscard]] std::string replaceFile(const std::string& path, const Dictionary& values);

// Gives a damaged file another name beside its own: `path` with ".damaged-" and the first number
// that is free. Answers why that failed, or nothing; `keptAs` has the name.
[[nodiscard]] std::string keepAside(const std::string& path, std::string& keptAs);

}  // namespace sevrin::platform::preferences
