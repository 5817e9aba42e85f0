// A URL out of an archive that leads to no file of this machine: its text, kept as it was.
//
// Archives of other programs hold URLs of every kind, also relative to others. Those of files
// become NSURL; of the rest nobody here asks more than to be shown and to be archived again.
// Immutable; on any thread.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "Platform/Object.h"

namespace sevrin::platform {

class ArchivedURL final : public Object {
public:
    // `base` is an NSURL, an ArchivedURL without a base of its own, or nullptr.
    ArchivedURL(std::string relativeString, ObjectPtr base);

    [[nodiscard]] const std::string& relativeString() const { return relativeString_; }
    [[nodiscard]] const ObjectPtr& baseURL() const { return base_; }

    [[nodiscard]] static Class& classObject();
    [[nodiscard]] const Class& isa() const override;

    // "relative -- base", or the text alone.
    [[nodiscard]] std::string description() const override;
    [[nodiscard]] bool isEqual(const Object& other) const override;
    [[nodiscard]] std::size_t hash() const override;

private:
    const std::string relativeString_;
    const ObjectPtr base_;
};

}  // namespace sevrin::platform
