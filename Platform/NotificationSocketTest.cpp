// Tests of how notifications travel: who is found, who is believed, and what senders cannot do.
#include "Platform/linux/NotificationSocket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/NSRunLoop.h"
#include "Platform/linux/NotificationDatagram.h"
#include "Tests/Support/OwnNetwork.h"
#include "Tests/Support/TestChild.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;
using test::TestChild;
using Reach = NotificationReach;

constexpr std::size_t kBytesMax = NSDistributedNotificationCenter::kNotificationBytesMax;

const std::string kOwnPrefix =
    std::string(kNotificationSocketPrefix) + std::to_string(::geteuid()) + "/";

bool isFound(const std::string& name, Reach reach) {
    const std::vector<std::string> names = notificationReceivers(reach);
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::pair<sockaddr_un, socklen_t> addressOf(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    return {address, static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())};
}

std::string nameOf(int socket) {
    sockaddr_un address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), 0);
    return {address.sun_path + 1, size - offsetof(sockaddr_un, sun_path) - 1};
}

// A socket with a name of the test's choice.
UniqueFd impostor(const std::string& name, int type = SOCK_DGRAM) {
    UniqueFd socket(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    const auto [address, size] = addressOf(name);
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size), 0) << name;
    return socket;
}

std::string ownName(const std::string& end) {
    return kOwnPrefix + std::to_string(::getpid()) + "." + end;
}

ino_t inodeOf(int descriptor) {
    struct stat status {};
    EXPECT_EQ(::fstat(descriptor, &status), 0);
    return status.st_ino;
}

std::ptrdiff_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

class NotificationSocketTest : public testing::Test {
protected:
    // These tests are right among others too; but alone they cannot be drowned.
    static void SetUpTestSuite() { static_cast<void>(test::enterOwnNetwork()); }
};

TEST_F(NotificationSocketTest, AnOpenSocketIsFoundByItsUserAndByEverybody) {
    const UniqueFd socket = openNotificationSocket();

    EXPECT_TRUE(isFound(nameOf(socket.get()), Reach::OwnUser));
    EXPECT_TRUE(isFound(nameOf(socket.get()), Reach::AllSessions));
}

TEST_F(NotificationSocketTest, AClosedSocketIsNotFound) {
    UniqueFd socket = openNotificationSocket();
    const std::string name = nameOf(socket.get());

    socket.reset();

    EXPECT_FALSE(isFound(name, Reach::AllSessions));
}

TEST_F(NotificationSocketTest, EachSocketIsFoundOnce) {
    const UniqueFd socket = openNotificationSocket();
    const std::vector<std::string> names = notificationReceivers(Reach::AllSessions);

    EXPECT_EQ(std::count(names.begin(), names.end(), nameOf(socket.get())), 1);
}

TEST_F(NotificationSocketTest, ANameThatItsProcessDoesNotHoldIsNotTheUsersOwn) {
    const UniqueFd other = openNotificationSocket();
    const std::vector names{
        ownName(std::to_string(other.get()) + ".1"),  // The descriptor is another socket.
        ownName("999999.1"),                          // No such descriptor.
        ownName("1"),                                 // No descriptor at all.
        kOwnPrefix + "0.1.1",                         // No process.
        kOwnPrefix + "text",
    };
    for (const std::string& name : names) {
        const UniqueFd socket = impostor(name);

        EXPECT_FALSE(isFound(name, Reach::OwnUser)) << name;
        EXPECT_TRUE(isFound(name, Reach::AllSessions)) << name;
    }
}

TEST_F(NotificationSocketTest, ANameThatAnotherUserTookIsNotTheUsersOwn) {
    if (!TestChild::mayChangeUser()) GTEST_SKIP() << "only root can start another user's process";
    TestChild child = TestChild::running(
        [] {
            UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM, 0));
            const std::string name = ownName(std::to_string(socket.get()) + ".1");
            const auto [address, size] = addressOf(name);
            const auto* const plain = reinterpret_cast<const sockaddr*>(&address);
            if (::bind(socket.get(), plain, size) != 0) return 1;
            const std::string line = name + '\n';
            static_cast<void>(::write(STDOUT_FILENO, line.data(), line.size()) > 0);
            char byte = 0;
            return static_cast<int>(::read(STDIN_FILENO, &byte, 1));  // Until the test is done.
        },
        TestChild::kNobody);
    const std::optional<std::string> name = child.readLine();
    ASSERT_TRUE(name.has_value());

    EXPECT_FALSE(isFound(*name, Reach::OwnUser));
    EXPECT_TRUE(isFound(*name, Reach::AllSessions));
    child.closeInput();
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(NotificationSocketTest, ALineBreakInANameForgesNobodysIdentity) {
    const UniqueFd genuine = openNotificationSocket();
    const std::string claimed = ownName(std::to_string(genuine.get()) + ".f");
    const UniqueFd spy = impostor(claimed);
    const std::string line = "x\n0: 2 0 0 2 1 " + std::to_string(inodeOf(genuine.get())) + " @";
    ASSERT_LE((line + claimed).size(), 107U);
    const UniqueFd forger = impostor(line + claimed);

    EXPECT_FALSE(isFound(claimed, Reach::OwnUser));
    EXPECT_TRUE(isFound(nameOf(genuine.get()), Reach::OwnUser));
}

