// Frames that wait to be sent on one connection, with the endpoints that travel with them.
//
// Whole frames gather here and leave in as few send calls as their descriptors allow. Its memory is
// borrowed from a pool while something waits and given back when nothing does, so an idle
// connection holds none. Not locked: its connection guards it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/linux/WireValue.h"
#include "Platform/linux/XPCFrame.h"

namespace sevrin::platform {

class XPCOutbox {
public:
    enum class Flush { Done, Blocked, Failed };

    XPCOutbox() = default;
    XPCOutbox(const XPCOutbox&) = delete;
    XPCOutbox& operator=(const XPCOutbox&) = delete;
    ~XPCOutbox();

    // Where the greeting is appended, before any frame.
    [[nodiscard]] std::string& bytesForGreeting() { return bytes_; }

    // Starts a frame; the caller appends the body to the returned bytes and then ends or drops the
    // frame.
    [[nodiscard]] std::string& beginFrame();

    // Completes the frame begun, with the endpoints that its body refers to. False, and the frame
    // dropped, when its body is longer than `bodyBytesMax` or names too many endpoints.
    [[nodiscard]] bool endFrame(FrameKind kind, std::uint64_t serial, wire::Endpoints endpoints,
                                std::size_t bodyBytesMax);

    void dropFrame();

    // Appends a Message whose body is these three parts; false, and nothing appended, when that is
    // longer than `bodyBytesMax`.
    [[nodiscard]] bool appendFrame(std::string_view first, std::string_view second,
                                   std::string_view third, std::size_t bodyBytesMax);

    // Forgets everything that waits and what it carries.
    void discard() { giveBack(); }

    // Bytes that wait.
    [[nodiscard]] std::size_t waiting() const { return bytes_.size() - sent_; }

    // Sends what the socket takes without blocking. Failed leaves errno as the kernel set it.
    [[nodiscard]] Flush flush(int socket);

private:
    // A frame with descriptors: where it lies in bytes_, and what it carries.
    struct Cargo {
        std::size_t begin;
        std::size_t end;
        wire::Endpoints endpoints;
    };

    struct Batch {
        std::size_t end;       // bytes up to here go with this call
        std::size_t cargoEnd;  // and the descriptors of the cargo before this
    };

    [[nodiscard]] Batch nextBatch() const;
    [[nodiscard]] bool sendBatch(int socket, const Batch& batch);
    void compact();
    void giveBack();

    std::string bytes_;
    std::size_t sent_ = 0;
    std::size_t frame_ = 0;  // where the frame begun starts
    std::vector<Cargo> cargo_;
    std::size_t cargoSent_ = 0;
    std::size_t descriptorBatchBytesMax_ = 0;  // asked of the socket when it first matters
};

}  // namespace sevrin::platform
