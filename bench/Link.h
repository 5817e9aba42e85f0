// One connection of the driver: plain blocking socket calls, as cheap as the kernel allows.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Platform/UniqueFd.h"

namespace sevrin::bench {

class Link {
public:
    // Connects to the socket at `path`, trying again for some seconds; ends the program when nobody
    // listens.
    [[nodiscard]] static Link to(const std::string& path);

    // The same, and greets as a client of the switchboard does.
    [[nodiscard]] static Link toSwitchboard(const std::string& path);

    explicit Link(platform::UniqueFd socket) : socket_(std::move(socket)) {}

    [[nodiscard]] int fd() const { return socket_.get(); }

    // Sends all of `bytes`, with `descriptor` `count` times over unless it is -1.
    void send(std::string_view bytes, int descriptor = -1, std::size_t count = 1) const;

    // Receives what is there without waiting, as receive() does; 0 when there is nothing.
    [[nodiscard]] std::size_t receiveNow() const;

    // Receives once, closing every descriptor that comes along; the number of bytes. Ends the
    // program when the peer has closed.
    std::size_t receive() const;

    // Receives until `bytes` have come.
    void receiveAll(std::size_t bytes) const;

private:
    [[nodiscard]] std::size_t receiveWith(int flags) const;

    platform::UniqueFd socket_;
};

// A path descriptor on a listening socket that has no name any more: an endpoint as a publisher
// sends it.
[[nodiscard]] platform::UniqueFd makeEndpoint(const std::string& folder,
                                              bool keepsListening = true);

// Ends the program with a message and the reason of the last failed call.
[[noreturn]] void fail(const std::string& what);

}  // namespace sevrin::bench
