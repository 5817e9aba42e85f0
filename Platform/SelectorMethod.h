// Makes a selector-table method out of an ordinary member function, with the argument types checked
// by the compiler.
//
// The values of the message become the parameters in order; a trailing std::function parameter is
// the reply block. The connection has already checked the values against the protocol, so a value
// of another type here is our own bug and asserted.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/Class.h"
#include "Platform/NSXPCListenerEndpoint.h"
#include "Platform/Value.h"

namespace sevrin::platform {

namespace selector_method {

// How one parameter type is taken from a value.
template <typename Parameter>
struct FromValue;

template <>
struct FromValue<std::string> {
    static const std::string& take(const Value& value) {
        SEVRIN_ASSERT(value.ifString() != nullptr, "argument is a string");
        return *value.ifString();
    }
};

template <>
struct FromValue<std::optional<std::string>> {
    static std::optional<std::string> take(const Value& value) {
        if (value.isNull()) return std::nullopt;
        return FromValue<std::string>::take(value);
    }
};

template <>
struct FromValue<std::uint32_t> {
    static std::uint32_t take(const Value& value) {
        SEVRIN_ASSERT(
            value.ifSigned() != nullptr && std::in_range<std::uint32_t>(*value.ifSigned()),
            "argument is an unsigned 32-bit integer");
        return static_cast<std::uint32_t>(*value.ifSigned());
    }
};

template <>
struct FromValue<Value> {
    static const Value& take(const Value& value) { return value; }
};

template <>
struct FromValue<std::shared_ptr<NSXPCListenerEndpoint>> {
    static std::shared_ptr<NSXPCListenerEndpoint> take(const Value& value) {
        auto endpoint = value.object<NSXPCListenerEndpoint>();
        SEVRIN_ASSERT(endpoint || value.isNull(), "argument is an endpoint");
        return endpoint;
    }
};

template <typename Parameter>
struct IsReplyBlock : std::false_type {};

template <typename... Replies>
struct IsReplyBlock<std::function<void(Replies...)>> : std::true_type {
    static std::function<void(Replies...)> from(Invocation::Reply reply) {
        return [reply = std::move(reply)](Replies... values) {
            if (reply) reply({Value(std::move(values))...});
        };
    }
};

template <typename Parameter>
decltype(auto) parameter(Invocation& invocation, std::size_t index) {
    using Bare = std::remove_cvref_t<Parameter>;
    if constexpr (IsReplyBlock<Bare>::value) {
        return IsReplyBlock<Bare>::from(std::move(invocation.reply));
    } else {
        return FromValue<Bare>::take(invocation.arguments[index]);
    }
}

template <typename Receiver, typename Owner, typename... Parameters, std::size_t... Indexes>
Class::Method bind(void (Owner::*member)(Parameters...), std::index_sequence<Indexes...>) {
    constexpr std::size_t kArguments =
        (std::size_t{0} + ... + (IsReplyBlock<std::remove_cvref_t<Parameters>>::value ? 0 : 1));
    return [member](Object* receiver, Invocation& invocation) {
        SEVRIN_ASSERT(invocation.arguments.size() == kArguments,
                      "message has the arguments of the method");
        (static_cast<Receiver*>(receiver)->*member)(parameter<Parameters>(invocation, Indexes)...);
        return Value();
    };
}

}  // namespace selector_method

// A method that calls `member` on a receiver that is known to be a `Receiver`.
template <typename Receiver, typename Owner, typename... Parameters>
[[nodiscard]] Class::Method selectorMethod(void (Owner::*member)(Parameters...)) {
    return selector_method::bind<Receiver>(member, std::index_sequence_for<Parameters...>{});
}

}  // namespace sevrin::platform
