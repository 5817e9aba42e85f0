// The attribute dictionaries of the file manager: read from an item, checked, and given to one.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string_view>

#include "Platform/Value.h"
#include "Platform/linux/FileLocation.h"

namespace sevrin::platform {

// What NSFileManager.h says is known about an item, and about the file system that holds it. Throw
// FileFailure.
[[nodiscard]] Dictionary attributesOf(const FileLocation& item);
[[nodiscard]] Dictionary fileSystemAttributesOf(const FileLocation& item);

// The attributes of a dictionary that can be set, checked as a whole before anything is changed.
class AttributeChange {
public:
    // Throws FileFailure for `path`, as NSFileManager.h says.
    AttributeChange(const Dictionary& attributes, std::string_view path);

    [[nodiscard]] bool isEmpty() const { return !user_ && !group_ && !mode_ && !modified_; }
    [[nodiscard]] bool hasMode() const { return mode_.has_value(); }

    // Gives them to an open item (O_PATH is enough). false with errno when that fails.
    [[nodiscard]] bool apply(int fd) const;

private:
    std::optional<uid_t> user_;
    std::optional<gid_t> group_;
    std::optional<mode_t> mode_;
    std::optional<timespec> modified_;
};

}  // namespace sevrin::platform
