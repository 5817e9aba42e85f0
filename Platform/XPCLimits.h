// Every limit of the messaging between processes, in one place; docs/wire-protocol.md repeats them
// for peers.
//
// A peer that goes beyond one of them loses its own connection and nothing else. Counts are
// inclusive: the named number is allowed, one more is not.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sevrin::platform {

// Bytes of a frame's body. A user-info dictionary of everything a person would send fits a thousand
// times.
inline constexpr std::size_t kFrameBodyBytesMax = std::size_t{1} << 20;

// What the listening side may add when it passes a body of that size on to others: the selector and
// the receiver's own identifier.
inline constexpr std::size_t kRelayBytesMax = 4 * 1024;

// Bytes of a text that a client chooses and the other side keeps: the identifier of an endpoint or
// of an observer, the name that an observer waits for.
inline constexpr std::size_t kIdentifierBytesMax = 1024;

// Depth of containers inside one argument: an argument that is a plain string has depth 0.
inline constexpr unsigned kNestingMax = 32;

// Descriptors that one frame may declare.
inline constexpr std::size_t kDescriptorsPerFrameMax = 8;

// Bytes of frames that share one send call with descriptors. Below the size that the kernel splits,
// so such a call is taken whole or not at all, and the descriptors never arrive without the frames
// that declare them.
inline constexpr std::size_t kDescriptorBatchBytesMax = 32 * 1024;

// Descriptors in one send call; the kernel's own limit (SCM_MAX_FD) is 253.
inline constexpr std::size_t kDescriptorBatchMax = 253;

// Bytes waiting for one peer that does not read. When the next frame would not fit, the peer is
// disconnected.
inline constexpr std::size_t kOutboxBytesMax = std::size_t{4} << 20;

// Endpoints that one client may hold published, and notification subscriptions that it may hold.
inline constexpr std::size_t kEndpointsPerConnectionMax = 16 * 1024;
inline constexpr std::size_t kObserversPerConnectionMax = 4 * 1024;

// Requests that a peer has sent and nobody has answered yet.
inline constexpr std::size_t kUnansweredRequestsMax = 4 * 1024;

// Subscriptions that all processes of one user may hold.
inline constexpr std::size_t kObserversPerUserMax = 64 * 1024;

// What all processes of one user may hold in a listening process: connections, endpoint
// descriptors, and bytes that wait (half-received frames and unread answers). Beside these fixed
// ceilings no user gets more descriptors than are still free for everybody else (PeerLedger).
inline constexpr std::size_t kConnectionsPerUserMax = 16 * 1024;
inline constexpr std::size_t kDescriptorsPerUserMax = 256 * 1024;
inline constexpr std::size_t kWaitingBytesPerUserMax = std::size_t{64} << 20;

}  // namespace sevrin::platform
