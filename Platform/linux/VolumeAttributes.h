// The attributes of a volume as a whole: sizes, name, UUID, capabilities, attribute sets.
//
// A report lives for one call of the platform, on one thread, and owns what its facts point to.
#pragma once

#include <array>

#include "Platform/MountTable.h"
#include "Platform/linux/MountInfo.h"
#include "Platform/linux/ObjectFacts.h"

namespace sevrin::platform {

class VolumeReport {
public:
    // Finds out what `wanted` asks for of the volume whose root, the object behind `fd`, `root`
    // tells of; false with errno when its figures cannot be had.
    [[nodiscard]] bool fill(int fd, const struct statx& root, attrgroup_t wanted) noexcept;

    [[nodiscard]] const VolumeFacts& facts() const noexcept { return facts_; }

    // Which of the attributes the volume has.
    [[nodiscard]] attrgroup_t known() const noexcept { return known_; }

private:
    void addFiguresOfVolume() noexcept;
    void addIdentity(int root, const MountEntry& mount, attrgroup_t wanted);

    VolumeFacts facts_;
    attrgroup_t known_ = 0;
    struct statfs record_;
    std::array<char, 256> label_;
};

}  // namespace sevrin::platform
