// Frames of the wire protocol, made by the platform's own encoder.
#include "bench/Wire.h"

#include "Platform/linux/WireValue.h"
#include "Platform/linux/XPCFrame.h"

namespace sevrin::bench {

namespace {

namespace wire = platform::wire;
using platform::FrameHeader;
using platform::FrameKind;
using platform::Value;
using platform::ValueArray;

std::string frame(FrameKind kind, std::uint64_t serial, std::uint16_t descriptors,
                  const std::string& body) {
    std::string bytes(FrameHeader::kBytes, '\0');
    FrameHeader{static_cast<std::uint32_t>(body.size()), kind, descriptors, serial}.write(
        bytes.data());
    return bytes + body;
}

std::string call(const ValueArray& values) {
    std::string body;
    wire::appendValue(body, Value(values), nullptr);
    return body;
}

// The endpoint with index 0, as a value of the body.
std::string endpointValue() {
    return std::string("\xd9\xc4\x9b\x00", 4);
}

const platform::Dictionary& userInfo() {
    static const platform::Dictionary theInfo{{"id", "com.example.backup.agent"}, {"count", 42}};
    return theInfo;
}

}  // namespace

std::string greeting() {
    std::string bytes;
    platform::appendGreeting(bytes);
    return bytes;
}

std::string query(std::string_view identifier, std::uint64_t serial) {
    return frame(FrameKind::Request, serial, 0,
                 call({"queryEndpointForIdentifier:withReply:", identifier}));
}

std::string publish(std::string_view identifier) {
    std::string body;
    wire::appendArrayHead(body, 3);
    wire::appendText(body, "publishEndpoint:forIdentifier:");
    body += endpointValue();
    wire::appendText(body, identifier);
    return frame(FrameKind::Message, 0, 1, body);
}

std::string redact(std::string_view identifier) {
    return frame(FrameKind::Message, 0, 0, call({"redactEndpointForIdentifier:", identifier}));
}

std::string barrier(std::uint64_t serial) {
    return frame(FrameKind::Request, serial, 0, call({"barrierWithCompletion:"}));
}

std::string subscribe(std::string_view observer, std::string_view name) {
    return frame(FrameKind::Message, 0, 0,
                 call({"addProxyObserver:forName:source:", observer, name, nullptr}));
}

std::string post(std::string_view name, std::string_view source) {
    return frame(FrameKind::Message, 0, 0,
                 call({"postNotificationName:source:userInfo:", name, source, userInfo()}));
}

std::string queryReply(std::uint64_t serial) {
    std::string body;
    wire::appendArrayHead(body, 1);
    return frame(FrameKind::Reply, serial, 1, body + endpointValue());
}

std::string barrierReply(std::uint64_t serial) {
    return frame(FrameKind::Reply, serial, 0, call({}));
}

std::string delivery(std::string_view observer, std::string_view name, std::string_view source) {
    return frame(FrameKind::Message, 0, 0,
                 call({"forwardToObserver:notification:fromSource:withInfo:", observer, name,
                       source, userInfo()}));
}

}  // namespace sevrin::bench
