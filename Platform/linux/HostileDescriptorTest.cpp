// Peers that send descriptors too many, too few, twice, too early, or of the wrong kind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/mman.h>

#include "Platform/XPCLimits.h"
#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/HostilePeerFixture.h"

namespace sevrin::platform {
namespace {

using namespace rawwire;

class HostileDescriptorTest : public HostilePeerFixture {
protected:
    // An endpoint's descriptor that is in order, borrowed.
    int endpointFd() { return peersEndpoint_->fd(); }

    // A message that keeps one endpoint: the one with index `index` of `declared`.
    static std::string keep(unsigned index, unsigned declared) {
        return message("keepEndpoint:", endpoint(index), declared);
    }

    static std::string keepTwo(unsigned first, unsigned second, unsigned declared) {
        return frame(
            kMessage, 0,
            array(3, text("keepEndpoint:andEndpoint:") + endpoint(first) + endpoint(second)),
            declared);
    }
};

TEST_F(HostileDescriptorTest, AnEndpointInOrderIsKept) {
    HostilePeer peer = connect();
    peer.greet();
    ASSERT_TRUE(peer.send(keep(0, 1), {endpointFd()}));
    ASSERT_TRUE(peer.send(keepTwo(1, 0, 2), {endpointFd(), endpointFd()}));

    expectServed(peer);
    EXPECT_TRUE(endpoint_);
    expectNoFault();
}

TEST_F(HostileDescriptorTest, AnEndpointWithoutItsDescriptor) {
    expectBreach(keep(0, 0), "an endpoint without a descriptor of its own");
    expectBreach(keep(1, 1), "an endpoint without a descriptor of its own", {endpointFd()});
    expectBreach(message("keepEndpoint:", hex("d9c49b 1bffffffffffffffff"), 1),
                 "an endpoint without a descriptor of its own", {endpointFd()});
}

TEST_F(HostileDescriptorTest, OneDescriptorForTwoEndpoints) {
    expectBreach(keepTwo(0, 0, 1), "an endpoint without a descriptor of its own", {endpointFd()});
    expectBreach(keepTwo(0, 0, 2), "an endpoint without a descriptor of its own",
                 {endpointFd(), endpointFd()});
}

TEST_F(HostileDescriptorTest, FewerThanDeclared) {
    expectBreach(keep(0, 1), "fewer descriptors than a frame declares");
    expectBreach(keepTwo(0, 1, 2), "fewer descriptors than a frame declares", {endpointFd()});
}

TEST_F(HostileDescriptorTest, MoreThanNamed) {
    expectBreach(keep(0, 2), "a descriptor that no argument names", {endpointFd(), endpointFd()});
    expectBreach(message("note:", text("x"), 1), "a descriptor that no argument names",
                 {endpointFd()});
    expectBreach(message("keepEndpoint:", hex("f6"), 1), "a descriptor that no argument names",
                 {endpointFd()});
}

TEST_F(HostileDescriptorTest, MoreThanDeclared) {
    expectBreach(message("note:", text("x")), "descriptors that no frame declares", {endpointFd()});
    expectBreach(keep(0, 1), "descriptors that no frame declares", {endpointFd(), endpointFd()});
}

TEST_F(HostileDescriptorTest, MoreThanAFrameMayDeclare) {
    const std::vector<int> nine(kDescriptorsPerFrameMax + 1, endpointFd());

    expectBreach(keep(0, kDescriptorsPerFrameMax + 1), "no frame", nine);
    // Together with a frame that never ends.
    expectBreach("x", "descriptors that no frame declares", nine);
}

TEST_F(HostileDescriptorTest, AsManyAsTheKernelTakesAtOnceAgainAndAgain) {
    const std::vector<int> all(kDescriptorBatchMax, endpointFd());

    expectBreach("x", "descriptors that no frame declares", all);

    const std::size_t faultsBefore = log_.faults().size();
    HostilePeer peer = connect();
    peer.greet();
    for (int i = 0; i < 100 && peer.send("x", all); ++i) {
    }
    EXPECT_TRUE(peer.isClosed());
    expectFault(faultsBefore, "descriptors that no frame declares");
}

TEST_F(HostileDescriptorTest, DescriptorsThatWaitForTheRestOfTheirFrame) {
    HostilePeer peer = connect();
    peer.greet();
    const std::string whole = keepTwo(0, 1, 2);

    ASSERT_TRUE(peer.send(std::string_view(whole).substr(0, 1), {endpointFd(), endpointFd()}));
    EXPECT_TRUE(isGoodClientServed());
    ASSERT_TRUE(peer.send(std::string_view(whole).substr(1)));

    expectServed(peer);
    expectNoFault();
}

TEST_F(HostileDescriptorTest, DescriptorsOfAFrameThatNeverEnds) {
    HostilePeer peer = connect();
    peer.greet();
    peer.send(std::string_view(keep(0, 1)).substr(0, 10), {endpointFd()});
    EXPECT_TRUE(isGoodClientServed());

    peer.close();

    EXPECT_TRUE(isGoodClientServed());
    expectNoFault();
}

TEST_F(HostileDescriptorTest, DescriptorsOfTheWrongKind) {
    int pipes[2];
    ASSERT_EQ(::pipe2(pipes, O_CLOEXEC), 0);
    int sockets[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
    auto listening = bootstrap::listenAnonymously();
    const struct {
        const char* what;
        UniqueFd fd;
    } wrong[] = {
        {"a file", UniqueFd(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC))},
        {"a folder", UniqueFd(::open("/", O_RDONLY | O_CLOEXEC))},
        {"a device", UniqueFd(::open("/dev/null", O_RDWR | O_CLOEXEC))},
        {"a pipe to read", UniqueFd(pipes[0])},
        {"a pipe to write", UniqueFd(pipes[1])},
        {"a connected socket", UniqueFd(sockets[0])},
        {"its other end", UniqueFd(sockets[1])},
        {"a listening socket", std::move(listening.socket)},
        {"a socket of another family", UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))},
        {"memory", UniqueFd(::memfd_create("x", MFD_CLOEXEC))},
        {"an epoll", UniqueFd(::epoll_create1(EPOLL_CLOEXEC))},
        {"the path of a file", UniqueFd(::open("/proc/self/exe", O_PATH | O_CLOEXEC))},
        {"the path of a folder", UniqueFd(::open("/", O_PATH | O_CLOEXEC))},
        {"the path of a link", UniqueFd(::open("/proc/self/exe", O_PATH | O_NOFOLLOW | O_CLOEXEC))},
    };
    for (const auto& each : wrong) {
        SCOPED_TRACE(each.what);
        ASSERT_TRUE(each.fd);
        expectBreach(keep(0, 1), "a descriptor that is no endpoint", {each.fd.get()});
    }
    const int right = endpointFd();
    expectBreach(keepTwo(0, 1, 2), "a descriptor that is no endpoint", {right, wrong[0].fd.get()});
    EXPECT_FALSE(endpoint_);
}

TEST_F(HostileDescriptorTest, AnUnknownMethodWithDescriptors) {
    expectBreach(message("keepAll:", endpoint(0), 1), "an unknown selector", {endpointFd()});
}

TEST_F(HostileDescriptorTest, DescriptorsWithGarbage) {
    HostilePeer peer = connect();
    peer.send(std::string(64, '\xff'), std::vector<int>(kDescriptorBatchMax, endpointFd()));

    EXPECT_TRUE(peer.isClosed());
    expectFault(0, "no frame");
}

}  // namespace
}  // namespace sevrin::platform
