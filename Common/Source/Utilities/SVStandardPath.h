// A standard folder of the system, by its number and the domain that it is looked for in.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Common/Source/Utilities/SVPath.h"

namespace sevrin {

class SVStandardPath;
using SVStandardPathPtr = std::shared_ptr<SVStandardPath>;

class SVStandardPath final : public SVPath {
public:
    // Numbers and masks are those of Platform/SearchPath.h; without a mask the user's domain. Of
    // several domains the user's counts.
    [[nodiscard]] static SVStandardPathPtr initWithStandardDirectory(std::uint64_t directory);
    [[nodiscard]] static SVStandardPathPtr initWithStandardDirectoryInDomainsWithAttributes(
        std::uint64_t directory, std::uint64_t domainMask, Attributes attributes);

    // For the factories only.
    SVStandardPath(Passkey key, std::uint64_t directory, std::uint64_t domainMask,
                   Attributes attributes);

    [[nodiscard]] std::uint64_t standardDirectory() const { return standardDirectory_; }
    [[nodiscard]] std::uint64_t domainMask() const { return domainMask_; }

    [[nodiscard]] std::optional<std::string> constructPath() override;

    [[nodiscard]] static SVStandardPathPtr initWithCoder(platform::NSCoder& coder);
    void encodeWithCoder(platform::NSCoder& coder) const override;
    [[nodiscard]] static platform::Class& classObject();
    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }

    // The home folder that a program at this path works for if it has the set-user-id bit: the one
    // in whose Library/Application Support/Sevrin it lies, for there a tool is the owner's of that
    // home, whoever runs it; otherwise the folder that it lies in. Nothing without the bit, for a
    // link, and when the root of the file system would come out.
    [[nodiscard]] static std::optional<std::string> homeForProgram(const std::string& path);

private:
    std::uint64_t standardDirectory_;
    std::uint64_t domainMask_;
};

}  // namespace sevrin
