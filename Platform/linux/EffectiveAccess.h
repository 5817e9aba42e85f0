// What the calling user may do with objects of one directory, worked out from mode and ids.
//
// The kernel is asked only where these do not decide: an access control list may, the object is the
// root of another mount, or the privileges are those of a user namespace. Lives for one call of the
// platform, on one thread; what it learnt of the caller goes with it.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <optional>

namespace sevrin::platform {

class EffectiveAccess {
public:
    // For objects on the mount of the object behind `fd`, which is borrowed.
    explicit EffectiveAccess(int fd) noexcept;

    // R_OK, W_OK and X_OK for the object `name` in the directory `dirfd`, or for that behind
    // `dirfd` itself when the name is empty. `stat` is what the kernel told of it.
    [[nodiscard]] std::uint32_t of(int dirfd, const char* name, const struct statx& stat) noexcept;

private:
    [[nodiscard]] std::uint32_t rightsOfPrivilege(std::uint32_t mode) noexcept;
    [[nodiscard]] bool hasPrivilege(unsigned number) noexcept;
    [[nodiscard]] bool isInUserNamespace() noexcept;
    [[nodiscard]] bool isInGroup(std::uint32_t group) noexcept;
    [[nodiscard]] bool mayHaveAcl(int dirfd, const char* name) noexcept;

    std::uint32_t user_;
    bool isReadOnly_ = false;
    bool isNoExec_ = false;
    bool hasNoAcls_ = false;
    bool isInAskedGroup_ = false;
    std::optional<std::uint32_t> askedGroup_;
    // Found out once they matter.
    std::optional<std::uint32_t> capabilities_;
    std::optional<bool> isInUserNamespace_;
};

}  // namespace sevrin::platform
