// The peers of the directory benchmark, each as somebody would write it who wants it fast.
#include "bench/DirectoryPeers.h"

#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>

#include "Platform/UniqueFd.h"
#include "Platform/linux/DirectoryEntries.h"

namespace sevrin::bench {

namespace {

using platform::UniqueFd;

constexpr std::size_t kNamesSize = 32768;  // what the C library reads with

UniqueFd openFolder(int parent, const char* name) {
    return UniqueFd(::openat(parent, name, O_RDONLY | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
}

template <typename Value>
void use(Value& value) {
    asm volatile("" : : "r"(&value) : "memory");
}

std::int64_t readRaw(const UniqueFd& folder, bool descends) {
    constexpr unsigned kFields = STATX_BASIC_STATS | STATX_BTIME;
    constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
    alignas(8) std::array<std::byte, kNamesSize> names;
    std::int64_t count = 0;
    for (long size; (size = platform::readEntries(folder.get(), names.data(), names.size())) > 0;) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            const platform::DirectoryEntry& entry = platform::entryAt(names.data() + at);
            at += entry.length;
            if (platform::isDotEntry(entry)) continue;
            struct statx stat;
            count += ::statx(folder.get(), entry.name(), kFlags, kFields, &stat) == 0;
            use(stat);
            if (descends && S_ISDIR(stat.stx_mode))
                count += readRaw(openFolder(folder.get(), entry.name()), true);
        }
    }
    return count;
}

struct StreamCloser {
    void operator()(DIR* stream) const { ::closedir(stream); }
};

// `keep` is given every entry.
template <typename Keep>
std::int64_t readStream(UniqueFd folder, bool descends, const Keep& keep) {
    const std::unique_ptr<DIR, StreamCloser> stream(::fdopendir(folder.get()));
    if (!stream) return 0;
    const int fd = folder.release();
    std::int64_t count = 0;
    while (const dirent* entry = ::readdir(stream.get())) {
        if (std::string_view(entry->d_name) == "." || std::string_view(entry->d_name) == "..")
            continue;
        struct stat stat;
        count += ::fstatat(fd, entry->d_name, &stat, AT_SYMLINK_NOFOLLOW) == 0;
        keep(entry->d_name, stat);
        if (descends && S_ISDIR(stat.st_mode))
            count += readStream(openFolder(fd, entry->d_name), true, keep);
    }
    return count;
}

const auto kKeepNothing = [](const char*, struct stat& stat) { use(stat); };

std::int64_t listReaddir(const std::string& path) {
    return readStream(openFolder(AT_FDCWD, path.c_str()), false, kKeepNothing);
}
std::int64_t walkReaddir(const std::string& path) {
    return readStream(openFolder(AT_FDCWD, path.c_str()), true, kKeepNothing);
}

// One block for each entry, as a C program keeps a list.
struct Kept {
    Kept* next;
    struct stat stat;
    char name[];
};

Kept* theKept = nullptr;

void forgetKept() {
    while (theKept != nullptr) {
        Kept* const next = theKept->next;
        std::free(theKept);
        theKept = next;
    }
}

std::int64_t listKeeping(const std::string& path) {
    Kept** end = &theKept;
    const auto keep = [&](const char* name, const struct stat& stat) {
        const std::size_t size = std::strlen(name) + 1;
        Kept* const kept = static_cast<Kept*>(std::malloc(sizeof(Kept) + size));
        kept->next = *end;
        kept->stat = stat;
        std::memcpy(kept->name, name, size);
        *end = kept;
        end = &kept->next;
    };
    return readStream(openFolder(AT_FDCWD, path.c_str()), false, keep);
}

std::int64_t walkFts(const std::string& path) {
    std::string root = path;
    char* const roots[] = {root.data(), nullptr};
    const std::unique_ptr<FTS, int (*)(FTS*)> walk(::fts_open(roots, FTS_PHYSICAL, nullptr),
                                                   &::fts_close);
    std::int64_t count = -1;  // the root itself is no entry
    while (const FTSENT* entry = ::fts_read(walk.get())) {
        if (entry->fts_info == FTS_DP) continue;
        use(*entry->fts_statp);
        ++count;
    }
    return count;
}

template <typename Iterator>
std::int64_t readStandard(const std::string& path) {
    std::int64_t count = 0;
    for (const auto& entry : Iterator(path)) {
        auto status = entry.symlink_status();
        auto size = entry.is_regular_file() ? entry.file_size() : 0;
        auto modified = entry.last_write_time();
        auto links = entry.hard_link_count();
        use(status);
        use(size);
        use(modified);
        use(links);
        ++count;
    }
    return count;
}

}  // namespace

std::int64_t listRaw(const std::string& path) {
    return readRaw(openFolder(AT_FDCWD, path.c_str()), false);
}

std::int64_t walkRaw(const std::string& path) {
    return readRaw(openFolder(AT_FDCWD, path.c_str()), true);
}

const std::vector<DirectoryPeer>& directoryPeers() {
    static const std::vector<DirectoryPeer> thePeers = {
        {"readdir, fstatat", &listReaddir, &walkReaddir, nullptr},
        {"the same, kept", &listKeeping, nullptr, &forgetKept},
        {"fts", &walkFts, &walkFts, nullptr},
        {"std::filesystem", &readStandard<std::filesystem::directory_iterator>,
         &readStandard<std::filesystem::recursive_directory_iterator>, nullptr},
    };
    return thePeers;
}

}  // namespace sevrin::bench
