// Symbol tables of ELF files. Every offset and count of a file is checked against its size before
// it is used: what is loaded came from a sound file, but what lies at its path now may be anything.
#include "Platform/linux/ImageSymbols.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

namespace {

using Header = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using Section = ElfW(Shdr);
using Entry = ElfW(Sym);

// A file that is read piece by piece. It is not mapped: whoever cuts a mapped file short ends the
// process that looks at it.
class ImageFile {
public:
    explicit ImageFile(const std::string& path)
        : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        struct stat facts {};
        if (file_ && ::fstat(file_.get(), &facts) == 0 && S_ISREG(facts.st_mode))
            size_ = static_cast<std::uint64_t>(facts.st_size);
    }

    // `count` records at `offset`; none when the file does not hold them all.
    template <typename Record>
    [[nodiscard]] std::vector<Record> read(std::uint64_t offset, std::uint64_t count) const {
        if (offset > size_ || count > (size_ - offset) / sizeof(Record)) return {};
        std::vector<Record> found(static_cast<std::size_t>(count));
        const std::size_t bytes = found.size() * sizeof(Record);
        const ssize_t got = ::pread(file_.get(), found.data(), bytes, static_cast<off_t>(offset));
        if (got < 0 || static_cast<std::size_t>(got) != bytes) return {};
        return found;
    }

private:
    const UniqueFd file_;
    std::uint64_t size_ = 0;
};

// Whether the image in memory began as this file: they have the same header, which says where
// everything is, and the same segments. An image that was loaded has both in its first page.
bool isFileOf(std::uintptr_t base, const Header& header, const std::vector<Segment>& segments) {
    const auto* const memory = reinterpret_cast<const char*>(base);
    constexpr std::size_t kSegmentsMax = (4096 - sizeof(Header)) / sizeof(Segment);
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_phoff == sizeof header &&
           std::memcmp(memory, &header, sizeof header) == 0 && !segments.empty() &&
           segments.size() <= kSegmentsMax &&
           std::memcmp(memory + sizeof header, segments.data(),
                       segments.size() * sizeof(Segment)) == 0;
}

// What has to be added to an address of the file to have the one in memory.
std::uintptr_t displacement(std::uintptr_t base, const Header& header,
                            const std::vector<Segment>& segments) {
    if (header.e_type != ET_DYN) return 0;
    for (const Segment& segment : segments)
        if (segment.p_type == PT_LOAD) return base - (segment.p_vaddr - segment.p_offset);
    return base;
}

// The program itself: its path may be relative, and what lies there now another program.
bool isProgram(std::uintptr_t base) {
    return ::getauxval(AT_PHDR) == base + sizeof(Header);
}

}  // namespace

const ImageSymbols& ImageSymbols::ofImage(std::uintptr_t base, const std::string& path) {
    static std::mutex& lock = *new std::mutex;
    static auto& images =
        *new std::map<std::pair<std::uintptr_t, std::string>, std::unique_ptr<ImageSymbols>>;
    const std::lock_guard guard(lock);
    std::unique_ptr<ImageSymbols>& image = images[{base, path}];
    if (!image)
        image = std::make_unique<ImageSymbols>(base, isProgram(base) ? "/proc/self/exe" : path);
    return *image;
}

ImageSymbols::ImageSymbols(std::uintptr_t base, const std::string& path) {
    const ImageFile file(path);
    const auto headers = file.read<Header>(0, 1);
    if (headers.empty()) return;
    const Header& header = headers.front();
    const auto segments = file.read<Segment>(header.e_phoff, header.e_phnum);
    if (!isFileOf(base, header, segments)) return;
    const auto sections = file.read<Section>(header.e_shoff, header.e_shnum);
    for (const Section& table : sections) {
        if (table.sh_type != SHT_SYMTAB || table.sh_link >= sections.size()) continue;
        const Section& texts = sections[table.sh_link];
        names_ = file.read<char>(texts.sh_offset, texts.sh_size);
        if (names_.empty() || names_.back() != '\0') return;
        takeFunctions(file.read<Entry>(table.sh_offset, table.sh_size / sizeof(Entry)),
                      displacement(base, header, segments));
        break;  // There is one such table.
    }
}

template <typename Entry>
void ImageSymbols::takeFunctions(const std::vector<Entry>& entries, std::uintptr_t added) {
    for (const Entry& entry : entries) {
        const bool isFunction = (entry.st_info & 0x0f) == STT_FUNC;
        if (isFunction && entry.st_shndx != SHN_UNDEF && entry.st_name < names_.size())
            functions_.push_back({added + entry.st_value, entry.st_size, &names_[entry.st_name]});
    }
    std::ranges::sort(functions_, {}, &Function::begin);
}

const ImageSymbols::Function* ImageSymbols::find(std::uintptr_t place) const {
    const auto after = std::ranges::upper_bound(functions_, place, {}, &Function::begin);
    if (after == functions_.begin()) return nullptr;
    const Function& found = *std::prev(after);
    return place - found.begin < found.size ? &found : nullptr;
}

}  // namespace sevrin::platform
