// Sixteen bytes that name something for good.
//
// Immutable; on any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Object.h"

namespace sevrin::platform {

class NSUUID final : public Object {
public:
    using Bytes = std::array<std::uint8_t, 16>;

    explicit NSUUID(const Bytes& bytes) : bytes_(bytes) {}

    // Of exactly sixteen bytes; nullptr for any other number.
    [[nodiscard]] static std::shared_ptr<NSUUID> initWithUUIDBytes(std::string_view bytes);

    [[nodiscard]] const Bytes& bytes() const { return bytes_; }

    // "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
    [[nodiscard]] std::string UUIDString() const;

    [[nodiscard]] static Class& classObject();
    [[nodiscard]] const Class& isa() const override;
    [[nodiscard]] std::string description() const override { return UUIDString(); }
    [[nodiscard]] bool isEqual(const Object& other) const override;
    [[nodiscard]] std::size_t hash() const override;

private:
    const Bytes bytes_;
};

}  // namespace sevrin::platform
