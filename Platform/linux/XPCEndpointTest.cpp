// Tests of endpoints as descriptors: what their holders can do with them, and what they cannot.
#include "Platform/linux/XPCEndpoint.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <system_error>

#include "Platform/XPCTestSupport.h"
#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/BootstrapTestSupport.h"
#include "Platform/linux/HostilePeer.h"
#include "Platform/linux/TestProcess.h"

namespace sevrin::platform {
namespace {

using namespace xpctest;

using Code = XPCError::Code;

constexpr uid_t kSomebodyElse = 65'534;

UniqueFd copyOf(const XPCEndpoint& endpoint) {
    return UniqueFd(::fcntl(endpoint.fd(), F_DUPFD_CLOEXEC, 0));
}

std::shared_ptr<XPCEndpoint> makeEndpoint() {
    return bootstrap::listenAnonymously().endpoint;
}

// Two connected sockets: one for the test, one for the program that it starts.
struct SocketPair {
    SocketPair() {
        int sockets[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) std::abort();
        ours.reset(sockets[0]);
        theirs.reset(sockets[1]);
    }
    UniqueFd ours;
    UniqueFd theirs;
};

TEST(XPCEndpointTest, ItsDescriptorCanNeitherReadNorAcceptNorShutDown) {
    const auto listening = bootstrap::listenAnonymously();
    const int fd = listening.endpoint->fd();
    char byte;
    int value = 0;
    socklen_t size = sizeof value;

    EXPECT_EQ(::read(fd, &byte, 1), -1);
    EXPECT_EQ(::write(fd, &byte, 1), -1);
    EXPECT_EQ(::recv(fd, &byte, 1, 0), -1);
    EXPECT_EQ(::accept(fd, nullptr, nullptr), -1);
    EXPECT_EQ(::listen(fd, 1), -1);
    EXPECT_EQ(::shutdown(fd, SHUT_RDWR), -1);
    EXPECT_EQ(::getsockopt(fd, SOL_SOCKET, SO_TYPE, &value, &size), -1);
    EXPECT_EQ(::open(("/proc/self/fd/" + std::to_string(fd)).c_str(), O_RDWR), -1);
    EXPECT_EQ(::fchmod(fd, 0), -1);
}

TEST(XPCEndpointTest, MakingOneLeavesNothingInTheFileSystem) {
    const TestFolder runtime;
    const EnvironmentChange moved("XDG_RUNTIME_DIR", runtime.path());

    const auto listening = bootstrap::listenAnonymously();

    EXPECT_TRUE(std::filesystem::is_empty(runtime.path()));
}

TEST(XPCEndpointTest, WhereNoneCanBeMadeTheReasonIsThrown) {
    const TestFolder runtime;
    const std::string gone = runtime.path() + "/gone";
    ASSERT_EQ(::mkdir(gone.c_str(), 0700), 0);
    const EnvironmentChange moved("XDG_RUNTIME_DIR", gone);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{3, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);

    EXPECT_THROW((void)NSXPCListener::anonymousListener(), std::system_error);

    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(std::filesystem::is_empty(gone));
}

TEST(XPCEndpointTest, OnlyThePathOfASocketIsOne) {
    EXPECT_THROW((void)XPCEndpoint::adopt(UniqueFd(::open("/dev/null", O_RDWR | O_CLOEXEC))),
                 std::system_error);
    EXPECT_THROW((void)XPCEndpoint::adopt(UniqueFd(::open("/dev/null", O_PATH | O_CLOEXEC))),
                 std::system_error);
    EXPECT_THROW((void)XPCEndpoint::adopt(UniqueFd()), std::system_error);
    EXPECT_NO_THROW((void)XPCEndpoint::adopt(copyOf(*makeEndpoint())));
}

TEST(XPCEndpointTest, WhatOneUserSendsTwiceIsKeptOnce) {
    const auto endpoint = makeEndpoint();
    const char* why = nullptr;
    const std::size_t before = openDescriptors();

    const auto first = XPCEndpoint::adoptFromPeer(copyOf(*endpoint), 1, why);
    const auto again = XPCEndpoint::adoptFromPeer(copyOf(*endpoint), 1, why);
    const auto ofAnother = XPCEndpoint::adoptFromPeer(copyOf(*endpoint), 2, why);

    EXPECT_EQ(first, again);
    EXPECT_NE(first, ofAnother);
    EXPECT_TRUE(first->isEqual(*ofAnother));
    EXPECT_EQ(openDescriptors(), before + 2);
}

TEST(XPCEndpointTest, OneThatWasLetGoIsTakenAnew) {
    const auto endpoint = makeEndpoint();
    const char* why = nullptr;
    const std::size_t before = openDescriptors();

    for (int i = 0; i < 3; ++i) {
        const auto taken = XPCEndpoint::adoptFromPeer(copyOf(*endpoint), 1, why);
        ASSERT_TRUE(taken);
        EXPECT_TRUE(taken->isEqual(*endpoint));
        EXPECT_EQ(openDescriptors(), before + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(XPCEndpointTest, APublisherSeesWhoItsConsumerReallyIs) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root becomes somebody else";
    TestServer publisher;
    const auto endpoint = std::static_pointer_cast<XPCEndpoint>(publisher.listener().endpoint());
    SocketPair sockets;
    TestProcess::Start start;
    start.user = kSomebodyElse;
    start.input = sockets.theirs.get();
    TestProcess consumer(XPC_TEST_HELPER, {"consume"}, start);

    HostilePeer link(std::move(sockets.ours));
    ASSERT_TRUE(link.send("!", {endpoint->fd()}));

    EXPECT_EQ(consumer.line(), "hello from 65534");
    const auto connection = publisher.accepted();
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->effectiveUserIdentifier(), kSomebodyElse);
    EXPECT_EQ(connection->effectiveGroupIdentifier(), kSomebodyElse);
    EXPECT_EQ(connection->processIdentifier(), consumer.pid());
}

TEST(XPCEndpointTest, APublishersDeathIsKnownAtOnceToWhoeverHoldsItsEndpoint) {
    SocketPair sockets;
    TestProcess::Start start;
    start.input = sockets.theirs.get();
    TestProcess publisher(XPC_TEST_HELPER, {"publish"}, start);
    ASSERT_EQ(publisher.line(), "published");
    const auto endpoint = receiveEndpoint(sockets.ours.get());
    ASSERT_TRUE(endpoint);
    const auto connect = [&] {
        auto connection = NSXPCConnection::initWithListenerEndpoint(endpoint);
        connection->setRemoteObjectInterface(
            NSXPCInterface::interfaceWithProtocol(serviceProtocol()));
        connection->resume();
        return connection;
    };
    const auto before = connect();
    ASSERT_EQ(textOf(ask(*before, "alive?")), "alive?");
    EXPECT_EQ(before->processIdentifier(), publisher.pid());

    EXPECT_EQ(publisher.kill(), -SIGKILL);

    EXPECT_EQ(codeOf(ask(*before, "alive?")), Code::Disconnected);
    EXPECT_EQ(connect()->failure()->code, Code::NoService);
}

}  // namespace
}  // namespace sevrin::platform
