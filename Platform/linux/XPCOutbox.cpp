// Frames that wait to be sent: cut into send calls that never part descriptors from their frames.
#include "Platform/linux/XPCOutbox.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Platform/XPCLimits.h"
#include "Platform/linux/XPCEndpoint.h"

namespace sevrin::platform {

namespace {

constexpr std::size_t kCompactBytesMin = 64 * 1024;

// Buffers that wait for the next outbox with something to send. A relay fills a thousand outboxes
// at once and empties them again: without a pool each of those would be allocated, grown and freed
// every time.
class BufferPool {
public:
    static constexpr std::size_t kBuffersMax = 1024;
    static constexpr std::size_t kBufferBytesMax = 16 * 1024;

    std::string take() {
        if (buffers_.empty()) return {};
        std::string buffer = std::move(buffers_.back());
        buffers_.pop_back();
        return buffer;
    }

    void put(std::string buffer) {
        if (buffers_.size() == kBuffersMax || buffer.capacity() > kBufferBytesMax) return;
        buffer.clear();
        buffers_.push_back(std::move(buffer));
    }

private:
    std::vector<std::string> buffers_;
};

thread_local BufferPool bufferPool;

// Bytes that one send call with descriptors may carry without being split: what the protocol
// allows, or less on a socket whose send buffer somebody has set small. The kernel cuts a call into
// pieces of half that buffer less its own overhead, and puts all descriptors on the first piece.
std::size_t wholeSendBytesMax(int socket) {
    constexpr int kPieceOverhead = 64;
    int bufferBytes = 0;
    socklen_t size = sizeof bufferBytes;
    if (::getsockopt(socket, SOL_SOCKET, SO_SNDBUF, &bufferBytes, &size) != 0)
        return kDescriptorBatchBytesMax;
    const int piece = std::max(bufferBytes / 2 - kPieceOverhead, 1);
    return std::min(static_cast<std::size_t>(piece), kDescriptorBatchBytesMax);
}

}  // namespace

XPCOutbox::~XPCOutbox() = default;

std::string& XPCOutbox::beginFrame() {
    if (bytes_.empty()) bytes_ = bufferPool.take();
    frame_ = bytes_.size();
    bytes_.append(FrameHeader::kBytes, '\0');
    return bytes_;
}

bool XPCOutbox::endFrame(FrameKind kind, std::uint64_t serial, wire::Endpoints endpoints,
                         std::size_t bodyBytesMax) {
    const std::size_t bodyBytes = bytes_.size() - frame_ - FrameHeader::kBytes;
    if (bodyBytes > bodyBytesMax || endpoints.size() > kDescriptorsPerFrameMax) {
        dropFrame();
        return false;
    }
    FrameHeader header;
    header.bodyBytes = static_cast<std::uint32_t>(bodyBytes);
    header.kind = kind;
    header.descriptors = static_cast<std::uint16_t>(endpoints.size());
    header.serial = serial;
    header.write(bytes_.data() + frame_);
    if (!endpoints.empty()) cargo_.push_back({frame_, bytes_.size(), std::move(endpoints)});
    return true;
}

void XPCOutbox::dropFrame() {
    bytes_.resize(frame_);
}

bool XPCOutbox::appendFrame(std::string_view first, std::string_view second, std::string_view third,
                            std::size_t bodyBytesMax) {
    const std::size_t bodyBytes = first.size() + second.size() + third.size();
    if (bodyBytes > bodyBytesMax) return false;
    if (bytes_.empty()) bytes_ = bufferPool.take();
    char head[FrameHeader::kBytes];
    FrameHeader{static_cast<std::uint32_t>(bodyBytes), FrameKind::Message, 0, 0}.write(head);
    bytes_.append(head, sizeof head).append(first).append(second).append(third);
    return true;
}

XPCOutbox::Flush XPCOutbox::flush(int socket) {
    if (!cargo_.empty() && descriptorBatchBytesMax_ == 0)
        descriptorBatchBytesMax_ = wholeSendBytesMax(socket);
    while (sent_ < bytes_.size()) {
        if (sendBatch(socket, nextBatch())) continue;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return Flush::Failed;
        compact();
        return Flush::Blocked;
    }
    giveBack();
    return Flush::Done;
}

// A call that carries descriptors carries whole frames and no more of them than the kernel takes
// entirely or not at all; a single larger frame goes alone, its descriptors with its first byte.
XPCOutbox::Batch XPCOutbox::nextBatch() const {
    std::size_t next = cargoSent_;
    if (next == cargo_.size()) return {bytes_.size(), next};

    std::size_t descriptors = 0;
    std::size_t end = sent_;
    while (next < cargo_.size()) {
        const Cargo& cargo = cargo_[next];
        const bool fits = descriptors + cargo.endpoints.size() <= kDescriptorBatchMax &&
                          cargo.end - sent_ <= descriptorBatchBytesMax_;
        if (!fits) break;
        descriptors += cargo.endpoints.size();
        end = cargo.end;
        ++next;
    }
    if (next == cargo_.size())
        return {bytes_.size() - sent_ <= descriptorBatchBytesMax_ ? bytes_.size() : end, next};
    if (next > cargoSent_) return {end, next};

    // Nothing fitted: either plain frames lie before the first cargo, or it is a large one that
    // goes alone.
    const Cargo& first = cargo_[next];
    return first.begin > sent_ ? Batch{first.begin, next} : Batch{first.end, next + 1};
}

bool XPCOutbox::sendBatch(int socket, const Batch& batch) {
    iovec part{bytes_.data() + sent_, batch.end - sent_};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;

    alignas(cmsghdr) std::array<char, CMSG_SPACE(kDescriptorBatchMax * sizeof(int))> control;
    if (batch.cargoEnd > cargoSent_) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        std::size_t count = 0;
        for (std::size_t i = cargoSent_; i < batch.cargoEnd; ++i) {
            for (const auto& endpoint : cargo_[i].endpoints) {
                const int fd = static_cast<const XPCEndpoint&>(*endpoint).fd();
                std::memcpy(CMSG_DATA(header) + count * sizeof fd, &fd, sizeof fd);
                ++count;
            }
        }
        header->cmsg_len = CMSG_LEN(count * sizeof(int));
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
    }

    const ssize_t sent = ::sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) return false;
    sent_ += static_cast<std::size_t>(sent);
    cargoSent_ = batch.cargoEnd;
    return true;
}

// A peer that reads slowly but steadily must not make the buffer grow for ever at its sent end.
void XPCOutbox::compact() {
    if (sent_ < kCompactBytesMin || sent_ < bytes_.size() / 2) return;
    bytes_.erase(0, sent_);
    cargo_.erase(cargo_.begin(), cargo_.begin() + static_cast<std::ptrdiff_t>(cargoSent_));
    for (Cargo& cargo : cargo_) {
        cargo.begin -= sent_;
        cargo.end -= sent_;
    }
    sent_ = 0;
    cargoSent_ = 0;
}

void XPCOutbox::giveBack() {
    sent_ = 0;
    cargo_.clear();
    cargoSent_ = 0;
    bufferPool.put(std::exchange(bytes_, {}));
}

}  // namespace sevrin::platform
