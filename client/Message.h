// A message before it is sent: its method, its arguments, and whether they can travel.
//
// The other side ends the connection over arguments that break the protocol, and with it everything
// that other calls have in flight: so they are checked here, where the mistake can be told to
// whoever made it.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/NSXPCConnection.h"
#include "Platform/Protocol.h"
#include "Platform/Value.h"
#include "client/Result.h"

namespace sevrin {

struct Message {
    const platform::MethodDescription* method;
    platform::ValueArray arguments;
};

// Throws std::invalid_argument, with the reason, unless the arguments are of the types that the
// method takes and can be written down: property lists not too deep, with keys in UTF-8.
void requireSendable(const Message& message);

// Throws std::length_error, naming `what`, when `text` has more than kIdentifierBytesMax bytes in
// its form on the wire.
void requireShort(std::string_view text, const char* what);

// What an answer means to a caller, given how to read the values of a reply.
template <typename Type, typename Read>
[[nodiscard]] Result<Type> resultOf(platform::NSXPCConnection::Answer answer, const Read& read) {
    if (auto* error = std::get_if<platform::XPCError>(&answer)) return std::move(*error);
    return read(std::get<platform::ValueArray>(answer));
}

}  // namespace sevrin
