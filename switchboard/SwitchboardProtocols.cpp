// The contract between the switchboard and its clients, as data for the connections that enforce
// it.
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

using platform::ArgumentType;
using platform::MethodDescription;
using platform::Protocol;

namespace {

constexpr ArgumentType kString{ArgumentType::Kind::String};
constexpr ArgumentType kStringOrNull{ArgumentType::Kind::String, true};
constexpr ArgumentType kDictionaryOrNull{ArgumentType::Kind::Dictionary, true};
constexpr ArgumentType kEndpointOrNull{ArgumentType::Kind::Endpoint, true};
constexpr ArgumentType kUnsigned{ArgumentType::Kind::UnsignedInt32};

MethodDescription oneWay(std::string selector, std::vector<ArgumentType> arguments = {}) {
    return {std::move(selector), std::move(arguments), false, {}, true};
}

MethodDescription optionalOneWay(std::string selector) {
    return {std::move(selector), {}, false, {}, false};
}

MethodDescription replying(std::string selector, std::vector<ArgumentType> arguments,
                           std::vector<ArgumentType> replies) {
    return {std::move(selector), std::move(arguments), true, std::move(replies), true};
}

}  // namespace

const Protocol& SVComponentMessaging::protocol() {
    static const Protocol& theProtocol =
        *new Protocol("SVComponentMessaging", {}, {replying("barrierWithCompletion:", {}, {})});
    return theProtocol;
}

const Protocol& SVComponentInstalling::protocol() {
    static const Protocol& theProtocol = *new Protocol(
        "SVComponentInstalling", {},
        {replying("queryComponentVersionWithReply:", {}, {kString}),
         replying("queryBuildNumberWithReply:", {}, {kUnsigned}),
         optionalOneWay("didInstallComponent"), optionalOneWay("willUninstallComponent")});
    return theProtocol;
}

const Protocol& SVComponentServing::protocol() {
    static const Protocol& theProtocol =
        *new Protocol("SVComponentServing",
                      {&SVComponentMessaging::protocol(), &SVComponentInstalling::protocol()}, {});
    return theProtocol;
}

const Protocol& VeloraSwitchboarding::protocol() {
    static const Protocol& theProtocol = *new Protocol(
        "VeloraSwitchboarding", {&SVComponentServing::protocol()},
        {oneWay("publishEndpoint:forIdentifier:", {kEndpointOrNull, kString}),
         oneWay("redactEndpointForIdentifier:", {kString}),
         replying("queryEndpointForIdentifier:withReply:", {kString}, {kEndpointOrNull}),
         oneWay("postNotificationName:source:userInfo:",
                {kString, kStringOrNull, kDictionaryOrNull})});
    return theProtocol;
}

const Protocol& VeloraSwitchboarding_private::protocol() {
    static const Protocol& theProtocol = *new Protocol(
        "VeloraSwitchboarding_private", {&VeloraSwitchboarding::protocol()},
        {oneWay("setUser:", {kUnsigned}),
         oneWay("addProxyObserver:forName:source:", {kString, kStringOrNull, kStringOrNull}),
         oneWay("removeObserver:", {kString}), oneWay("removeAllObservers")});
    return theProtocol;
}

const Protocol& SwitchboardSubscribing::protocol() {
    static const Protocol& theProtocol =
        *new Protocol("SwitchboardSubscribing", {},
                      {oneWay("forwardToObserver:notification:fromSource:withInfo:",
                              {kString, kString, kStringOrNull, kDictionaryOrNull})});
    return theProtocol;
}

}  // namespace sevrin
