// Notifications to CBOR and back.
#include "Platform/linux/NotificationDatagram.h"

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/linux/WireValue.h"

namespace sevrin::platform {
namespace {

constexpr std::uint64_t kVersion = 1;
constexpr std::size_t kFields = 5;

bool readUnsigned(CborReader& reader, std::uint64_t& number) {
    CborItem item;
    if (!reader.next(item) || item.type != CborItem::Type::Unsigned) return false;
    number = item.number;
    return true;
}

bool readText(CborReader& reader, std::string& text) {
    Value value;
    if (!wire::readValue(reader, value, nullptr) || !value.ifString()) return false;
    text = *value.ifString();
    return true;
}

bool readObject(CborReader& reader, std::optional<std::string>& object) {
    Value value;
    if (!wire::readValue(reader, value, nullptr)) return false;
    if (value.isNull()) return true;
    if (!value.ifString()) return false;
    object = *value.ifString();
    return true;
}

bool readUserInfo(CborReader& reader, Value& userInfo) {
    return wire::readValue(reader, userInfo, nullptr) &&
           (userInfo.isNull() || userInfo.ifDictionary());
}

}  // namespace

std::string encodeNotification(const PostedNotification& posted) {
    const auto& [notification, options] = posted;
    std::string bytes;
    wire::appendArrayHead(bytes, kFields);
    wire::appendUnsigned(bytes, kVersion);
    wire::appendText(bytes, notification.name);
    wire::appendValue(bytes, notification.object ? Value(*notification.object) : Value(), nullptr);
    try {
        wire::appendValue(bytes, notification.userInfo, nullptr);
    } catch (const std::length_error& error) {
        throw std::invalid_argument("the user info of the notification '" + notification.name +
                                    "': " + error.what());
    }
    wire::appendUnsigned(bytes, options);

    if (bytes.size() > NSDistributedNotificationCenter::kNotificationBytesMax) {
        throw std::invalid_argument("the notification '" + notification.name +
                                    "' is too large: " + std::to_string(bytes.size()) + " bytes");
    }
    // Better refused here, where somebody can tell why, than dropped by every receiver.
    if (!decodeNotification(bytes)) {
        throw std::invalid_argument("the user info of the notification '" + notification.name +
                                    "' is no dictionary");
    }
    return bytes;
}

std::optional<PostedNotification> decodeNotification(std::string_view bytes) {
    CborReader reader(bytes);
    CborItem head;
    if (!reader.next(head) || head.type != CborItem::Type::Array || head.number != kFields) {
        return std::nullopt;
    }
    PostedNotification posted;
    std::uint64_t version = 0;
    std::uint64_t options = 0;
    const bool isSound = readUnsigned(reader, version) && version == kVersion &&
                         readText(reader, posted.notification.name) &&
                         readObject(reader, posted.notification.object) &&
                         readUserInfo(reader, posted.notification.userInfo) &&
                         readUnsigned(reader, options) && reader.atEnd() &&
                         options <= std::numeric_limits<unsigned>::max();
    if (!isSound) return std::nullopt;
    posted.options = static_cast<unsigned>(options);
    return posted;
}

}  // namespace sevrin::platform
