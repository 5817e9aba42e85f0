// Fuzzes everything that a connection does with what its peer sends: receiving, cutting into
// frames, descriptors, CBOR, the check against the protocol, calling, and replies to its own
// requests.
//
// The first byte of an input says how it is sent (see Plan), the rest is the byte stream. A real
// connection over a socket pair is driven by hand on this thread; only taking it apart happens on
// the XPC thread, and is waited for. What is decoded must encode and decode to the same again.
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Assertion.h"
#include "Platform/Class.h"
#include "Platform/Protocol.h"
#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/WireValue.h"
#include "Platform/linux/XPCConnection.h"

namespace sevrin::platform {
namespace {

using Kind = ArgumentType::Kind;

const Protocol& protocol() {
    static const Protocol& theProtocol = *new Protocol(
        "Fuzzed", {},
        {{"s:", {{Kind::String}}, false, {}, true},
         {"d:", {{Kind::Dictionary, true}}, false, {}, true},
         {"n:", {{Kind::UnsignedInt32}}, false, {}, true},
         {"e:e:", {{Kind::Endpoint, true}, {Kind::Endpoint}}, false, {}, true},
         {"askS:withReply:", {{Kind::String}}, true, {{Kind::String}}, true},
         {"askD:withReply:", {{Kind::Dictionary}}, true, {{Kind::Dictionary}}, true},
         {"askE:withReply:", {{Kind::Endpoint}}, true, {{Kind::Endpoint, true}}, true}});
    return theProtocol;
}

// What can be decoded can be encoded, and is the same afterwards.
void checkRoundTrip(const Value& value) {
    if (value.object()) return;
    std::string bytes;
    wire::appendValue(bytes, value, nullptr);
    CborReader reader(bytes);
    Value again;
    SEVRIN_ASSERT(wire::readValue(reader, again, nullptr), "what was encoded can be decoded");
    SEVRIN_ASSERT(reader.atEnd() && again == value, "a value survives its own encoding");
}

// Answers every request with what it was asked, as often as it can.
class Sink : public Object {
public:
    [[nodiscard]] const Class& isa() const override {
        static const Class& theClass =
            *new Class("FuzzSink", &Object::classObject(), methodsOf(protocol()));
        return theClass;
    }

private:
    static Class::MethodTable methodsOf(const Protocol& offered) {
        Class::MethodTable methods;
        for (const MethodDescription* method : offered.allMethods())
            methods.emplace(method->selector, receive);
        return methods;
    }

    static Value receive(Object*, Invocation& invocation) {
        for (const Value& argument : invocation.arguments)
            checkRoundTrip(argument);
        if (!invocation.reply) return Value();
        const ValueArray answer{invocation.arguments.begin(), invocation.arguments.end()};
        invocation.reply(answer);
        invocation.reply(answer);
        return Value();
    }
};

// How the stream is sent, out of an input's first byte.
struct Plan {
    explicit Plan(std::uint8_t byte)
        : greets((byte & 0x01) != 0),
          chunkBytes(kChunkBytes[(byte >> 1) & 0x03]),
          descriptors((byte >> 3) & 0x0f),
          areEndpoints((byte & 0x80) == 0) {}

    static constexpr std::size_t kChunkBytes[] = {1 << 20, 4'096, 17, 1};

    bool greets;              // a proper greeting goes ahead of the stream
    std::size_t chunkBytes;   // of each send and receive
    std::size_t descriptors;  // sent with the first chunk
    bool areEndpoints;        // those descriptors are in order
};

// Sends `bytes` on `socket` with `count` copies of `descriptor`. False when the socket takes no
// more.
bool sendChunk(int socket, std::string_view bytes, std::size_t count, int descriptor) {
    constexpr std::size_t kDescriptorsMax = 16;
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(kDescriptorsMax * sizeof(int))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (count > 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(count * sizeof(int));
        for (std::size_t i = 0; i < count; ++i)
            std::memcpy(CMSG_DATA(header) + i * sizeof(int), &descriptor, sizeof descriptor);
    }
    const auto size = static_cast<ssize_t>(bytes.size());
    return ::sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) == size;
}

void feed(XPCConnection& connection, int socket, const Plan& plan, std::string_view stream) {
    static const int kEndpoint =
        ::fcntl(bootstrap::listenAnonymously().endpoint->fd(), F_DUPFD_CLOEXEC, 0);
    static const int kOther = ::open("/dev/null", O_RDONLY | O_CLOEXEC);

    std::size_t descriptors = plan.descriptors;
    while (!stream.empty()) {
        const std::string_view chunk = stream.substr(0, plan.chunkBytes);
        if (!sendChunk(socket, chunk, descriptors, plan.areEndpoints ? kEndpoint : kOther)) return;
        descriptors = 0;
        stream.remove_prefix(chunk.size());
        connection.handleEvents(EPOLLIN);
    }
}

void run(const Plan& plan, std::string_view stream) {
    int sockets[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) std::abort();
    UniqueFd ours(sockets[0]);
    const auto connection = std::make_shared<XPCConnection>(UniqueFd(sockets[1]));
    connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol(protocol()));
    connection->setExportedObject(std::make_shared<Sink>());
    std::promise<void> isApart;
    connection->setInvalidationHandler([&] { isApart.set_value(); });
    // Serials 1 and 2: questions that the stream may answer.
    for (const char* selector : {"askS:withReply:", "askD:withReply:"}) {
        const Value question = selector[3] == 'S' ? Value("?") : Value(Dictionary());
        connection->request(
            *protocol().method(selector), std::vector<Value>{question},
            [](const NSXPCConnection::Answer& answer) {
                const auto* values = std::get_if<ValueArray>(&answer);
                if (values) std::ranges::for_each(*values, checkRoundTrip);
            },
            std::nullopt);
    }

    std::string bytes;
    if (plan.greets) appendGreeting(bytes);
    bytes += stream;
    feed(*connection, ours.get(), plan, bytes);
    ours.reset();
    connection->handleEvents(EPOLLIN);

    connection->invalidate();
    isApart.get_future().wait();
}

}  // namespace
}  // namespace sevrin::platform

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    sevrin::platform::run(sevrin::platform::Plan(data[0]),
                          {reinterpret_cast<const char*>(data + 1), size - 1});
    return 0;
}
