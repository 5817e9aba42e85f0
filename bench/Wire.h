// The bytes that the driver sends and expects: frames of the wire protocol, made once before
// anything is timed.
//
// The driver speaks the protocol by hand, so that what is measured is the service and not a client
// library.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sevrin::bench {

inline constexpr std::size_t kGreetingBytes = 29;

// Frames, whole and ready to send.
[[nodiscard]] std::string greeting();
[[nodiscard]] std::string query(std::string_view identifier, std::uint64_t serial);
[[nodiscard]] std::string publish(std::string_view identifier);  // to be sent with one descriptor
[[nodiscard]] std::string redact(std::string_view identifier);
[[nodiscard]] std::string barrier(std::uint64_t serial);
[[nodiscard]] std::string subscribe(std::string_view observer, std::string_view name);
[[nodiscard]] std::string post(std::string_view name, std::string_view source);

// What a query and a barrier are answered with, and what a subscriber receives; by their length.
[[nodiscard]] std::string queryReply(std::uint64_t serial);
[[nodiscard]] std::string barrierReply(std::uint64_t serial);
[[nodiscard]] std::string delivery(std::string_view observer, std::string_view name,
                                   std::string_view source);

}  // namespace sevrin::bench
