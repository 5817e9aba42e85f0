// The platform's error: a code within a domain, and a dictionary of what is known beyond that.
//
// Immutable, so any thread may use it. Unlike an exception it is handed around, not thrown: it is
// how one service of the system tells another what went wrong.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Class.h"
#include "Platform/NSCoder.h"
#include "Platform/Object.h"
#include "Platform/Value.h"

namespace sevrin::platform {

// Domains: what a code is a number of, as the platform spells them. The numbers of the first are
// those of errno.
inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view NSOSStatusErrorDomain = "NSOSStatusErrorDomain";
inline constexpr std::string_view NSURLErrorDomain = "NSURLErrorDomain";
inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";

// Keys of the user info, as the platform spells them.
inline constexpr std::string_view NSLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr std::string_view NSLocalizedFailureReasonErrorKey = "NSLocalizedFailureReason";
inline constexpr std::string_view NSUnderlyingErrorKey = "NSUnderlyingError";
inline constexpr std::string_view NSFilePathErrorKey = "NSFilePath";
inline constexpr std::string_view NSURLErrorFailingURLStringErrorKey = "NSErrorFailingURLStringKey";

class NSError;
using NSErrorPtr = std::shared_ptr<NSError>;

class NSError final : public Object, public NSCoding {
    struct Passkey {};

public:
    // A new error. The user info may be absent, which differs from an empty one in archives only.
    [[nodiscard]] static NSErrorPtr errorWithDomainCodeUserInfo(
        std::string_view domain, std::int64_t code,
        std::optional<Dictionary> userInfo = std::nullopt);

    // For errorWithDomainCodeUserInfo() only.
    NSError(Passkey, std::string domain, std::int64_t code, std::optional<Dictionary> userInfo);

    ~NSError() override;

    // Reads what encodeWithCoder() wrote. Throws what the coder throws.
    [[nodiscard]] static ObjectPtr initWithCoder(NSCoder& coder);

    // The class "NSError".
    [[nodiscard]] static Class& classObject();

    [[nodiscard]] const std::string& domain() const { return domain_; }
    [[nodiscard]] std::int64_t code() const { return code_; }

    // Empty when there is none.
    [[nodiscard]] const Dictionary& userInfo() const;
    [[nodiscard]] bool hasUserInfo() const { return userInfo_.has_value(); }

    // What went wrong, for people: what the user info says; else the failure reason; else domain
    // and code. Never empty unless the user info says so.
    [[nodiscard]] std::string localizedDescription() const;

    // Why: what the user info says; else, in the POSIX domain, the system's text for the number;
    // else nothing.
    [[nodiscard]] std::optional<std::string> localizedFailureReason() const;

    [[nodiscard]] const Class& isa() const override { return classObject(); }

    // All of it on one line.
    [[nodiscard]] std::string description() const override;

    // Equal in domain, code and user info. Errors nested beyond all reason are compared by
    // identity.
    [[nodiscard]] bool isEqual(const Object& other) const override;
    [[nodiscard]] std::size_t hash() const override;

    // Keyed or in sequence: domain, code and user info, each present even when null.
    void encodeWithCoder(NSCoder& coder) const override;

private:
    const std::string domain_;
    const std::int64_t code_;
    std::optional<Dictionary> userInfo_;  // Changes only in the destructor.
};

// The system's text for a number of errno; a text that names the number when it has none. On any
// thread.
[[nodiscard]] std::string errorNumberText(std::int32_t number);

}  // namespace sevrin::platform
