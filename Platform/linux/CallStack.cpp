// Call stacks on Linux: a walk along the frame pointers, within the limits of the thread's stack.
//
// Everything of ours is compiled with frame pointers; the libraries of the system are not, and may
// leave anything in that register. So nothing is read outside the part of the stack that is in use,
// and each frame has to lie beyond the one before: the worst that can come out is a list that ends
// early or has a stray address in it.
#include "Platform/CallStack.h"

#include <pthread.h>
#include <unwind.h>

#include <cerrno>

namespace sevrin::platform {

namespace {

// What a frame pointer points to, on x86-64 and on 64-bit ARM.
struct Frame {
    const Frame* caller;
    std::uintptr_t returnAddress;
};

struct StackLimits {
    std::uintptr_t low = 0;
    std::uintptr_t high = 0;  // First byte beyond; 0 when it could not be found out.
};

StackLimits findStackLimits() noexcept {
    StackLimits limits;
    pthread_attr_t attributes;
    if (::pthread_getattr_np(::pthread_self(), &attributes) != 0) return limits;
    void* low = nullptr;
    std::size_t size = 0;
    if (::pthread_attr_getstack(&attributes, &low, &size) == 0) {
        limits.low = reinterpret_cast<std::uintptr_t>(low);
        limits.high = limits.low + size;
    }
    ::pthread_attr_destroy(&attributes);
    return limits;
}

// Asked of the system once per thread: for the main thread it reads a file.
const StackLimits& stackLimits() noexcept {
    static thread_local const StackLimits theLimits = findStackLimits();
    return theLimits;
}

bool isFrame(std::uintptr_t place, std::uintptr_t low, std::uintptr_t high) noexcept {
    return place >= low && place <= high - sizeof(Frame) && place % alignof(Frame) == 0;
}

// The walk reads words that belong to other functions, which AddressSanitizer would report.
__attribute__((no_sanitize("address"))) std::size_t walkFrames(
    const Frame* frame, std::uintptr_t high, std::span<std::uintptr_t> out) noexcept {
    std::size_t count = 0;
    std::uintptr_t low = reinterpret_cast<std::uintptr_t>(frame);
    while (count < out.size() && isFrame(reinterpret_cast<std::uintptr_t>(frame), low, high)) {
        if (frame->returnAddress == 0) break;
        out[count++] = frame->returnAddress;
        low = reinterpret_cast<std::uintptr_t>(frame) + sizeof(Frame);
        frame = frame->caller;
    }
    return count;
}

// Frames that the unwinder still passes over, and those it has taken.
struct Unwinding {
    std::size_t toSkip;
    std::span<std::uintptr_t> out;
    std::size_t count = 0;
};

_Unwind_Reason_Code takeFrame(_Unwind_Context* context, void* argument) noexcept {
    auto& unwinding = *static_cast<Unwinding*>(argument);
    if (unwinding.count == unwinding.out.size()) return _URC_NORMAL_STOP;
    if (unwinding.toSkip > 0) {
        --unwinding.toSkip;
    } else {
        unwinding.out[unwinding.count++] = _Unwind_GetIP(context);
    }
    return _URC_NO_REASON;
}

// Interprets the unwind tables: a hundred times slower, but it knows no limits. The C++ runtime's
// own unwinder: what the C library offers would first load it a second time, which a signal handler
// may not.
[[gnu::noinline]] std::size_t unwindFrames(std::span<std::uintptr_t> out) noexcept {
    // This function, captureCallStack() and its caller come first.
    Unwinding unwinding{3, out};
    _Unwind_Backtrace(takeFrame, &unwinding);
    return unwinding.count;
}

}  // namespace

[[gnu::noinline]] std::size_t captureCallStack(std::span<std::uintptr_t> addresses) noexcept {
    const int errorNumber = errno;
    const auto* const own = static_cast<const Frame*>(__builtin_frame_address(0));
    const auto place = reinterpret_cast<std::uintptr_t>(own);
    const StackLimits& limits = stackLimits();
    std::size_t count = 0;
    // A signal handler or a coroutine may run on a stack that the thread knows nothing of.
    if (limits.high != 0 && isFrame(place, limits.low, limits.high)) {
        count = walkFrames(own->caller, limits.high, addresses);
    } else {
        count = unwindFrames(addresses);
    }
    errno = errorNumber;
    return count;
}

}  // namespace sevrin::platform
