// Tests of call stacks: whose addresses they hold, their order, and the stacks they can be taken
// on.
#include "Platform/CallStack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <thread>
#include <vector>

namespace sevrin::platform {
namespace {

// As exceptions do it: the addresses begin with the caller of this function.
[[gnu::noinline]] std::vector<std::uintptr_t> capture(std::size_t room = kCallStackMax) {
    std::vector<std::uintptr_t> addresses(room);
    addresses.resize(captureCallStack(addresses));
    return addresses;
}

[[gnu::noinline]] std::vector<std::uintptr_t> captureBelow(int levels) {
    if (levels == 0) return capture();
    std::vector<std::uintptr_t> addresses = captureBelow(levels - 1);
    return addresses;
}

// The place that the function which calls this returns to.
#define SEVRIN_RETURN_ADDRESS() reinterpret_cast<std::uintptr_t>(__builtin_return_address(0))

struct Seen {
    std::vector<std::uintptr_t> addresses;
    std::uintptr_t caller;
};

[[gnu::noinline]] Seen captureAndSee() {
    return {capture(), SEVRIN_RETURN_ADDRESS()};
}

TEST(CallStackTest, TheSecondAddressIsTheCallersCaller) {
    const Seen seen = captureAndSee();

    ASSERT_GE(seen.addresses.size(), 2U);
    EXPECT_EQ(seen.addresses[1], seen.caller);
}

TEST(CallStackTest, ADeeperCallHasOneMoreAddress) {
    const std::size_t here = captureBelow(0).size();

    EXPECT_EQ(captureBelow(1).size(), here + 1);
    EXPECT_EQ(captureBelow(10).size(), here + 10);
}

TEST(CallStackTest, OnlySoManyAddressesAreKeptAsThereIsRoomFor) {
    EXPECT_EQ(capture(2).size(), 2U);
    EXPECT_EQ(capture(0).size(), 0U);
    EXPECT_EQ(captureBelow(2 * static_cast<int>(kCallStackMax)).size(), kCallStackMax);
}

TEST(CallStackTest, AThreadHasAStackOfItsOwn) {
    std::vector<std::uintptr_t> addresses;
    std::thread([&] { addresses = captureBelow(5); }).join();

    EXPECT_GE(addresses.size(), 6U);
}

TEST(CallStackTest, ErrnoStaysAsItIs) {
    std::thread([] {
        errno = EDOM;
        static_cast<void>(capture());
        EXPECT_EQ(errno, EDOM);
    }).join();
}

std::array<std::uintptr_t, kCallStackMax> signalAddresses;
std::size_t signalAddressCount = 0;

void captureInHandler(int) {
    signalAddressCount = captureCallStack(signalAddresses);
}

TEST(CallStackTest, AForeignStackIsWalkedAsFarAsItGoes) {
    static_cast<void>(capture());
    std::vector<char> memory(256 * 1024);
    stack_t stack{};
    stack.ss_sp = memory.data();
    stack.ss_size = memory.size();
    ASSERT_EQ(::sigaltstack(&stack, nullptr), 0);
    struct sigaction action {};
    action.sa_handler = captureInHandler;
    action.sa_flags = SA_ONSTACK;
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);

    std::raise(SIGUSR1);

    ::signal(SIGUSR1, SIG_DFL);
    stack.ss_flags = SS_DISABLE;
    ::sigaltstack(&stack, nullptr);
    EXPECT_GE(signalAddressCount, 1U);
}

}  // namespace
}  // namespace sevrin::platform
