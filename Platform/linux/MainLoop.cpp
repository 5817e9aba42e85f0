// The main loop's context, how a block is called and how it is delayed.
#include "Platform/linux/MainLoop.h"

#include <asio/executor_work_guard.hpp>
#include <asio/steady_timer.hpp>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "Platform/Assertion.h"

namespace sevrin::platform {
namespace {

struct MainLoop {
    asio::io_context context{1};  // One thread runs it; others only post.
    asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
};

}  // namespace

asio::io_context& mainContext() {
    static MainLoop& loop = *new MainLoop;
    return loop.context;
}

void runBlock(const std::function<void()>& block) noexcept {
    try {
        block();
    } catch (const std::exception& exception) {
        SEVRIN_ASSERT(false, std::string("an exception left a block: ") + exception.what());
    } catch (...) {
        SEVRIN_ASSERT(false, "an exception of no known type left a block");
    }
}

void runAfter(asio::io_context& context, std::chrono::nanoseconds delay,
              std::function<void()> block) {
    auto timer = std::make_unique<asio::steady_timer>(context, delay);
    asio::steady_timer& armed = *timer;
    armed.async_wait([timer = std::move(timer), block = std::move(block)](std::error_code) {
        runBlock(block);  // Nobody cancels the timer, so it has expired.
    });
}

}  // namespace sevrin::platform