TEST_F(NotificationSocketTest, WhatIsSentArrivesWithItsSender) {
    const UniqueFd socket = openNotificationSocket();

    sendNotificationPacket(nameOf(socket.get()), "bytes");
    const auto packet = receiveNotificationPacket(socket.get());

    ASSERT_TRUE(packet.has_value());
    EXPECT_EQ(packet->bytes, "bytes");
    EXPECT_EQ(packet->sender, ::geteuid());
    EXPECT_FALSE(receiveNotificationPacket(socket.get()).has_value());
}

TEST_F(NotificationSocketTest, TheSenderIsTheEffectiveUser) {
    if (!TestChild::mayChangeUser()) GTEST_SKIP() << "only root can take another identity";
    const UniqueFd socket = openNotificationSocket();
    const std::string name = nameOf(socket.get());

    TestChild child = TestChild::running([&] {
        if (::seteuid(TestChild::kNobody) != 0) return 1;
        sendNotificationPacket(name, "bytes");
        return 0;
    });
    ASSERT_EQ(child.wait(), 0);
    const auto packet = receiveNotificationPacket(socket.get());

    ASSERT_TRUE(packet.has_value());
    EXPECT_EQ(packet->sender, TestChild::kNobody);
}

TEST_F(NotificationSocketTest, ASenderThatTellsNoCredentialsIsToldByTheKernel) {
    const UniqueFd socket = openNotificationSocket();
    const UniqueFd sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto [address, size] = addressOf(nameOf(socket.get()));

    ASSERT_EQ(::sendto(sender.get(), "x", 1, 0, reinterpret_cast<const sockaddr*>(&address), size),
              1);
    const auto packet = receiveNotificationPacket(socket.get());

    ASSERT_TRUE(packet.has_value());
    EXPECT_EQ(packet->sender, ::getuid());
}

