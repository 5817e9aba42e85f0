// The collation of ICU, loaded when it is asked for.
//
// Linked, it would cost every process, the service among them, its start-up time and memory; so it
// is neither linked nor its headers used: the three functions that are called have kept their form
// since ICU 2, and carry the library's version in their names.
#include "Platform/Collation.h"

#include <dlfcn.h>

#include <cstdint>
#include <string>

namespace sevrin::platform {

namespace {

// Attributes, values and error codes are numbers that ICU guarantees.
constexpr int kNumericCollation = 7;
constexpr int kOn = 17;
using ErrorCode = int;  // 0 is success, negative are warnings.

struct Collator {
    using Open = void* (*)(const char* locale, ErrorCode*);
    using SetAttribute = void (*)(void* collator, int attribute, int value, ErrorCode*);
    using Compare = int (*)(const void* collator, const char*, std::int32_t, const char*,
                            std::int32_t, ErrorCode*);

    void* handle = nullptr;
    Compare compare = nullptr;
};

Collator openCollator(int version) {
    const std::string suffix = std::to_string(version);
    void* library = ::dlopen(("libicui18n.so." + suffix).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return {};
    const auto find = [&](const char* name) {
        return ::dlsym(library, (std::string(name) + "_" + suffix).c_str());
    };
    const auto open = reinterpret_cast<Collator::Open>(find("ucol_open"));
    const auto set = reinterpret_cast<Collator::SetAttribute>(find("ucol_setAttribute"));
    const auto compare = reinterpret_cast<Collator::Compare>(find("ucol_strcollUTF8"));
    if (!open || !set || !compare) return {};

    ErrorCode error = 0;
    void* handle = open("", &error);
    if (handle == nullptr || error > 0) return {};
    set(handle, kNumericCollation, kOn, &error);
    if (error > 0) return {};
    return {handle, compare};
}

// The newest that is installed. It stays for the life of the process: threads may be comparing
// until the end of it.
Collator openNewestCollator() {
    constexpr int kNewest = 90;
    constexpr int kOldest = 60;
    for (int version = kNewest; version >= kOldest; --version) {
        const Collator collator = openCollator(version);
        if (collator.handle != nullptr) return collator;
    }
    return {};
}

}  // namespace

std::optional<int> collate(std::string_view left, std::string_view right) {
    static const Collator collator = openNewestCollator();
    if (collator.handle == nullptr) return std::nullopt;
    ErrorCode error = 0;
    const int result =
        collator.compare(collator.handle, left.data(), static_cast<std::int32_t>(left.size()),
                         right.data(), static_cast<std::int32_t>(right.size()), &error);
    return error > 0 ? 0 : result;
}

}  // namespace sevrin::platform
