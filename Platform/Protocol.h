// A protocol between processes, as data: its methods, by exact selector, with the types of their
// arguments and replies.
//
// The receiving side checks every message against it before any code of ours runs. Protocols are
// immutable, made once and never destroyed; compare them by address.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Export.h"
#include "Platform/Value.h"

namespace sevrin::platform {

// The type of one argument or reply value on the wire.
struct SEVRIN_EXPORT ArgumentType {
    enum class Kind { String, Dictionary, Endpoint, UnsignedInt32 };

    Kind kind;
    bool mayBeNull = false;

    // Whether `value` is of this type. An integer must lie within the type's range. A dictionary is
    // a property list: strings as keys and, to any depth, no null, set or object among the values.
    [[nodiscard]] bool accepts(const Value& value) const;

    // "string", "dictionary", "endpoint", "uint32", with " or null" where that is allowed.
    [[nodiscard]] std::string description() const;
};

struct SEVRIN_EXPORT MethodDescription {
    std::string selector;
    std::vector<ArgumentType> arguments;  // the reply block not counted
    bool hasReply = false;
    std::vector<ArgumentType> replies;
    bool isRequired = true;

    // What is wrong with `values` as the arguments (or the reply) of this method, such as
    // "argument 2 is a dictionary where string is wanted"; empty when nothing is.
    [[nodiscard]] std::string whyNotArguments(const ValueArray& values) const;
    [[nodiscard]] std::string whyNotReplies(const ValueArray& values) const;
};

class SEVRIN_EXPORT Protocol {
public:
    // A selector that stands for two methods, own or inherited, is a bug.
    Protocol(std::string name, std::vector<const Protocol*> inherited,
             std::vector<MethodDescription> methods);
    Protocol(const Protocol&) = delete;
    Protocol& operator=(const Protocol&) = delete;

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] const std::vector<const Protocol*>& inherited() const { return inherited_; }

    // Whether this is `other` or inherits from it.
    [[nodiscard]] bool conformsTo(const Protocol& other) const;

    // The method for `selector`, own or inherited, or nullptr. The address is stable.
    [[nodiscard]] const MethodDescription* method(std::string_view selector) const;

    // Own and inherited methods.
    [[nodiscard]] std::vector<const MethodDescription*> allMethods() const;

private:
    std::string name_;
    std::vector<const Protocol*> inherited_;
    std::vector<MethodDescription> methods_;
    std::vector<const MethodDescription*>
        bySelector_;  // own and inherited, in the order of the search
};

}  // namespace sevrin::platform
