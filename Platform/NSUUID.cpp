// A UUID as bytes and as text.
#include "Platform/NSUUID.h"

#include <algorithm>
#include <functional>

#include "Platform/Class.h"

namespace sevrin::platform {

std::shared_ptr<NSUUID> NSUUID::initWithUUIDBytes(std::string_view bytes) {
    Bytes content;
    if (bytes.size() != content.size()) return nullptr;
    std::copy(bytes.begin(), bytes.end(), content.begin());
    return std::make_shared<NSUUID>(content);
}

std::string NSUUID::UUIDString() const {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t place = 0; place < bytes_.size(); ++place) {
        if (place == 4 || place == 6 || place == 8 || place == 10) text += '-';
        text += kDigits[bytes_[place] >> 4];
        text += kDigits[bytes_[place] & 0xF];
    }
    return text;
}

Class& NSUUID::classObject() {
    static Class& theClass = *new Class("NSUUID", &Object::classObject(), {});
    return theClass;
}

const Class& NSUUID::isa() const {
    return classObject();
}

bool NSUUID::isEqual(const Object& other) const {
    const auto* uuid = dynamic_cast<const NSUUID*>(&other);
    return uuid != nullptr && uuid->bytes_ == bytes_;
}

std::size_t NSUUID::hash() const {
    const auto* const characters = reinterpret_cast<const char*>(bytes_.data());
    return std::hash<std::string_view>{}({characters, bytes_.size()});
}

}  // namespace sevrin::platform
