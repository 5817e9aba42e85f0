// The UUID and the label of a volume, from the cheapest source that knows them: the file system's
// driver, the links that the device manager keeps, the bytes on the device.
//
// Works on borrowed descriptors. Throws std::bad_alloc at most.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/linux/FileSystemKind.h"
#include "Platform/linux/MountInfo.h"

namespace sevrin::platform {

using UuidBytes = std::array<unsigned char, 16>;

// Of the volume whose root is open for reading at `root` (-1 where it could not be opened). A
// volume whose identity ends with the mount has no UUID, whatever its driver says, nor has one
// whose format keeps something shorter.
[[nodiscard]] std::optional<UuidBytes> uuidOfVolume(int root, const MountEntry& mount,
                                                    const FileSystemKind& kind);

// Its label; nothing when it has none.
[[nodiscard]] std::optional<std::string> labelOfVolume(int root, const MountEntry& mount,
                                                       const FileSystemKind& kind);

// The bytes of "0fd9ce46-1ba7-4dd6-9a2e-4a06b1e1f2b3", in either case; nothing for other texts.
[[nodiscard]] std::optional<UuidBytes> parseUuid(std::string_view text) noexcept;

// The name of the link in `folder` ("/dev/disk/by-uuid") that leads to the device, its escapes
// (\x20) resolved.
[[nodiscard]] std::optional<std::string> linkToDevice(const char* folder, unsigned major,
                                                      unsigned minor);

// What the bytes at `path`, a device or an image, say in the field "UUID" or "LABEL". Needs the
// right to read them.
[[nodiscard]] std::optional<std::string> fieldOnDevice(const char* path, const char* field);

}  // namespace sevrin::platform
