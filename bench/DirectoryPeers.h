// Ways to read a directory, or a tree, with the attributes of everything in it: what the object
// model is measured against.
//
// Each takes the path and gives the number of entries that it saw. Nothing is followed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sevrin::bench {

using DirectoryReading = std::int64_t (*)(const std::string& path);

struct DirectoryPeer {
    const char* name;
    DirectoryReading list;
    DirectoryReading walk;  // the whole tree; nullptr where a peer has no way of its own
    void (*forget)();       // ends what it keeps; nullptr when it keeps nothing
};

// getdents64 and one statx an entry: what the kernel takes, and the limit of one thread.
[[nodiscard]] std::int64_t listRaw(const std::string& path);
[[nodiscard]] std::int64_t walkRaw(const std::string& path);

// The same by readdir and fstatat; by fts; by std::filesystem, which asks for each attribute alone;
// and by readdir and fstatat with the name and attributes of every entry kept, as items do.
[[nodiscard]] const std::vector<DirectoryPeer>& directoryPeers();

}  // namespace sevrin::bench
