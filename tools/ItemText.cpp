// The attributes of file-system items in words.
#include "tools/ItemText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <unordered_map>

#include "tools/Publisher.h"

namespace sevrin {

namespace {

struct Flag {
    std::uint32_t bit;
    const char* name;
};

// By the names that the platform's own tools have for them.
constexpr std::array kFlags = {
    Flag{platform::UF_NODUMP, "nodump"},         Flag{platform::UF_IMMUTABLE, "uchg"},
    Flag{platform::UF_APPEND, "uappnd"},         Flag{platform::UF_OPAQUE, "opaque"},
    Flag{platform::UF_COMPRESSED, "compressed"}, Flag{platform::UF_TRACKED, "tracked"},
    Flag{platform::UF_DATAVAULT, "datavault"},   Flag{platform::UF_HIDDEN, "hidden"},
    Flag{platform::SF_ARCHIVED, "arch"},         Flag{platform::SF_IMMUTABLE, "schg"},
    Flag{platform::SF_APPEND, "sappnd"},         Flag{platform::SF_RESTRICTED, "restricted"},
    Flag{platform::SF_NOUNLINK, "sunlnk"},       Flag{platform::SF_FIRMLINK, "firmlink"},
};

// By the platform's number.
constexpr std::array kKinds = {"item", "file",   "folder", "block-device", "character-device",
                               "link", "socket", "pipe",   "item"};
constexpr std::string_view kKindLetters = "?-dbclsp?";

std::string nameOfGroup(std::uint32_t group) {
    std::array<char, 16 * 1024> buffer;
    struct group entry {};
    struct group* found = nullptr;
    if (::getgrgid_r(group, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        return found->gr_name;
    return std::to_string(group);
}

std::optional<tm> localTime(const timespec& time) {
    constexpr int kYearMax = 9999 - 1900;
    tm local{};
    if (::localtime_r(&time.tv_sec, &local) == nullptr || local.tm_year < -1900 ||
        local.tm_year > kYearMax) {
        return std::nullopt;
    }
    return local;
}

std::string secondsText(const timespec& time) {
    return fmt::format("@{}", static_cast<std::int64_t>(time.tv_sec));
}

}  // namespace

const char* kindOf(const KTFileInfo& item) {
    if (!item.exists()) return "nothing";
    return item.type() < kKinds.size() ? kKinds[item.type()] : "item";
}

std::string modeText(std::uint32_t type, std::uint32_t access) {
    std::string text = "?rwxrwxrwx";
    text[0] = type < kKindLetters.size() ? kKindLetters[type] : '?';
    for (std::size_t place = 1; place < text.size(); ++place) {
        if ((access >> (text.size() - 1 - place) & 1) == 0) text[place] = '-';
    }
    const auto mark = [&](std::uint32_t bit, std::size_t place, char with, char without) {
        if ((access & bit) != 0) text[place] = text[place] == 'x' ? with : without;
    };
    mark(S_ISUID, 3, 's', 'S');
    mark(S_ISGID, 6, 's', 'S');
    mark(S_ISVTX, 9, 't', 'T');
    return text;
}

std::string accessText(std::uint32_t effectiveAccess) {
    std::string text = "---";
    if ((effectiveAccess & R_OK) != 0) text[0] = 'r';
    if ((effectiveAccess & W_OK) != 0) text[1] = 'w';
    if ((effectiveAccess & X_OK) != 0) text[2] = 'x';
    return text;
}

std::vector<std::string> flagNames(std::uint32_t flags) {
    std::vector<std::string> names;
    for (const Flag& flag : kFlags) {
        if ((flags & flag.bit) != 0) names.emplace_back(flag.name);
        flags &= ~flag.bit;
    }
    if (flags != 0) names.push_back(fmt::format("{:#x}", flags));
    return names;
}

const std::string& ownerName(std::uint32_t user) {
    static std::unordered_map<std::uint32_t, std::string>& names =
        *new std::unordered_map<std::uint32_t, std::string>;
    std::string& name = names[user];
    if (name.empty()) name = userName(user);
    return name;
}

const std::string& groupName(std::uint32_t group) {
    static std::unordered_map<std::uint32_t, std::string>& names =
        *new std::unordered_map<std::uint32_t, std::string>;
    std::string& name = names[group];
    if (name.empty()) name = nameOfGroup(group);
    return name;
}

bool isKept(const timespec& time) {
    return time.tv_sec != 0 || time.tv_nsec != 0;
}

std::string shortTime(const timespec& time) {
    const std::optional<tm> local = localTime(time);
    if (!local) return secondsText(time);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", local->tm_year + 1900,
                       local->tm_mon + 1, local->tm_mday, local->tm_hour, local->tm_min,
                       local->tm_sec);
}

std::string exactTime(const timespec& time) {
    const std::optional<tm> local = localTime(time);
    if (!local) return secondsText(time);
    const long minutes = local->tm_gmtoff / 60;
    const long size = minutes < 0 ? -minutes : minutes;
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:09}{}{:02}:{:02}",
                       local->tm_year + 1900, local->tm_mon + 1, local->tm_mday, local->tm_hour,
                       local->tm_min, local->tm_sec, time.tv_nsec, minutes < 0 ? '-' : '+',
                       size / 60, size % 60);
}

std::string joined(const std::vector<std::string>& texts, const char* separator) {
    return fmt::format("{}", fmt::join(texts, separator));
}

}  // namespace sevrin
