// What has arrived on one connection: receiving with descriptors, and cutting into frames.
#include "Platform/linux/XPCInbox.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "Platform/XPCLimits.h"

namespace sevrin::platform {

namespace {

// Larger than any batch with descriptors, so that such a batch is read whole.
constexpr std::size_t kReceiveBytes = 64 * 1024;
static_assert(kReceiveBytes > kDescriptorBatchBytesMax);

char* receiveBuffer() {
    thread_local std::unique_ptr<char[]> buffer(new char[kReceiveBytes]);
    return buffer.get();
}

void adoptDescriptors(msghdr& message, std::vector<UniqueFd>& descriptors) {
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(header) + i * sizeof fd, sizeof fd);
            descriptors.emplace_back(fd);
        }
    }
}

}  // namespace

XPCInbox::Receive XPCInbox::receive(int socket, bool wait) {
    char* buffer = receiveBuffer();
    iovec part{buffer, kReceiveBytes};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kDescriptorBatchMax * sizeof(int))> control;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();

    const ssize_t received =
        ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC | (wait ? 0 : MSG_DONTWAIT));
    if (received < 0) {
        const bool isQuiet = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        if (isQuiet) wasFull_ = false;
        return isQuiet ? Receive::Nothing : Receive::Ended;
    }
    adoptDescriptors(message, descriptors_);
    if (message.msg_flags & MSG_CTRUNC) return Receive::Broken;
    if (received == 0) return Receive::Ended;

    const auto size = static_cast<std::size_t>(received);
    wasFull_ = size == kReceiveBytes;
    if (kept_.empty()) {
        view_ = {buffer, size};
    } else {
        kept_.append(buffer, size);
        view_ = kept_;
    }
    return Receive::Some;
}

XPCInbox::Next XPCInbox::next(FrameHeader& header, std::string_view& body,
                              std::size_t bodyBytesMax) const {
    if (view_.size() < FrameHeader::kBytes) return Next::Incomplete;
    const auto parsed = FrameHeader::parse(view_, bodyBytesMax);
    if (!parsed) return Next::Broken;
    if (view_.size() - FrameHeader::kBytes < parsed->bodyBytes) return Next::Incomplete;
    header = *parsed;
    body = view_.substr(FrameHeader::kBytes, parsed->bodyBytes);
    return Next::Frame;
}

void XPCInbox::consume(const FrameHeader& header) {
    view_.remove_prefix(FrameHeader::kBytes + header.bodyBytes);
}

bool XPCInbox::takeDescriptors(const FrameHeader& header, std::vector<UniqueFd>& fds) {
    if (waitingDescriptors() < header.descriptors) return false;
    for (std::size_t i = 0; i < header.descriptors; ++i)
        fds.push_back(std::move(descriptors_[descriptorsTaken_++]));
    if (descriptorsTaken_ == descriptors_.size()) {
        descriptors_.clear();
        descriptorsTaken_ = 0;
    }
    return true;
}

void XPCInbox::keepRest() {
    if (view_.empty()) {
        kept_ = {};
    } else if (kept_.empty()) {
        kept_.assign(view_);
    } else {
        kept_.erase(0, kept_.size() - view_.size());
    }
    view_ = kept_;
}

bool XPCInbox::hasStrayDescriptors() const {
    if (wasFull_) return waitingDescriptors() > kDescriptorBatchMax;
    return waitingDescriptors() > (view_.empty() ? 0 : kDescriptorsPerFrameMax);
}

}  // namespace sevrin::platform
