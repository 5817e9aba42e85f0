// An event counter watched on the main loop: writing to it is all that trigger() does.
#include "Platform/SignalWakeup.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/UniqueFd.h"
#include "Platform/linux/DescriptorWatch.h"

namespace sevrin::platform {
namespace {

UniqueFd newCounter() {
    UniqueFd counter(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!counter) throw std::system_error(errno, std::generic_category(), "eventfd");
    return counter;
}

// Takes all triggers so far; those that come while the block runs make it run again.
void clearCounter(int counter) {
    std::uint64_t triggers = 0;
    [[maybe_unused]] const ssize_t size = ::read(counter, &triggers, sizeof triggers);
}

}  // namespace

struct SignalWakeup::Backend {
    explicit Backend(std::function<void()> block)
        : watch(newCounter(), [block = std::move(block)](int counter) {
              clearCounter(counter);
              block();
          }) {}

    DescriptorWatch watch;
};

SignalWakeup::SignalWakeup(std::function<void()> block) {
    SEVRIN_ASSERT(block, "a wake-up was given an empty block");
    backend_ = std::make_unique<Backend>(std::move(block));
}

SignalWakeup::~SignalWakeup() = default;

void SignalWakeup::trigger() const noexcept {
    const int savedErrno = errno;
    const std::uint64_t one = 1;
    // A counter that is full, the only way to fail, has triggered already.
    [[maybe_unused]] const ssize_t size = ::write(backend_->watch.descriptor(), &one, sizeof one);
    errno = savedErrno;
}

}  // namespace sevrin::platform
