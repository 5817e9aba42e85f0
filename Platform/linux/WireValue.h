// Values in their form on the wire: CBOR (RFC 8949) with definite lengths, as docs/wire-protocol.md
// lays down.
//
// Encoding escapes text that is not UTF-8, because CBOR text must be; decoding trusts nothing:
// depth, lengths and counts are checked before anything is allocated for them. An endpoint is a
// tagged index into the descriptors of the frame; where those come from and go to is the caller's
// business.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/NSXPCListenerEndpoint.h"
#include "Platform/Value.h"
#include "Platform/linux/CborReader.h"

namespace sevrin::platform::wire {

// Tags from the range that is open to anyone; never renumber them.
inline constexpr std::uint64_t kEndpointTag = 50331;  // content: index into the frame's descriptors
inline constexpr std::uint64_t kDateTag =
    50332;  // content: real, seconds since 2001-01-01T00:00:00Z

using Endpoints = std::vector<std::shared_ptr<NSXPCListenerEndpoint>>;

// Heads of CBOR items, for callers that build containers themselves.
void appendArrayHead(std::string& out, std::size_t count);
void appendMapHead(std::string& out, std::size_t pairs);
void appendText(std::string& out, std::string_view text);
void appendUnsigned(std::string& out, std::uint64_t number);

// Appends `value`. Endpoints in it are added to `endpoints`; without that, and for sets and other
// objects, throws std::invalid_argument: they cannot travel. Throws std::length_error when it is
// nested deeper than a receiver reads.
void appendValue(std::string& out, const Value& value, Endpoints* endpoints);

// Gives the endpoint for the descriptor at an index, each index once; nullptr when there is none.
using TakeEndpoint = std::function<std::shared_ptr<NSXPCListenerEndpoint>(std::uint64_t index)>;

// Reads one value into `value`. False when the bytes are no value of ours: malformed, too deep,
// text that is not UTF-8, a key that is no text or comes twice, an unknown tag. `takeEndpoint` may
// be nullptr: then no endpoint is accepted.
[[nodiscard]] bool readValue(CborReader& reader, Value& value, const TakeEndpoint* takeEndpoint);

}  // namespace sevrin::platform::wire
