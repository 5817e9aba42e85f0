// The XPC thread: epoll, a task list with a wake-up descriptor, and timers.
#include "Platform/linux/XPCReactor.h"

#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <system_error>
#include <thread>
#include <utility>

#include "Platform/Assertion.h"

namespace sevrin::platform {

namespace {

constexpr std::size_t kEventsPerWaitMax = 64;

thread_local bool isReactorThread = false;

[[noreturn]] void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

XPCReactor& XPCReactor::shared() {
    // Never destroyed: its thread runs until the process ends.
    static XPCReactor& theReactor = *new XPCReactor;
    return theReactor;
}

bool XPCReactor::isCurrentThread() {
    return isReactorThread;
}

XPCReactor::XPCReactor()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)), wakeup_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!epoll_) throwErrno("epoll_create1");
    if (!wakeup_) throwErrno("eventfd");
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = nullptr;  // The wake-up descriptor is the one without a source.
    if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wakeup_.get(), &event) != 0)
        throwErrno("epoll_ctl");

    // Signals are the main thread's business: the new thread inherits a full mask.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread([this] { run(); }).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void XPCReactor::post(Task task) {
    bool isFirst = false;
    {
        const std::scoped_lock guard(lock_);
        isFirst = tasks_.empty();
        tasks_.push_back(std::move(task));
    }
    if (isFirst) wake();
}

void XPCReactor::postAt(Clock::time_point when, Task task) {
    {
        const std::scoped_lock guard(lock_);
        timers_.emplace(when, std::move(task));
    }
    if (!isReactorThread) wake();
}

void XPCReactor::wake() {
    const std::uint64_t one = 1;
    // A full counter means that the thread is about to wake anyway.
    while (::write(wakeup_.get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
}

void XPCReactor::add(int fd, std::shared_ptr<Source> source, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = source.get();
    {
        const std::scoped_lock guard(lock_);
        sources_.emplace(source.get(), source);
    }
    if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) == 0) return;
    const int error = errno;
    const std::scoped_lock guard(lock_);
    sources_.erase(source.get());
    throw std::system_error(error, std::generic_category(), "epoll_ctl");
}

void XPCReactor::modify(int fd, Source* source, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = source;
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event);
}

void XPCReactor::remove(int fd, Source* source) {
    SEVRIN_ASSERT(isReactorThread, "sources are removed on the XPC thread");
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    const std::scoped_lock guard(lock_);
    const auto found = sources_.find(source);
    if (found == sources_.end()) return;
    removed_.push_back(std::move(found->second));
    sources_.erase(found);
}

void XPCReactor::flushLater(std::shared_ptr<Source> source) {
    SEVRIN_ASSERT(isReactorThread, "flushes gather on the XPC thread");
    toFlush_.push_back(std::move(source));
}

void XPCReactor::run() {
    isReactorThread = true;
    pthread_setname_np(pthread_self(), "xpc");
    for (;;) {
        wait();
        runTasks();
        runTimers();
        flushAll();
        removed_.clear();
    }
}

void XPCReactor::wait() {
    std::array<epoll_event, kEventsPerWaitMax> events;
    const int count =
        ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeoutMs());
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        auto* source = static_cast<Source*>(event.data.ptr);
        if (source == nullptr) {
            std::uint64_t ignored;
            (void)!::read(wakeup_.get(), &ignored, sizeof ignored);
            continue;
        }
        // Removed by an earlier event of this round: still alive in removed_, but no longer served.
        const bool isRemoved = std::ranges::any_of(
            removed_, [source](const auto& gone) { return gone.get() == source; });
        if (isRemoved) continue;
        source->handleEvents(event.events);
        // After every event, not after all: the peer works on its answer while we serve the next.
        flushAll();
    }
}

void XPCReactor::runTasks() {
    std::vector<Task> tasks;
    {
        const std::scoped_lock guard(lock_);
        tasks.swap(tasks_);
    }
    for (Task& task : tasks) {
        task();
        task =
            nullptr;  // What it held is released here, in order, and not while the next one runs.
    }
}

void XPCReactor::runTimers() {
    const auto now = Clock::now();
    for (;;) {
        Task due;
        {
            const std::scoped_lock guard(lock_);
            if (timers_.empty() || timers_.begin()->first > now) return;
            due = std::move(timers_.begin()->second);
            timers_.erase(timers_.begin());
        }
        due();
    }
}

void XPCReactor::flushAll() {
    // A flush may end a connection, whose handler may send to another one: by index, until nothing
    // is left.
    for (std::size_t i = 0; i < toFlush_.size(); ++i) {
        const std::shared_ptr<Source> source = std::move(toFlush_[i]);
        source->flush();
    }
    toFlush_.clear();
}

int XPCReactor::timeoutMs() {
    const std::scoped_lock guard(lock_);
    if (!tasks_.empty()) return 0;
    if (timers_.empty()) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

}  // namespace sevrin::platform
