// The stage for tests of bad peers: a server in this process, and a well-behaved client of it.
//
// Whatever the bad peer does: the good client is answered before, during and after; the bad peer
// loses its connection and exactly one fault is reported, where a rule was broken; and nothing that
// it sent stays open. The raw bytes come from RawWire.h, so nothing here trusts our own encoders.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Platform/NSXPCConnection.h"
#include "Platform/XPCTestSupport.h"
#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/HostilePeer.h"
#include "Platform/linux/RawWire.h"
#include "Platform/linux/XPCFrame.h"

namespace sevrin::platform {

class HostilePeerFixture : public testing::Test {
protected:
    HostilePeerFixture() {
        server_.service->onEndpoint = [this](auto endpoint) { endpoint_ = std::move(endpoint); };
        good_ = server_.connect();
        EXPECT_TRUE(isGoodClientServed());
        descriptorsBefore_ = openDescriptors();
    }

    ~HostilePeerFixture() override {
        EXPECT_TRUE(isGoodClientServed());
        endpoint_ = nullptr;
        // Closing happens on the XPC thread, a moment after the test has seen its effect.
        const auto deadline = xpctest::patience();
        while (openDescriptors() != descriptorsBefore_ &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        EXPECT_EQ(openDescriptors(), descriptorsBefore_);
    }

    bool isGoodClientServed() { return xpctest::textOf(xpctest::ask(*good_, "good")) == "good"; }

    HostilePeer connect() { return HostilePeer(server_.listener().endpoint()); }

    // That a peer who sends `bytes` after its greeting is disconnected for a reason that contains
    // `why`.
    void expectBreach(const std::string& bytes, const std::string& why,
                      const std::vector<int>& descriptors = {}) {
        const std::size_t faultsBefore = log_.faults().size();
        HostilePeer peer = connect();
        peer.greet();
        peer.send(bytes, descriptors);
        EXPECT_TRUE(isGoodClientServed());
        EXPECT_TRUE(peer.isClosed());
        expectFault(faultsBefore, why);
    }

    // That exactly one fault was reported since there were `before`, and that it contains `why`.
    void expectFault(std::size_t before, const std::string& why) {
        const auto faults = log_.faults();
        ASSERT_EQ(faults.size(), before + 1) << why;
        EXPECT_THAT(faults.back(), testing::HasSubstr(why));
    }

    void expectNoFault() { EXPECT_EQ(log_.faults(), std::vector<std::string>{}); }

    // That `peer` is served like anybody else.
    void expectServed(HostilePeer& peer) {
        ASSERT_TRUE(peer.send(rawwire::request(7, "echo:withReply:", rawwire::text("hi"))));
        const std::size_t greetingBytes = 29;
        EXPECT_TRUE(peer.hasReceived(greetingBytes + FrameHeader::kBytes + 4));
        EXPECT_EQ(peer.received().substr(greetingBytes),
                  rawwire::frame(rawwire::kReply, 7, rawwire::hex("81 62") + "hi"));
    }

    xpctest::FaultLog log_;
    const std::shared_ptr<XPCEndpoint> peersEndpoint_ = bootstrap::listenAnonymously().endpoint;
    std::shared_ptr<NSXPCListenerEndpoint> endpoint_;  // Used on the XPC thread, and at the end.
    xpctest::TestServer server_;
    std::shared_ptr<NSXPCConnection> good_;
    std::size_t descriptorsBefore_ = 0;
};

}  // namespace sevrin::platform
