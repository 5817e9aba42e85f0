// A thread that looks every few ticks, or sleeps on a timer: setting that wakes nobody, and some
// ticks later the kernel does.
//
// One descriptor and one thread for each task that has been expected, as long as the process lives.
#include "Platform/BackgroundTask.h"

#include <pthread.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>

#include "Platform/DispatchQueue.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {

// Two threads meet here without a lock: whoever asks writes his note and then looks whether the
// thread is awake; the thread notes that it is not and then looks for notes once more.

void BackgroundTask::expect() noexcept {
    isExpected_ = true;
    if (isAwake_) return;
    if (!isStarted_.exchange(true)) return start();
    if (alarm_ >= 0) wake();
}

void BackgroundTask::request() noexcept {
    isAsked_ = true;
    if (isAwake_) return;
    if (alarm_ < 0) return enqueue();
    wake();
}

void BackgroundTask::start() noexcept {
    UniqueFd alarm(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
    if (!alarm) return;
    alarm_ = alarm.get();
    try {
        std::thread([this] { serve(); }).detach();
        static_cast<void>(alarm.release());
    } catch (const std::system_error&) {
        alarm_ = -1;
    }
}

// Several may do so at once; then the latest counts, which is soon enough.
void BackgroundTask::wake() noexcept {
    constexpr auto kDelay = std::chrono::nanoseconds(kBackgroundTaskDelay).count();
    constexpr itimerspec kOnce{{0, 0}, {0, static_cast<long>(kDelay)}};
    if (::timerfd_settime(alarm_, 0, &kOnce, nullptr) != 0) enqueue();
}

void BackgroundTask::enqueue() noexcept {
    isAsked_ = false;
    try {
        DispatchQueue::globalQueue(DispatchQueue::Priority::Background).async(block_);
    } catch (const std::system_error&) {
        block_();  // There is no thread to be had but this one.
    }
}

void BackgroundTask::serve() noexcept {
    ::pthread_setname_np(::pthread_self(), "background-task");
    do {
        isAwake_ = true;
        lookForRequests();
        isAwake_ = false;
    } while (isAsked_ || waitForAlarm());
}

// Until nothing has come for long enough. What woke the thread has waited already.
void BackgroundTask::lookForRequests() noexcept {
    if (isAsked_) enqueue();
    const auto all = patience_ / kBackgroundTaskDelay;
    for (auto looks = all; looks > 0; --looks) {
        std::this_thread::sleep_for(kBackgroundTaskDelay);
        const bool isExpected = isExpected_.exchange(false);
        const bool isAsked = isAsked_;
        if (isAsked) enqueue();
        if (isExpected || isAsked) looks = all;
    }
}

// False when somebody took the descriptor away; then requests go to the queue.
bool BackgroundTask::waitForAlarm() noexcept {
    for (;;) {
        std::uint64_t times = 0;
        const ssize_t size = ::read(alarm_, &times, sizeof times);
        if (size == sizeof times) return true;
        if (size >= 0 || errno != EINTR) {
            alarm_ = -1;
            return false;
        }
    }
}

}  // namespace sevrin::platform
