// File URLs: their text, and the values they remember.
#include "Platform/NSURL.h"

#include <cerrno>
#include <functional>
#include <optional>
#include <utility>

#include "Platform/PosixError.h"
#include "Platform/ResourceValues.h"

namespace sevrin::platform {

namespace {

constexpr std::string_view kScheme = "file:";
constexpr std::string_view kDigits = "0123456789ABCDEF";

// What may stand in the path of a URL as it is.
bool isPlain(char byte) {
    const bool isLetterOrDigit = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                                 (byte >= '0' && byte <= '9');
    return isLetterOrDigit || std::string_view("/-._~!$&'()*+,=:@").find(byte) != kScheme.npos;
}

std::optional<unsigned> digit(char character) {
    const char upper =
        character >= 'a' && character <= 'f' ? static_cast<char>(character - 32) : character;
    const std::size_t found = kDigits.find(upper);
    if (found == kDigits.npos) return std::nullopt;
    return static_cast<unsigned>(found);
}

// The bytes that percent-encoded text stands for; nothing when an escape is cut off or no number,
// when a byte is NUL, or when the text goes on behind the path.
std::optional<std::string> withoutEscapes(std::string_view text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char byte = text[i];
        if (byte == '?' || byte == '#') return std::nullopt;
        if (byte == '%') {
            if (text.size() - i < 3) return std::nullopt;
            const std::optional<unsigned> high = digit(text[i + 1]);
            const std::optional<unsigned> low = digit(text[i + 2]);
            if (!high || !low) return std::nullopt;
            byte = static_cast<char>(*high * 16 + *low);
            i += 2;
        }
        if (byte == '\0') return std::nullopt;
        bytes += byte;
    }
    return bytes;
}

}  // namespace

NSURLPtr NSURL::fileURLWithPath(std::string_view path) {
    return std::make_shared<NSURL>(Passkey{}, std::string(path));
}

NSURLPtr NSURL::URLWithString(std::string_view text) {
    if (!text.starts_with(kScheme)) return nullptr;
    text.remove_prefix(kScheme.size());
    if (text.starts_with("//")) {
        text.remove_prefix(2);
        const std::string_view host = text.substr(0, text.find('/'));
        if (!host.empty() && host != "localhost") return nullptr;
        text.remove_prefix(host.size());
    }
    if (!text.starts_with('/')) return nullptr;
    const std::optional<std::string> path = withoutEscapes(text);
    return path ? fileURLWithPath(*path) : nullptr;
}

NSURL::NSURL(Passkey, std::string path) : path_(std::move(path)) {}

Class& NSURL::classObject() {
    static Class& theClass = *new Class("NSURL", &Object::classObject(), {});
    return theClass;
}

std::string NSURL::absoluteString() const {
    std::string text = "file://";
    for (const char byte : path_) {
        if (isPlain(byte)) {
            text += byte;
        } else {
            const auto number = static_cast<unsigned char>(byte);
            text += {'%', kDigits[number / 16], kDigits[number % 16]};
        }
    }
    return text;
}

std::variant<Value, NSErrorPtr> NSURL::resourceValueForKey(std::string_view key) {
    const std::lock_guard guard(lock_);
    if (const auto found = cached_.find(key); found != cached_.end()) return found->second;
    std::optional<Value> value = readResourceValue(path_, key);
    if (!value) return posixError(errno, path_);
    return cached_.emplace(key, std::move(*value)).first->second;
}

NSErrorPtr NSURL::setResourceValueForKey(const Value& value, std::string_view key) {
    const std::lock_guard guard(lock_);
    if (writeResourceValue(path_, key, value) != 0) return posixError(errno, path_);
    cached_.insert_or_assign(std::string(key), value);
    return nullptr;
}

void NSURL::removeAllCachedResourceValues() {
    const std::lock_guard guard(lock_);
    cached_.clear();
}

bool NSURL::isEqual(const Object& other) const {
    const auto* url = dynamic_cast<const NSURL*>(&other);
    return url != nullptr && url->path_ == path_;
}

std::size_t NSURL::hash() const {
    return std::hash<std::string>()(path_);
}

}  // namespace sevrin::platform
