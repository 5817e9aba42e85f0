// The item of a symbolic link: the link itself, never what it leads to.
//
// It has the size attributes of a file, those of the link; of files it is none.
#pragma once

#include "Common/Source/Utilities/CString.h"
#include "Common/Source/Utilities/KTRegularFile.h"

namespace sevrin {

class KTSymbolicLink final : public KTRegularFile {
public:
    using KTRegularFile::KTRegularFile;

    [[nodiscard]] bool isRegularFile() const noexcept override { return false; }
    [[nodiscard]] bool isSymbolicLink() const noexcept override { return true; }
    [[nodiscard]] KTRegularFilePtr asRegularFile() override { return nullptr; }
    [[nodiscard]] std::shared_ptr<KTSymbolicLink> asSymbolicLink() override;

    // The text of the link, at most its first 1,025 bytes; read once. The item's, until the text is
    // set. Raises "cannot read content of symbolic link".
    [[nodiscard]] const char* contents() const;

    // Replaces the link by one of that text, which may not be nullptr. Raises what deleting raises,
    // and "cannot write content of symbolic link", when the old link is gone already.
    void setContents(const char* text);

    // The bytes of the text; there is no other fork.
    [[nodiscard]] std::int64_t dataLength() const override;
    [[nodiscard]] std::int64_t totalLength() const { return dataLength(); }
    [[nodiscard]] std::int64_t rsrcLength() const noexcept { return 0; }

    // The volume that holds the link.
    [[nodiscard]] KTVolumeInfoPtr volumeInfo() const override;

    [[nodiscard]] std::string logTypeDescription() const override { return "link"; }

private:
    mutable CStringPtr contents_;  // under attrLock_
};

}  // namespace sevrin
