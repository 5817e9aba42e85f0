// Unit tests of the outbox, over socket pairs: what leaves in which call, and that descriptors stay
// with their frames whatever the socket takes at once.
#include "Platform/linux/XPCOutbox.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <cstdlib>
#include <random>

#include "Platform/XPCLimits.h"
#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/RawWire.h"
#include "Platform/linux/XPCInbox.h"

namespace sevrin::platform {
namespace {

using EndpointPtr = std::shared_ptr<NSXPCListenerEndpoint>;
using Flush = XPCOutbox::Flush;

EndpointPtr makeEndpoint() {
    return bootstrap::listenAnonymously().endpoint;
}

// Two connected sockets: the outbox sends on one, the test receives on the other.
class XPCOutboxTest : public testing::Test {
protected:
    XPCOutboxTest() {
        int sockets[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) std::abort();
        near_.reset(sockets[0]);
        far_.reset(sockets[1]);
    }

    // The smallest send buffer that the kernel gives.
    void makeSendBufferTiny() {
        const int bytes = 1;
        ASSERT_EQ(::setsockopt(near_.get(), SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes), 0);
    }

    [[nodiscard]] bool append(const std::string& body, wire::Endpoints endpoints = {},
                              std::size_t bytesMax = kFrameBodyBytesMax) {
        outbox_.beginFrame() += body;
        return outbox_.endFrame(FrameKind::Message, 0, std::move(endpoints), bytesMax);
    }

    struct Received {
        std::string bytes;
        std::vector<UniqueFd> descriptors;
    };

