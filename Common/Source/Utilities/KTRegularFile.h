// The item of a regular file: its sizes and links beside the attributes of all items.
#pragma once

#include <optional>
#include <string_view>

#include "Common/Source/Utilities/KTFileInfo.h"

namespace sevrin {

using KTRegularFilePtr = std::shared_ptr<KTRegularFile>;

class KTRegularFile : public KTFileInfo {
public:
    using KTFileInfo::KTFileInfo;

    // The file at the path; nullptr when nothing is there. When something else is there, raises an
    // exception of the name "IO" with the reason; without a reason that, too, gives nullptr.
    [[nodiscard]] static KTRegularFilePtr regularInfoForPathObjectThrowingException(
        const KTPathPtr& path, std::optional<std::string_view> reason);

    // The same with the reason "expected regular file".
    [[nodiscard]] static KTRegularFilePtr regularInfoForPathObject(const KTPathPtr& path);

    [[nodiscard]] bool isDirectory() const noexcept override { return false; }
    [[nodiscard]] bool isRegularFile() const noexcept override { return true; }
    [[nodiscard]] bool isSymbolicLink() const noexcept override { return false; }
    [[nodiscard]] bool isPersistentObject() const noexcept override { return true; }
    [[nodiscard]] KTRegularFilePtr asRegularFile() override;

    // Names of the file.
    [[nodiscard]] std::uint32_t linkCount() const override;

    // Bytes: of all forks, as read; allocated; of the data fork.
    [[nodiscard]] std::int64_t logicalSize() const;
    [[nodiscard]] std::int64_t physicalSize() const;
    [[nodiscard]] virtual std::int64_t dataLength() const;

    [[nodiscard]] std::size_t commonAttrSize() const noexcept override;
    [[nodiscard]] std::string logTypeDescription() const override { return "file"; }

protected:
    std::size_t prepareAttrRequest(platform::attrlist& list) const override;
    const std::byte* parseAttrsSet(const std::byte* data,
                                   const platform::attribute_set_t* returned) const override;

private:
    template <typename Field>
    [[nodiscard]] Field fileAttribute(Field KTRegularFileAttrs::*field) const;

    mutable KTRegularFileAttrs fileAttrs_{};  // under attrLock_
};

}  // namespace sevrin
