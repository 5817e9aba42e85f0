// A named folder within another location.
//
// Locations lie within locations to any depth, in archives from elsewhere to an absurd one: nothing
// here recurses.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/SVPath.h"

namespace sevrin {

class SVSubPath;
using SVSubPathPtr = std::shared_ptr<SVSubPath>;

class SVSubPath final : public SVPath {
public:
    // `enclosing` may not be nullptr.
    [[nodiscard]] static SVSubPathPtr initWithNameInPath(std::string_view name,
                                                         SVPathPtr enclosing);
    [[nodiscard]] static SVSubPathPtr initWithNameInPathWithAttributes(std::string_view name,
                                                                       SVPathPtr enclosing,
                                                                       Attributes attributes);

    // For the factories only.
    SVSubPath(Passkey key, std::string name, SVPathPtr enclosing, Attributes attributes);
    ~SVSubPath() override;

    [[nodiscard]] const SVPathPtr& enclosingPath() const { return enclosingPath_; }
    [[nodiscard]] const std::string& folderName() const { return folderName_; }

    [[nodiscard]] std::optional<std::string> constructPath() override;

    [[nodiscard]] static SVSubPathPtr initWithCoder(platform::NSCoder& coder);
    void encodeWithCoder(platform::NSCoder& coder) const override;
    [[nodiscard]] static platform::Class& classObject();
    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }

protected:
    void createAll(MadeFolders& made) override;

private:
    // The locations named by a folder that enclose this one, the outermost first, this one last.
    [[nodiscard]] std::vector<SVSubPath*> chain();

    SVPathPtr enclosingPath_;
    std::string folderName_;
};

}  // namespace sevrin
