// A component with a protocol of its own, served and called by way of the installed library.
//
// Prints what the component answers, and how a mistake is told.
#include <chrono>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "Platform/Class.h"
#include "Platform/SelectorMethod.h"
#include "client/CustomProtocol.h"
#include "client/Switchboard.h"
#include "switchboard/SwitchboardProtocols.h"

namespace {

using namespace sevrin;
using namespace std::chrono_literals;
using platform::ArgumentType;

constexpr const char* kAdd = "add:to:withReply:";

const platform::Protocol& addingProtocol() {
    static const platform::Protocol protocol(
        "Adding", {},
        {{.selector = kAdd,
          .arguments = {{ArgumentType::Kind::UnsignedInt32}, {ArgumentType::Kind::String}},
          .hasReply = true,
          .replies = {{ArgumentType::Kind::String}}}});
    return protocol;
}

class Adder final : public platform::Object {
public:
    [[nodiscard]] static platform::Class& classObject() {
        static platform::Class theClass(
            "Adder", &platform::Object::classObject(),
            {{kAdd, platform::selectorMethod<Adder>(&Adder::addToWithReply)}});
        return theClass;
    }
    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }

    void addToWithReply(std::uint32_t number, const std::string& text,
                        std::function<void(std::string)> reply) {
        reply(text + std::to_string(number));
    }
};

}  // namespace

int main() {
    ProtocolServer server(addingProtocol(), [](const auto&) { return std::make_shared<Adder>(); });
    ProtocolClient client(addingProtocol(), server.endpoint(), {});
    client.startAndWait(5s);

    const auto answer = client.call(kAdd, {7u, "number "}, 5s);
    if (!answer) return std::cerr << answer.error().description << "\n", 1;
    std::cout << *answer->front().ifString() << "\n";

    // Objects of the library's own classes keep their class on the way out of it and in again.
    const platform::Value value(server.endpoint());
    const bool isEndpoint = value.object<platform::NSXPCListenerEndpoint>() == server.endpoint();
    std::cout << (isEndpoint && value == platform::Value(server.endpoint())) << "\n";
    try {
        (void)client.call("subtract:", {}, 5s);
    } catch (const std::invalid_argument& mistake) {
        std::cout << "told: " << mistake.what() << "\n";
    }
}
