// The table of the platform's own classes.
#include "Platform/FoundationClasses.h"

#include <algorithm>
#include <array>

namespace sevrin::platform {

namespace {

struct Entry {
    FoundationClass meaning;
    std::array<std::string_view, 3> chain;  // the last may be empty
};

constexpr std::array kEntries = {
    Entry{FoundationClass::Dictionary, {"NSDictionary", kRootClassName, {}}},
    Entry{FoundationClass::Dictionary, {"NSMutableDictionary", "NSDictionary", kRootClassName}},
    Entry{FoundationClass::Array, {"NSArray", kRootClassName, {}}},
    Entry{FoundationClass::Array, {"NSMutableArray", "NSArray", kRootClassName}},
    Entry{FoundationClass::Date, {"NSDate", kRootClassName, {}}},
    Entry{FoundationClass::Null, {"NSNull", kRootClassName, {}}},
    Entry{FoundationClass::URL, {"NSURL", kRootClassName, {}}},
    Entry{FoundationClass::UUID, {"NSUUID", kRootClassName, {}}},
    Entry{FoundationClass::Set, {"NSSet", kRootClassName, {}}},
    Entry{FoundationClass::Set, {"NSMutableSet", "NSSet", kRootClassName}},
    Entry{FoundationClass::String, {"NSString", kRootClassName, {}}},
    Entry{FoundationClass::String, {"NSMutableString", "NSString", kRootClassName}},
    Entry{FoundationClass::Data, {"NSData", kRootClassName, {}}},
    Entry{FoundationClass::Data, {"NSMutableData", "NSData", kRootClassName}},
};

const Entry* entryNamed(std::string_view name) {
    const auto* const found = std::find_if(kEntries.begin(), kEntries.end(),
                                           [&](const Entry& e) { return e.chain[0] == name; });
    return found == kEntries.end() ? nullptr : found;
}

}  // namespace

std::optional<FoundationClass> foundationClassNamed(std::string_view name) {
    const Entry* const entry = entryNamed(name);
    if (entry == nullptr) return std::nullopt;
    return entry->meaning;
}

std::span<const std::string_view> foundationClassChain(std::string_view name) {
    const Entry* const entry = entryNamed(name);
    if (entry == nullptr) return {};
    return std::span(entry->chain).first(entry->chain[2].empty() ? 2 : 3);
}

}  // namespace sevrin::platform
