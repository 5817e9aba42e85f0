// A protocol between processes, as data: the sorted table of its methods and the checks against it.
#include "Platform/Protocol.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/NSXPCListenerEndpoint.h"

namespace sevrin::platform {

namespace {

// What a value is, in the words of a complaint about it.
std::string nameOf(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Null:
            return "null";
        case Value::Kind::Boolean:
            return "a boolean";
        case Value::Kind::Signed:
            return "the integer " + std::to_string(*value.ifSigned());
        case Value::Kind::Unsigned:
            return "the integer " + std::to_string(*value.ifUnsigned());
        case Value::Kind::Double:
            return "a real";
        case Value::Kind::String:
            return "a string";
        case Value::Kind::Data:
            return "data";
        case Value::Kind::Date:
            return "a date";
        case Value::Kind::Array:
            return "an array";
        case Value::Kind::Dictionary:
            return "a dictionary";
        case Value::Kind::Set:
            return "a set";
        case Value::Kind::Object:
            return "an object";
    }
    return "unknown";
}

// Whether a value may stand in a dictionary on the wire. The depth is bounded by whoever built the
// value.
bool isPropertyList(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Null:
        case Value::Kind::Set:
        case Value::Kind::Object:
            return false;
        case Value::Kind::Array:
            return std::ranges::all_of(*value.ifArray(), isPropertyList);
        case Value::Kind::Dictionary:
            return std::ranges::all_of(*value.ifDictionary(), [](const Dictionary::Entry& entry) {
                return entry.first.ifString() != nullptr && isPropertyList(entry.second);
            });
        default:
            return true;
    }
}

std::string whyNot(const std::string& selector, const char* what,
                   const std::vector<ArgumentType>& types, const ValueArray& values) {
    if (values.size() != types.size()) {
        return std::to_string(values.size()) + " " + what + (values.size() == 1 ? "" : "s") +
               " where " + selector + " takes " + std::to_string(types.size());
    }
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types[i].accepts(values[i])) continue;
        const bool isImproper =
            types[i].kind == ArgumentType::Kind::Dictionary && values[i].ifDictionary() != nullptr;
        return std::string(what) + " " + std::to_string(i + 1) + " is " + nameOf(values[i]) +
               (isImproper ? " that is no property list" : "") + " where " +
               types[i].description() + " is wanted";
    }
    return "";
}

// The order of the table. Few selectors are of one length, so a search seldom reads their letters.
bool precedes(std::string_view left, std::string_view right) {
    return left.size() != right.size() ? left.size() < right.size() : left < right;
}

}  // namespace

bool ArgumentType::accepts(const Value& value) const {
    if (value.isNull()) return mayBeNull;
    switch (kind) {
        case Kind::String:
            return value.ifString() != nullptr;
        case Kind::Dictionary:
            return value.ifDictionary() != nullptr && isPropertyList(value);
        case Kind::Endpoint:
            return value.object<NSXPCListenerEndpoint>() != nullptr;
        case Kind::UnsignedInt32:
            return value.ifSigned() != nullptr && std::in_range<std::uint32_t>(*value.ifSigned());
    }
    return false;
}

std::string ArgumentType::description() const {
    const char* names[] = {"string", "dictionary", "endpoint", "uint32"};
    return std::string(names[static_cast<std::size_t>(kind)]) + (mayBeNull ? " or null" : "");
}

std::string MethodDescription::whyNotArguments(const ValueArray& values) const {
    return whyNot(selector, "argument", arguments, values);
}

std::string MethodDescription::whyNotReplies(const ValueArray& values) const {
    return whyNot(selector, "reply value", replies, values);
}

Protocol::Protocol(std::string name, std::vector<const Protocol*> inherited,
                   std::vector<MethodDescription> methods)
    : name_(std::move(name)), inherited_(std::move(inherited)), methods_(std::move(methods)) {
    for (const MethodDescription& method : methods_)
        bySelector_.push_back(&method);
    for (const Protocol* parent : inherited_) {
        bySelector_.insert(bySelector_.end(), parent->bySelector_.begin(),
                           parent->bySelector_.end());
    }
    std::ranges::sort(bySelector_, precedes, &MethodDescription::selector);
    // What is inherited along two ways is still one method.
    bySelector_.erase(std::unique(bySelector_.begin(), bySelector_.end()), bySelector_.end());
    const auto twice = std::ranges::adjacent_find(bySelector_, {}, &MethodDescription::selector);
    SEVRIN_ASSERT(twice == bySelector_.end(),
                  "a selector stands once in a protocol and what it inherits");
}

bool Protocol::conformsTo(const Protocol& other) const {
    return this == &other || std::ranges::any_of(inherited_, [&other](const Protocol* parent) {
               return parent->conformsTo(other);
           });
}

const MethodDescription* Protocol::method(std::string_view selector) const {
    const auto found =
        std::ranges::lower_bound(bySelector_, selector, precedes, &MethodDescription::selector);
    return found != bySelector_.end() && (*found)->selector == selector ? *found : nullptr;
}

std::vector<const MethodDescription*> Protocol::allMethods() const {
    return bySelector_;
}

}  // namespace sevrin::platform
