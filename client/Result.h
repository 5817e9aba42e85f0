// What a call to another process gives: the answer, or why there is none.
//
// That the other process is not there, goes away or is slow is no exceptional event between
// processes, and callers must tell these outcomes apart: so they are returned, not thrown. What is
// thrown are mistakes of the caller that no other process has a part in (std::invalid_argument,
// std::length_error), before anything is sent.
#pragma once

#include <functional>
#include <utility>
#include <variant>

#include "Platform/Assertion.h"
#include "Platform/XPCError.h"

namespace sevrin {

// Why a call got no answer: `code` for programs, `description`, a sentence, for people.
//
//   NoService        nobody serves that name or identifier, or the listener behind an endpoint is
//                    gone
//   Untrusted        somebody serves it who may not: another user, or through an unsafe folder
//   Refused          the other side does not serve this user
//   VersionMismatch  the two sides speak different versions of the protocol
//   Disconnected     the connection ended, or was closed here, before the answer
//   DeadlinePassed   the answer did not come in time; the other side may still act on the call
//   BadAnswer        the other side broke the protocol
using CallError = platform::XPCError;

template <typename Type>
class [[nodiscard]] Result {
public:
    Result(Type value) : content_(std::in_place_index<0>, std::move(value)) {}
    Result(CallError error) : content_(std::in_place_index<1>, std::move(error)) {}

    // Whether there is an answer.
    [[nodiscard]] bool hasValue() const { return content_.index() == 0; }
    [[nodiscard]] explicit operator bool() const { return hasValue(); }

    // The answer. Asking for it when there is none is asserted.
    [[nodiscard]] Type& value() & {
        requireValue();
        return *std::get_if<0>(&content_);
    }
    [[nodiscard]] const Type& value() const& {
        requireValue();
        return *std::get_if<0>(&content_);
    }
    [[nodiscard]] Type&& value() && { return std::move(value()); }
    [[nodiscard]] Type& operator*() & { return value(); }
    [[nodiscard]] const Type& operator*() const& { return value(); }
    [[nodiscard]] Type&& operator*() && { return std::move(value()); }
    [[nodiscard]] Type* operator->() { return &value(); }
    [[nodiscard]] const Type* operator->() const { return &value(); }

    // Why there is no answer. Asking when there is one is asserted.
    [[nodiscard]] const CallError& error() const {
        SEVRIN_ASSERT(!hasValue(), "only a result without an answer has an error");
        return *std::get_if<1>(&content_);
    }

private:
    void requireValue() const {
        SEVRIN_ASSERT(hasValue(), "a result is asked for its answer only if it has one");
    }

    std::variant<Type, CallError> content_;
};

// The result of a call whose answer is only that it was carried out.
template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(CallError error) : content_(std::in_place_index<1>, std::move(error)) {}

    [[nodiscard]] bool hasValue() const { return content_.index() == 0; }
    [[nodiscard]] explicit operator bool() const { return hasValue(); }

    [[nodiscard]] const CallError& error() const {
        SEVRIN_ASSERT(!hasValue(), "only a result without an answer has an error");
        return *std::get_if<1>(&content_);
    }

private:
    std::variant<std::monostate, CallError> content_;
};

// Takes the result of an asynchronous call: exactly once, on the XPC thread, with no lock held.
//
// The XPC thread is one thread of the process that handles everything that arrives from others, so
// whatever a completion waits for delays all of it. It may make asynchronous calls and end, close
// or destroy the object that it was given to. It must not make a call that waits for an answer
// (asserted): the answer would wait for the completion. It must not throw (asserted).
template <typename Type>
using Completion = std::function<void(Result<Type>)>;

}  // namespace sevrin
