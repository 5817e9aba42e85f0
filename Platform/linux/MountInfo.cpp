// One line a mount: "36 35 98:0 /root /mount/point rw,noatime master:1 - ext4 /dev/sda1 rw", with a
// number of optional fields before the hyphen, and blanks within fields written in octal.
#include "Platform/linux/MountInfo.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <optional>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

namespace {

bool isOctal(char digit) noexcept {
    return digit >= '0' && digit <= '7';
}

std::string unescaped(std::string_view field) {
    std::string result;
    result.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) &&
            isOctal(field[i + 2]) && isOctal(field[i + 3])) {
            const int code =
                (field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0');
            result += static_cast<char>(code);
            i += 3;
        } else {
            result += field[i];
        }
    }
    return result;
}

// The next field of a line, which loses it; empty at its end.
std::string_view takeField(std::string_view& line) noexcept {
    const std::size_t end = std::min(line.find(' '), line.size());
    const std::string_view field = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    return field;
}

template <class T>
bool readNumber(std::string_view text, T& number) noexcept {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

std::optional<MountEntry> parseLine(std::string_view line) {
    MountEntry entry;
    const std::string_view id = takeField(line);
    (void)takeField(line);  // the mount that this one hangs in
    const std::string_view device = takeField(line);
    const std::size_t colon = device.find(':');
    if (colon == std::string_view::npos || !readNumber(id, entry.id) ||
        !readNumber(device.substr(0, colon), entry.deviceMajor) ||
        !readNumber(device.substr(colon + 1), entry.deviceMinor)) {
        return std::nullopt;
    }
    entry.root = unescaped(takeField(line));
    entry.mountPoint = unescaped(takeField(line));
    entry.options = unescaped(takeField(line));
    while (!line.empty() && takeField(line) != "-") {
    }
    entry.type = unescaped(takeField(line));
    entry.source = unescaped(takeField(line));
    entry.superOptions = unescaped(takeField(line));
    if (entry.type.empty() || !entry.mountPoint.starts_with('/')) return std::nullopt;
    return entry;
}

}  // namespace

std::vector<MountEntry> parseMountInfo(std::string_view text) {
    std::vector<MountEntry> entries;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        if (std::optional<MountEntry> entry = parseLine(text.substr(0, end))) {
            entries.push_back(std::move(*entry));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return entries;
}

std::vector<MountEntry> readMountInfo() {
    const UniqueFd file(::open("/proc/thread-self/mountinfo", O_RDONLY | O_CLOEXEC));
    if (!file) return {};
    std::string text;
    std::array<char, 16384> buffer;
    for (;;) {
        const ssize_t size = ::read(file.get(), buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) return {};
        if (size == 0) return parseMountInfo(text);
        text.append(buffer.data(), static_cast<std::size_t>(size));
    }
}

bool hasOption(std::string_view options, std::string_view option) noexcept {
    while (!options.empty()) {
        const std::size_t end = std::min(options.find(','), options.size());
        const std::string_view one = options.substr(0, end);
        if (one.substr(0, one.find('=')) == option) return true;
        options.remove_prefix(std::min(end + 1, options.size()));
    }
    return false;
}

std::string_view valueOfOption(std::string_view options, std::string_view option) noexcept {
    while (!options.empty()) {
        const std::size_t end = std::min(options.find(','), options.size());
        const std::string_view one = options.substr(0, end);
        const std::size_t equals = one.find('=');
        if (equals != std::string_view::npos && one.substr(0, equals) == option) {
            return one.substr(equals + 1);
        }
        options.remove_prefix(std::min(end + 1, options.size()));
    }
    return {};
}

}  // namespace sevrin::platform
