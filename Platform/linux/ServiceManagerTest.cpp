// Unit tests of what the service manager is told, with a real socket in its place.
#include "Platform/ServiceManager.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cstddef>
#include <filesystem>

#include "Platform/UniqueFd.h"
#include "Platform/linux/BootstrapTestSupport.h"
#include "Platform/linux/TestProcess.h"

namespace sevrin::platform {
namespace {

using testing::HasSubstr;

constexpr uid_t kSomebodyElse = 65'534;

// The manager's end: a datagram socket that NOTIFY_SOCKET names while this lives.
class Manager {
public:
    // At `path`, or at the abstract name behind its "@".
    explicit Manager(const std::string& place)
        : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
          variable_("NOTIFY_SOCKET", place) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        place.copy(address.sun_path, sizeof address.sun_path);
        if (place[0] == '@') address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + place.size());
        EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    }

    // What it was told next; "nothing" when nothing is there. Datagrams of this process are there
    // as soon as they were sent.
    [[nodiscard]] std::string told() const {
        std::array<char, 4096> text;
        const ssize_t size = ::recv(socket_.get(), text.data(), text.size(), 0);
        return size < 0 ? "nothing" : std::string(text.data(), static_cast<std::size_t>(size));
    }

private:
    UniqueFd socket_;
    EnvironmentChange variable_;
};

class ServiceManagerTest : public testing::Test {
protected:
    [[nodiscard]] std::string abstractName() const {
        return "@sevrin-test/" + std::to_string(::getpid()) + folder_.path();
    }

    TestFolder folder_;
};

TEST_F(ServiceManagerTest, NobodyIsToldWhenNobodyAsked) {
    for (const auto& value : {std::optional<std::string>(), std::optional<std::string>("")}) {
        const EnvironmentChange unset("NOTIFY_SOCKET", value);

        EXPECT_EQ(ServiceManager::tellReady(), std::nullopt);
    }
}

TEST_F(ServiceManagerTest, TheManagerIsToldByThePathOfItsSocket) {
    const Manager manager(folder_.path() + "/notify");

    EXPECT_EQ(ServiceManager::tellReady(), std::nullopt);

    EXPECT_EQ(manager.told(), "READY=1");
    EXPECT_EQ(manager.told(), "nothing");
}

TEST_F(ServiceManagerTest, TheManagerIsToldByAnAbstractName) {
    const Manager manager(abstractName());

    EXPECT_EQ(ServiceManager::tellReady(), std::nullopt);
    EXPECT_EQ(ServiceManager::tellStopping(), std::nullopt);

    EXPECT_EQ(manager.told(), "READY=1");
    EXPECT_EQ(manager.told(), "STOPPING=1");
}

TEST_F(ServiceManagerTest, AnAddressMayFillItsPlaceAndNotOneByteMore) {
    constexpr std::size_t kPlace = sizeof sockaddr_un{}.sun_path;
    const std::string path = folder_.path() + "/";
    const std::string longestPath = path + std::string(kPlace - 1 - path.size(), 'p');
    const std::string name = abstractName();
    const std::string longestName = name + std::string(kPlace - name.size(), 'n');

    for (const std::string& longest : {longestPath, longestName}) {
        const Manager manager(longest);
        EXPECT_EQ(ServiceManager::tellReady(), std::nullopt);
        EXPECT_EQ(manager.told(), "READY=1");

        const EnvironmentChange longer("NOTIFY_SOCKET", longest + "x");
        EXPECT_THAT(ServiceManager::tellReady().value_or(""),
                    HasSubstr("that is the address of no socket"));
        EXPECT_EQ(manager.told(), "nothing");
    }
}

TEST_F(ServiceManagerTest, WhatIsNoAddressIsReportedAndNotTried) {
    for (const char* const wrong : {"notify", "./notify", "@", "/", "vsock:2:1234"}) {
        const EnvironmentChange variable("NOTIFY_SOCKET", wrong);

        EXPECT_EQ(ServiceManager::tellReady().value_or(""),
                  "the service manager at " + std::string(wrong) +
                      " cannot be told: that is the address of no socket");
    }
}

TEST_F(ServiceManagerTest, AManagerThatIsGoneIsReported) {
    const EnvironmentChange variable("NOTIFY_SOCKET", folder_.path() + "/nobody");

    EXPECT_THAT(ServiceManager::tellReady().value_or(""), HasSubstr("No such file or directory"));
}

TEST_F(ServiceManagerTest, AStatusIsOneLineWhateverIsInIt) {
    const Manager manager(folder_.path() + "/notify");

    EXPECT_EQ(ServiceManager::tellStatus("Not reachable:\nREADY=1\tat \x7f caf\xc3\xa9"),
              std::nullopt);

    EXPECT_EQ(manager.told(), "STATUS=Not reachable: READY=1 at   caf\xc3\xa9");
}

// Whoever starts a set-id program could otherwise have it write, with rights of its own, to a
// socket that is closed to them.
TEST_F(ServiceManagerTest, ASetIdProgramTellsNobody) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root makes a program set-id";
    const std::string program = folder_.path() + "/helper";
    std::filesystem::copy_file(XPC_TEST_HELPER, program);
    const Manager manager(abstractName());
    const auto toldIn = [&](mode_t mode) {
        EXPECT_EQ(::chmod(program.c_str(), mode), 0);
        TestProcess::Start start;
        start.user = kSomebodyElse;
        TestProcess process(program, {"ready"}, start);
        EXPECT_EQ(process.line(), "told whoever asked");
        EXPECT_EQ(process.finish(), 0);
        return manager.told();
    };

    EXPECT_EQ(toldIn(0755), "READY=1");
    EXPECT_EQ(toldIn(04755), "nothing");
}

}  // namespace
}  // namespace sevrin::platform
