// The URL of a file, and what the system knows about the item under names of its own: resource
// values.
//
// A URL remembers the values it was asked for until they are dropped, so what it says may be older
// than the file. Any thread may use a URL.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>

#include "Platform/NSError.h"
#include "Platform/Object.h"
#include "Platform/Value.h"

namespace sevrin::platform {

// Names of resource values, as the platform spells them. They are those of a link itself, not of
// what it leads to.
inline constexpr std::string_view NSURLLocalizedNameKey = "NSURLLocalizedNameKey";  // string
inline constexpr std::string_view NSURLIsHiddenKey = "NSURLIsHiddenKey";            // boolean
inline constexpr std::string_view NSURLHasHiddenExtensionKey = "NSURLHasHiddenExtensionKey";
inline constexpr std::string_view NSURLIsExcludedFromBackupKey = "NSURLIsExcludedFromBackupKey";
inline constexpr std::string_view NSURLIsPackageKey = "NSURLIsPackageKey";
// An opaque object, equal for items of one mounted volume.
inline constexpr std::string_view NSURLVolumeIdentifierKey = "NSURLVolumeIdentifierKey";

class NSURL;
using NSURLPtr = std::shared_ptr<NSURL>;

class NSURL final : public Object {
    struct Passkey {};

public:
    // The URL of the item at `path`; a relative path is relative to the current folder at the time
    // of use. Nothing is asked of the file system.
    [[nodiscard]] static NSURLPtr fileURLWithPath(std::string_view path);

    // The URL that text spells ("file:///a%20b", also with the host "localhost"); nullptr when it
    // is no file URL, not well-formed, or its path has a NUL.
    [[nodiscard]] static NSURLPtr URLWithString(std::string_view text);

    // For the two above only.
    NSURL(Passkey, std::string path);

    [[nodiscard]] static Class& classObject();

    // The path's bytes.
    [[nodiscard]] const std::string& path() const { return path_; }

    // "file://" and the path, each byte that a URL cannot hold as %XX.
    [[nodiscard]] std::string absoluteString() const;

    // A value that this URL was given or has once fetched, else fetched now; or the POSIX error
    // with which that failed. A key that the system does not know gives null.
    [[nodiscard]] std::variant<Value, NSErrorPtr> resourceValueForKey(std::string_view key);

    // Writes a value to the item. nullptr on success, or the POSIX error: EINVAL for a value of the
    // wrong kind, ENOTSUP for what cannot be set here. Which that is, the system says: hidden items
    // have names that begin with a point, and no other way to be hidden, on every system but the
    // platform's own.
    [[nodiscard]] NSErrorPtr setResourceValueForKey(const Value& value, std::string_view key);

    // Forgets what was fetched.
    void removeAllCachedResourceValues();

    [[nodiscard]] const Class& isa() const override { return classObject(); }
    [[nodiscard]] std::string description() const override { return absoluteString(); }
    [[nodiscard]] bool isEqual(const Object& other) const override;
    [[nodiscard]] std::size_t hash() const override;

private:
    const std::string path_;
    std::mutex lock_;
    std::map<std::string, Value, std::less<>> cached_;
};

}  // namespace sevrin::platform