    // One receive, as a peer that knows nothing of our inbox would do it.
    Received receiveOnce() {
        Received result;
        result.bytes.resize(std::size_t{1} << 20);
        iovec part{result.bytes.data(), result.bytes.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(kDescriptorBatchMax * sizeof(int))];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t size = ::recvmsg(far_.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        result.bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        for (cmsghdr* header = CMSG_FIRSTHDR(&message); size >= 0 && header != nullptr;
             header = CMSG_NXTHDR(&message, header)) {
            const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            const int* fds = reinterpret_cast<const int*>(CMSG_DATA(header));
            for (std::size_t i = 0; i < count; ++i)
                result.descriptors.emplace_back(fds[i]);
        }
        return result;
    }

    UniqueFd near_;
    UniqueFd far_;
    XPCOutbox outbox_;
};

TEST_F(XPCOutboxTest, FramesThatGatherLeaveInOneCall) {
    ASSERT_TRUE(append("a"));
    ASSERT_TRUE(append("bc"));

    EXPECT_EQ(outbox_.flush(near_.get()), Flush::Done);

    EXPECT_EQ(receiveOnce().bytes, rawwire::frame(2, 0, "a") + rawwire::frame(2, 0, "bc"));
    EXPECT_EQ(outbox_.waiting(), 0u);
}

TEST_F(XPCOutboxTest, WhatWaitsStaysWhenAShortFrameFollows) {
    appendGreeting(outbox_.bytesForGreeting());
    ASSERT_TRUE(append(""));
    ASSERT_TRUE(append(""));

    EXPECT_EQ(outbox_.flush(near_.get()), Flush::Done);

    std::string expected;
    appendGreeting(expected);
    EXPECT_EQ(receiveOnce().bytes, expected + rawwire::frame(2, 0, "") + rawwire::frame(2, 0, ""));
}

TEST_F(XPCOutboxTest, AFrameOfTheLargestBodyFitsAndOneByteMoreIsDropped) {
    EXPECT_TRUE(append(std::string(1000, 'x'), {}, 1000));
    EXPECT_FALSE(append(std::string(1001, 'x'), {}, 1000));

    EXPECT_EQ(outbox_.waiting(), FrameHeader::kBytes + 1000);
}

TEST_F(XPCOutboxTest, AFrameOfTooManyEndpointsIsDropped) {
    const EndpointPtr endpoint = makeEndpoint();

    EXPECT_TRUE(append("x", wire::Endpoints(kDescriptorsPerFrameMax, endpoint)));
    EXPECT_FALSE(append("x", wire::Endpoints(kDescriptorsPerFrameMax + 1, endpoint)));
    EXPECT_EQ(outbox_.waiting(), FrameHeader::kBytes + 1);
}

TEST_F(XPCOutboxTest, ADroppedFrameLeavesNoTrace) {
    ASSERT_TRUE(append("kept"));
    outbox_.beginFrame() += "half of it";

    outbox_.dropFrame();

    EXPECT_EQ(outbox_.flush(near_.get()), Flush::Done);
    EXPECT_EQ(receiveOnce().bytes, rawwire::frame(2, 0, "kept"));
}

TEST_F(XPCOutboxTest, FramesWithDescriptorsShareACallUpToTheLimitOfBytes) {
    const EndpointPtr endpoint = makeEndpoint();
    const std::string body(kDescriptorBatchBytesMax / 2 - FrameHeader::kBytes, 'x');
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(append(body, {endpoint}));

    EXPECT_EQ(outbox_.flush(near_.get()), Flush::Done);

    const Received first = receiveOnce();
    EXPECT_EQ(first.bytes.size(), kDescriptorBatchBytesMax);
    EXPECT_EQ(first.descriptors.size(), 2u);
    const Received second = receiveOnce();
    EXPECT_EQ(second.bytes.size(), kDescriptorBatchBytesMax / 2);
    EXPECT_EQ(second.descriptors.size(), 1u);
}

TEST_F(XPCOutboxTest, NoCallCarriesMoreDescriptorsThanTheKernelTakes) {
    const EndpointPtr endpoint = makeEndpoint();
    for (std::size_t i = 0; i <= kDescriptorBatchMax; ++i)
        ASSERT_TRUE(append("x", {endpoint}));

    EXPECT_EQ(outbox_.flush(near_.get()), Flush::Done);

    EXPECT_EQ(receiveOnce().descriptors.size(), kDescriptorBatchMax);
    EXPECT_EQ(receiveOnce().descriptors.size(), 1u);
}

TEST_F(XPCOutboxTest, ALargeFrameWithDescriptorsTravelsAlone) {
    const EndpointPtr endpoint = makeEndpoint();
    const std::string large(kDescriptorBatchBytesMax + 1, 'L');
    ASSERT_TRUE(append("before"));
    ASSERT_TRUE(append(large, {endpoint, endpoint}));
    ASSERT_TRUE(append("after", {endpoint}));

    EXPECT_EQ(outbox_.flush(near_.get()), Flush::Done);

    const Received first = receiveOnce();
    EXPECT_EQ(first.bytes, rawwire::frame(2, 0, "before") + rawwire::frame(2, 0, large, 2));
    EXPECT_EQ(first.descriptors.size(), 2u);
    EXPECT_EQ(receiveOnce().descriptors.size(), 1u);
}

TEST_F(XPCOutboxTest, PlainFramesBehindTheLastDescriptorsMayShareTheirCall) {
    ASSERT_TRUE(append("with", {makeEndpoint()}));
    ASSERT_TRUE(append("without"));

    EXPECT_EQ(outbox_.flush(near_.get()), Flush::Done);

    EXPECT_EQ(receiveOnce().bytes,
              rawwire::frame(2, 0, "with", 1) + rawwire::frame(2, 0, "without"));
}

TEST_F(XPCOutboxTest, AFullSocketBlocksAndTheRestFollowsWhenThereIsRoom) {
    makeSendBufferTiny();
    std::string expected;
    std::string received;
    for (int i = 0; i < 100; ++i) {
        const std::string body(1000, static_cast<char>('a' + i % 26));
        ASSERT_TRUE(append(body));
        expected += rawwire::frame(2, 0, body);
    }

    Flush last = outbox_.flush(near_.get());
    EXPECT_EQ(last, Flush::Blocked);
    EXPECT_GT(outbox_.waiting(), 0u);
    while (last == Flush::Blocked) {
        received += receiveOnce().bytes;
        last = outbox_.flush(near_.get());
    }
    while (received.size() < expected.size())
        received += receiveOnce().bytes;

    EXPECT_EQ(last, Flush::Done);
    EXPECT_TRUE(received == expected);
}

TEST_F(XPCOutboxTest, APeerThatReadsSlowlyDoesNotMakeTheBufferGrow) {
    const std::string body(1000, 'x');
    std::size_t appended = 0;
    std::size_t received = 0;
    for (int round = 0; round < 10'000; ++round) {
        ASSERT_TRUE(append(body));
        appended += FrameHeader::kBytes + body.size();
        (void)outbox_.flush(near_.get());
        if (appended - received > 600'000) received += receiveOnce().bytes.size();
    }

    // Whatever was sent is dropped again once it outweighs what waits.
    EXPECT_LT(outbox_.beginFrame().capacity(), std::size_t{4} << 20);
}

TEST_F(XPCOutboxTest, APeerThatIsGoneIsAFailure) {
    far_.reset();
    ASSERT_TRUE(append("x"));

    EXPECT_EQ(outbox_.flush(near_.get()), Flush::Failed);
}

// Frames of random sizes, some with descriptors, sent and received at random moments through a send
// buffer of random size. Every frame must arrive with exactly its own descriptors, and the inbox
// must never hold one that no frame can claim any more.
class RandomConversation {
public:
    RandomConversation(unsigned seed, const std::vector<EndpointPtr>& endpoints)
        : random_(seed), endpoints_(endpoints) {
        int sockets[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) std::abort();
        near_.reset(sockets[0]);
        far_.reset(sockets[1]);
        const int bytes = std::array{1, 9'000, 40'000, 212'992}[below(4)];
        ::setsockopt(near_.get(), SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    }

    // What went wrong; empty when nothing did.
    std::string run() {
        constexpr std::size_t kFrames = 300;
        while (received_ < kFrames && wrong_.empty()) {
            if (sent_.size() < kFrames && below(3) > 0) append();
            if (below(2) == 0) flush();
            if (below(3) == 0) receive();
        }
        return wrong_;
    }

private:
    struct Sent {
        std::string body;
        wire::Endpoints endpoints;
    };

    std::size_t below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
    }

    void append() {
        const std::size_t sizes[] = {0, 1, 50, 500, 3'000, 20'000, 33'000, 100'000};
        Sent sent{std::string(below(sizes[below(8)] + 1), 'x'), {}};
        sent.body += std::to_string(sent_.size());
        if (below(2) == 0) {
            for (std::size_t i = below(kDescriptorsPerFrameMax + 1); i > 0; --i)
                sent.endpoints.push_back(endpoints_[below(endpoints_.size())]);
        }
        outbox_.beginFrame() += sent.body;
        if (!outbox_.endFrame(FrameKind::Message, 0, sent.endpoints, kFrameBodyBytesMax))
            wrong_ = "a frame does not fit";
        sent_.push_back(std::move(sent));
    }

    void flush() {
        if (outbox_.flush(near_.get()) == Flush::Failed) wrong_ = "sending failed";
    }

    void receive() {
        const XPCInbox::Receive received = inbox_.receive(far_.get(), false);
        if (received == XPCInbox::Receive::Nothing) return;
        if (received != XPCInbox::Receive::Some) wrong_ = "receiving failed";
        FrameHeader header;
        std::string_view body;
        XPCInbox::Next next;
        while ((next = inbox_.next(header, body, kFrameBodyBytesMax)) == XPCInbox::Next::Frame) {
            compare(header, body);
            inbox_.consume(header);
        }
        if (next == XPCInbox::Next::Broken) wrong_ = "bytes that are no frame";
        inbox_.keepRest();
        if (inbox_.hasStrayDescriptors()) wrong_ = "descriptors that no frame declares";
    }

    void compare(const FrameHeader& header, std::string_view body) {
        const Sent& sent = sent_[received_++];
        std::vector<UniqueFd> fds;
        if (body != sent.body) wrong_ = "another body";
        if (header.descriptors != sent.endpoints.size()) wrong_ = "another descriptor count";
        if (!inbox_.takeDescriptors(header, fds)) wrong_ = "a descriptor came too late";
        for (std::size_t i = 0; i < fds.size(); ++i) {
            if (!XPCEndpoint::adopt(std::move(fds[i]))->isEqual(*sent.endpoints[i]))
                wrong_ = "the descriptor of another frame";
        }
    }

    std::mt19937 random_;
    const std::vector<EndpointPtr>& endpoints_;
    UniqueFd near_;
    UniqueFd far_;
    XPCOutbox outbox_;
    XPCInbox inbox_;
    std::vector<Sent> sent_;
    std::size_t received_ = 0;
    std::string wrong_;
};

TEST(XPCOutboxRandomTest, DescriptorsArriveWithTheirFramesWhateverTheSocketTakes) {
    std::vector<EndpointPtr> endpoints;
    for (int i = 0; i < 5; ++i)
        endpoints.push_back(makeEndpoint());
    for (unsigned seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        ASSERT_EQ(RandomConversation(seed, endpoints).run(), "");
    }
}

}  // namespace
}  // namespace sevrin::platform
