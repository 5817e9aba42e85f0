// Runs a callback of the program's on the XPC thread, where no exception may pass.
//
// An exception there has nobody to catch it, and what the callback left undone nobody knows: like
// one that leaves a queue's block it ends the process, saying what it was.
#pragma once

#include <exception>
#include <string>
#include <utility>

#include "Platform/Assertion.h"

namespace sevrin {

template <typename Callback, typename... Arguments>
auto runCallback(const Callback& callback, Arguments&&... arguments) noexcept {
    try {
        return callback(std::forward<Arguments>(arguments)...);
    } catch (const std::exception& exception) {
        platform::assertionFailed(__FILE__, __LINE__, __func__,
                                  std::string("a callback threw: ") + exception.what());
    } catch (...) {
        platform::assertionFailed(__FILE__, __LINE__, __func__, "a callback threw");
    }
}

}  // namespace sevrin
