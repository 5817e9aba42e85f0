// What has arrived on one connection: bytes cut into frames, and the descriptors that came with
// them.
//
// Descriptors are adopted the moment the kernel installs them, before anything is judged. Bytes are
// parsed where they were received; only the beginning of an incomplete frame is kept. Not locked:
// whoever reads the connection owns it meanwhile.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/UniqueFd.h"
#include "Platform/linux/XPCFrame.h"

namespace sevrin::platform {

class XPCInbox {
public:
    enum class Receive {
        Some,     // there are new bytes
        Nothing,  // the socket has none now
        Ended,    // the peer has closed, or the socket failed
        Broken,   // the kernel cut descriptors off: more than any frame may bring
    };
    enum class Next { Frame, Incomplete, Broken };

    // Receives once. With `wait`, blocks as long as the socket's receive timeout allows.
    [[nodiscard]] Receive receive(int socket, bool wait);

    // The next frame that is complete, left in place until consume(). Its body stays valid until
    // then.
    [[nodiscard]] Next next(FrameHeader& header, std::string_view& body,
                            std::size_t bodyBytesMax) const;

    // Whether nothing has come behind the frame that next() gave.
    [[nodiscard]] bool isLast(const FrameHeader& header) const {
        return !wasFull_ && view_.size() == FrameHeader::kBytes + header.bodyBytes;
    }

    // Steps over a frame that next() gave.
    void consume(const FrameHeader& header);

    // Moves the frame's descriptors to `fds`, in order. False when fewer have come than it
    // declares.
    [[nodiscard]] bool takeDescriptors(const FrameHeader& header, std::vector<UniqueFd>& fds);

    // To be called before the receiving thread's buffer is used for anything else: keeps what is
    // not consumed.
    void keepRest();

    // Whether descriptors have come that no frame can claim any more, once all complete frames are
    // consumed. A batch with descriptors arrives whole, so after the last of its frames none is
    // left, and a frame still incomplete brings no more than it may.
    [[nodiscard]] bool hasStrayDescriptors() const;

    // Whether the last receive filled its buffer, so that the rest of a batch may still be in the
    // socket.
    [[nodiscard]] bool wasFull() const { return wasFull_; }

    // Descriptors that no frame has taken yet.
    [[nodiscard]] std::size_t waitingDescriptors() const {
        return descriptors_.size() - descriptorsTaken_;
    }

    // Bytes kept for later.
    [[nodiscard]] std::size_t kept() const { return kept_.size(); }

private:
    std::string kept_;
    std::string_view
        view_;  // what is not consumed yet: in kept_, or in the receiving thread's buffer
    bool wasFull_ = false;  // the last receive filled its buffer: more may belong to what came
    std::vector<UniqueFd> descriptors_;
    std::size_t descriptorsTaken_ = 0;
};

}  // namespace sevrin::platform