TEST_F(NotificationSocketTest, AttachedDescriptorsAreNotTakenIn) {
    const UniqueFd socket = openNotificationSocket();
    const UniqueFd sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const std::ptrdiff_t before = openDescriptors();
    auto [address, size] = addressOf(nameOf(socket.get()));
    char byte = 'x';
    iovec content{&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = size;
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int attached = sender.get();
    std::memcpy(CMSG_DATA(header), &attached, sizeof attached);

    ASSERT_EQ(::sendmsg(sender.get(), &message, 0), 1);
    const auto packet = receiveNotificationPacket(socket.get());

    ASSERT_TRUE(packet.has_value());
    EXPECT_EQ(packet->sender, std::nullopt);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(NotificationSocketTest, TheLargestPacketArrivesWholeAndALargerOneWithoutSender) {
    const UniqueFd socket = openNotificationSocket();
    const std::string name = nameOf(socket.get());

    sendNotificationPacket(name, std::string(kBytesMax, 'x'));
    const auto largest = receiveNotificationPacket(socket.get());
    sendNotificationPacket(name, std::string(kBytesMax + 1, 'x'));
    const auto larger = receiveNotificationPacket(socket.get());

    ASSERT_TRUE(largest.has_value() && larger.has_value());
    EXPECT_EQ(largest->bytes.size(), kBytesMax);
    EXPECT_EQ(largest->sender, ::geteuid());
    EXPECT_EQ(larger->sender, std::nullopt);
}

TEST_F(NotificationSocketTest, ReceiversThatCannotTakeAPacketArePassedOver) {
    const UniqueFd connectedElsewhere = impostor(ownName("a"));
    const UniqueFd elsewhere = impostor(ownName("b"));
    const auto [address, size] = addressOf(ownName("b"));
    const auto* const plain = reinterpret_cast<const sockaddr*>(&address);
    ASSERT_EQ(::connect(connectedElsewhere.get(), plain, size), 0);
    const UniqueFd deaf = impostor(ownName("c"));
    ASSERT_EQ(::shutdown(deaf.get(), SHUT_RD), 0);
    const UniqueFd stream = impostor(ownName("d"), SOCK_STREAM);
    const std::vector names{ownName("a"), ownName("c"), ownName("d"), ownName("gone"),
                            kOwnPrefix + std::string(200, 'x')};

    for (const std::string& name : names)
        EXPECT_NO_THROW(sendNotificationPacket(name, "bytes"));
}

TEST_F(NotificationSocketTest, AFullReceiverIsPassedOverAndKeepsWhatCameFirst) {
    const UniqueFd socket = openNotificationSocket();
    const std::string name = nameOf(socket.get());

    for (int number = 0; number < 2000; ++number) {
        sendNotificationPacket(name, std::to_string(number));
    }

    int received = 0;
    while (const auto packet = receiveNotificationPacket(socket.get())) {
        ASSERT_EQ(packet->bytes, std::to_string(received++));
    }
    EXPECT_GT(received, 0);
    EXPECT_LT(received, 2000);
}

TEST_F(NotificationSocketTest, OneReceiverThatDoesNotReadTakesNoRoomFromAnother) {
    const std::vector<UniqueFd> lazy = [] {
        std::vector<UniqueFd> sockets;
        for (int count = 0; count < 8; ++count)
            sockets.push_back(openNotificationSocket());
        return sockets;
    }();
    const UniqueFd last = openNotificationSocket();

    for (const UniqueFd& socket : lazy) {
        sendNotificationPacket(nameOf(socket.get()), std::string(kBytesMax, 'x'));
    }
    sendNotificationPacket(nameOf(last.get()), std::string(kBytesMax, 'x'));

    EXPECT_TRUE(receiveNotificationPacket(last.get()).has_value());
}

// What the centre makes of packets that no centre has sent.
class ForeignPacketTest : public NotificationSocketTest {
protected:
    ForeignPacketTest() {
        observer_ = NSDistributedNotificationCenter::defaultCenter().addObserver(
            name_, {}, [this](const NSNotification& notification) {
                objects_ += notification.object.value_or("-") + " ";
                if (notification.object == "end") NSRunLoop::currentRunLoop().stop();
            });
        for (const std::string& each : notificationReceivers(Reach::OwnUser)) {
            if (each.starts_with(ownName(""))) socket_ = each;
        }
    }
    ~ForeignPacketTest() override {
        NSDistributedNotificationCenter::defaultCenter().removeObserver(observer_);
    }

    [[nodiscard]] std::string packet(const char* object, unsigned options = 0) const {
        return encodeNotification({NSNotification{name_, object, Value()}, options});
    }

    // Sends `bytes` to the observer's socket as `user`.
    void sendAs(uid_t user, const std::string& bytes) {
        TestChild child = TestChild::running(
            [&] {
                sendNotificationPacket(socket_, bytes);
                return 0;
            },
            user);
        ASSERT_EQ(child.wait(), 0);
    }

    // What was heard by the time a last packet has arrived.
    [[nodiscard]] std::string heard() {
        send(packet("end"));
        EXPECT_TRUE(
            NSRunLoop::currentRunLoop().runUntilDate(std::chrono::steady_clock::now() + 60s));
        return objects_;
    }

    [[nodiscard]] const std::string& name() const { return name_; }

    void send(const std::string& bytes) const { sendNotificationPacket(socket_, bytes); }

private:
    const std::string name_ = "com.sevrin.test.foreign." + std::to_string(::getpid());
    std::string socket_;
    std::string objects_;
    NSDistributedNotificationCenter::ObserverId observer_ = 0;
};

TEST_F(ForeignPacketTest, MalformedPacketsAreDroppedAndCostNothingElse) {
    send("");
    send("garbage");
    send(packet("cut").substr(0, 10));
    send(packet("longer") + "x");
    send(packet("too long") + std::string(kBytesMax, 'x'));
    send(packet("good"));

    EXPECT_EQ(heard(), "good end ");
}

TEST_F(ForeignPacketTest, APrivatePostOfAnotherUserIsDropped) {
    if (!TestChild::mayChangeUser()) GTEST_SKIP() << "only root can start another user's process";

    sendAs(TestChild::kNobody, packet("private", NSDistributedNotificationDeliverImmediately));
    sendAs(TestChild::kNobody, packet("public", NSDistributedNotificationPostToAllSessions));

    EXPECT_EQ(heard(), "public end ");
}

TEST_F(ForeignPacketTest, APrivatePostOfRootIsTakenByAnyUser) {
    if (!TestChild::mayChangeUser()) GTEST_SKIP() << "only root can start another user's process";
    TestChild child = TestChild::playing("observe " + name(), TestChild::kNobody);
    ASSERT_TRUE(child.waitForLine("ready"));
    const std::string prefix = std::string(kNotificationSocketPrefix) +
                               std::to_string(TestChild::kNobody) + "/" +
                               std::to_string(child.process()) + ".";
    const std::vector<std::string> names = notificationReceivers(Reach::AllSessions);
    const auto name = std::find_if(names.begin(), names.end(), [&](const std::string& each) {
        return each.starts_with(prefix);
    });
    ASSERT_NE(name, names.end());

    sendNotificationPacket(*name, packet("from root"));

    EXPECT_EQ(child.readLine(), "from root");
}

}  // namespace
}  // namespace sevrin::platform
