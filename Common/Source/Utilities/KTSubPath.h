// A path held as a name within another path, which it keeps. Its own bytes are put together when
// somebody asks for them: most entries of a directory are never asked.
#pragma once

#include "Common/Source/Utilities/KTPath.h"

namespace sevrin {

class KTSubPath;
using KTSubPathPtr = std::shared_ptr<KTSubPath>;

class KTSubPath final : public KTPath {
public:
    // Takes the name over; the parent may not be nullptr.
    [[nodiscard]] static KTSubPathPtr initAssumingCNameParentPath(CStringPtr name,
                                                                  KTPathPtr parent);

    // A path without a parent: an archive holds the full path only. Throws what the coder throws.
    [[nodiscard]] static KTPathPtr initWithCoder(platform::NSCoder& coder);
    [[nodiscard]] static platform::Class& classObject();

    // For the above only.
    KTSubPath(Passkey, CStringPtr name, CStringPtr path, KTPathPtr parent,
              platform::NSURLPtr url = nullptr);

    [[nodiscard]] KTPathPtr copy() const override;

    [[nodiscard]] const char* cPath() const override;

    // The parent that is kept; nullptr when the path comes from an archive.
    [[nodiscard]] KTPathPtr parent() const override { return parentPath_; }

    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }

protected:
    [[nodiscard]] const char* cPath_nonblocking() const override;

private:
    const KTPathPtr parentPath_;
};

}  // namespace sevrin
