// What an XFS volume was made with, as its driver tells. The layout is the kernel's, which keeps
// it.
#pragma once

#include <sys/ioctl.h>

#include <cstdint>
#include <optional>

namespace sevrin::platform {

struct XfsGeometry {
    std::uint32_t blockSize, rtExtentSize, groupBlocks, groups, logBlocks, sectorSize, inodeSize,
        inodesMax;
    std::uint64_t dataBlocks, rtBlocks, rtExtents, logStart;
    unsigned char uuid[16];
    std::uint32_t stripeUnit, stripeWidth;
    std::int32_t version;
    std::uint32_t flags;
    std::uint32_t logSectorSize, rtSectorSize, directoryBlockSize;
};

inline constexpr std::uint32_t kXfsFoldsCase = 1U << 12;
inline constexpr std::uint32_t kXfsSharesBlocks = 1U << 20;

// Of the volume that the object open at `fd` is on; nothing when that is not XFS.
[[nodiscard]] inline std::optional<XfsGeometry> xfsGeometry(int fd) noexcept {
    constexpr unsigned long kGetGeometry = _IOR('X', 100, XfsGeometry);
    XfsGeometry geometry{};
    if (::ioctl(fd, kGetGeometry, &geometry) != 0) return std::nullopt;
    return geometry;
}

}  // namespace sevrin::platform
