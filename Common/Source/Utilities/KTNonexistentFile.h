// The item of a path at which nothing is. It asks the file system nothing; its attributes are zero.
#pragma once

#include "Common/Source/Utilities/KTFileInfo.h"

namespace sevrin {

class KTNonexistentFile final : public KTFileInfo {
public:
    using KTFileInfo::KTFileInfo;

    // The item; its type is 0.
    [[nodiscard]] static KTFileInfoPtr initWithPathObject(const KTPathPtr& path);

    [[nodiscard]] bool exists() const noexcept override { return false; }
    [[nodiscard]] std::uint32_t linkCount() const override { return 0; }

    [[nodiscard]] KTVolumeInfoPtr volumeInfo() const override { return nullptr; }

    // That of the directory above the directory item that stands for the path; 0 without one.
    [[nodiscard]] std::int32_t deviceID() const override;

    [[nodiscard]] std::optional<platform::NSDate> createdDate() const override { return {}; }
    [[nodiscard]] std::optional<platform::NSDate> modifiedDate() const override { return {}; }
    [[nodiscard]] std::optional<platform::NSDate> attributeChangedDate() const override {
        return {};
    }

protected:
    void getCommonAttrs() const override {}
};

}  // namespace sevrin
