// The platform's error: its texts, its equality, its archived form.
#include "Platform/NSError.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <mutex>
#include <utility>

#include "Platform/DeferredRelease.h"
#include "Platform/DescriptionScope.h"
#include "Platform/Format.h"
#include "Platform/SafeDescription.h"

namespace sevrin::platform {

namespace {

// Errors may be nested, and in an archive made to do harm any number of times, one error below
// many. What lies deeper, or costs more, than anybody means is compared by identity.
constexpr int kComparedLevelsMax = 32;
constexpr int kComparisonsMax = 10'000;

// Counts the comparisons within one comparison. Each outermost one starts anew, so that comparing
// the same two errors always gives the same answer.
class Comparison {
public:
    Comparison() {
        if (level++ == 0) count = 0;
        ++count;
    }
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;
    ~Comparison() { --level; }

    [[nodiscard]] static bool isTooMuch() {
        return level > kComparedLevelsMax || count > kComparisonsMax;
    }

private:
    static thread_local int level;
    static thread_local int count;
};

thread_local int Comparison::level = 0;
thread_local int Comparison::count = 0;

constexpr std::string_view kDomainKey = "NSDomain";
constexpr std::string_view kCodeKey = "NSCode";
constexpr std::string_view kUserInfoKey = "NSUserInfo";

// Archives know the class before the program has made an error.
[[maybe_unused]] const Class& theRegisteredClass = NSError::classObject();

}  // namespace

NSErrorPtr NSError::errorWithDomainCodeUserInfo(std::string_view domain, std::int64_t code,
                                                std::optional<Dictionary> userInfo) {
    return std::make_shared<NSError>(Passkey(), std::string(domain), code, std::move(userInfo));
}

NSError::NSError(Passkey, std::string domain, std::int64_t code, std::optional<Dictionary> userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

NSError::~NSError() {
    if (userInfo_) releaseWithoutRecursion(std::move(*userInfo_));
}

Class& NSError::classObject() {
    static NSCodingClass& theClass =
        *new NSCodingClass("NSError", &Object::classObject(), &NSError::initWithCoder);
    return theClass;
}

const Dictionary& NSError::userInfo() const {
    static const Dictionary& theEmpty = *new Dictionary;
    return userInfo_ ? *userInfo_ : theEmpty;
}

std::string NSError::localizedDescription() const {
    const Value* const given = userInfo().find(NSLocalizedDescriptionKey);
    if (given != nullptr && given->ifString() != nullptr) return *given->ifString();
    if (std::optional<std::string> reason = localizedFailureReason()) return std::move(*reason);
    return stringWithFormat("%@ error %ld", domain_, code_);
}

std::optional<std::string> NSError::localizedFailureReason() const {
    const Value* const given = userInfo().find(NSLocalizedFailureReasonErrorKey);
    if (given != nullptr && given->ifString() != nullptr) return *given->ifString();
    if (domain_ != NSPOSIXErrorDomain || !std::in_range<std::int32_t>(code_)) return std::nullopt;
    return errorNumberText(static_cast<std::int32_t>(code_));
}

std::string NSError::description() const {
    const DescriptionScope scope(this);
    std::string text = stringWithFormat("Error Domain=%@ Code=%ld \"%@\"", domain_, code_,
                                        withoutExcess(localizedDescription()));
    if (userInfo().empty()) return text;
    if (!scope.mayDescribeContents()) return text.append(" UserInfo={...}");
    std::string_view separator = " UserInfo={";
    for (const auto& [key, value] : userInfo()) {
        text += separator;
        separator = ", ";
        if (DescriptionScope::isFull()) {
            text += kEllipsis;
            break;
        }
        const std::size_t before = text.size();
        appendSafeDescription(text, key);
        text += '=';
        appendSafeDescription(text, value);
        DescriptionScope::noteText(text.size() - before);
    }
    return text += '}';
}

bool NSError::isEqual(const Object& other) const {
    if (this == &other) return true;
    const auto* const error = dynamic_cast<const NSError*>(&other);
    if (error == nullptr || domain_ != error->domain_ || code_ != error->code_) return false;
    const Comparison comparison;
    return !Comparison::isTooMuch() && userInfo() == error->userInfo();
}

std::size_t NSError::hash() const {
    return std::hash<std::string>{}(domain_) ^ std::hash<std::int64_t>{}(code_);
}

void NSError::encodeWithCoder(NSCoder& coder) const {
    const Value info = userInfo_ ? Value(*userInfo_) : Value();
    if (coder.allowsKeyedCoding()) {
        coder.encodeObjectForKey(domain_, kDomainKey);
        coder.encodeInt64ForKey(code_, kCodeKey);
        coder.encodeObjectForKey(info, kUserInfoKey);
    } else {
        coder.encodeObject(domain_);
        coder.encodeObject(code_);
        coder.encodeObject(info);
    }
}

ObjectPtr NSError::initWithCoder(NSCoder& coder) {
    const bool hasKeys = coder.allowsKeyedCoding();
    const Value domain = hasKeys ? coder.decodeObjectForKey(kDomainKey) : coder.decodeObject();
    const Value code = hasKeys ? Value(coder.decodeInt64ForKey(kCodeKey)) : coder.decodeObject();
    const Value info = hasKeys ? coder.decodeObjectForKey(kUserInfoKey) : coder.decodeObject();
    if (domain.ifString() == nullptr) coder.failDecoding("the domain of an error is no text");
    if (code.ifSigned() == nullptr) coder.failDecoding("the code of an error is no number");
    if (!info.isNull() && info.ifDictionary() == nullptr) {
        coder.failDecoding("the user info of an error is no dictionary");
    }
    return errorWithDomainCodeUserInfo(
        *domain.ifString(), *code.ifSigned(),
        info.isNull() ? std::nullopt : std::optional(*info.ifDictionary()));
}

// The standard's own function gives every thread the same buffer on some systems.
std::string errorNumberText(std::int32_t number) {
    static std::mutex& theLock = *new std::mutex;
    const int errorNumber = errno;
    const std::lock_guard guard(theLock);
    std::string text = std::strerror(number);
    errno = errorNumber;
    return text;
}

}  // namespace sevrin::platform
