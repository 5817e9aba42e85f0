// What can travel in a message, judged before it is sent.
#include "client/Message.h"

#include <algorithm>
#include <stdexcept>

#include "Platform/Text.h"
#include "Platform/XPCLimits.h"

namespace sevrin {

namespace {

// Why a property list cannot be written down, though its types are right; empty when it can.
// `levelsLeft` is how deep containers may nest from here on.
std::string whyNotWritable(const platform::Value& value, unsigned levelsLeft) {
    const platform::ValueArray* array = value.ifArray();
    const platform::Dictionary* dictionary = value.ifDictionary();
    if (!array && !dictionary) return "";
    if (levelsLeft == 0) {
        return "containers nest deeper than " + std::to_string(platform::kNestingMax) + " levels";
    }

    std::string why;
    if (array) {
        for (auto member = array->begin(); why.empty() && member != array->end(); ++member)
            why = whyNotWritable(*member, levelsLeft - 1);
        return why;
    }
    for (auto entry = dictionary->begin(); why.empty() && entry != dictionary->end(); ++entry) {
        const auto& [key, content] = *entry;
        // Escaping could make two keys one.
        if (key.ifString() && !platform::isValidUtf8(*key.ifString()))
            return "the key " + platform::escapeInvalidUtf8(*key.ifString()) + " is not UTF-8";
        why = whyNotWritable(content, levelsLeft - 1);
    }
    return why;
}

}  // namespace

void requireSendable(const Message& message) {
    std::string why;
    for (const platform::Value& argument : message.arguments) {
        if (why.empty()) why = whyNotWritable(argument, platform::kNestingMax);
    }
    if (why.empty()) why = message.method->whyNotArguments(message.arguments);
    if (!why.empty())
        throw std::invalid_argument("cannot send " + message.method->selector + ": " + why);
}

void requireShort(std::string_view text, const char* what) {
    const bool isShort = platform::isValidUtf8(text) ? text.size() <= platform::kIdentifierBytesMax
                                                     : platform::escapeInvalidUtf8(text).size() <=
                                                           platform::kIdentifierBytesMax;
    if (isShort) return;
    throw std::length_error(std::string(what) + " is longer than " +
                            std::to_string(platform::kIdentifierBytesMax) + " bytes");
}

}  // namespace sevrin
