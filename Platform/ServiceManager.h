// What this process tells the service manager that started it: that it is ready, what it is doing,
// that it is about to end.
//
// A manager that wants to be told starts what depends on a service only once that is ready. When
// none wants to, as in a terminal, nothing is sent; neither is anything from a set-id program,
// which must not write to wherever its caller points it. The functions may be called on any thread
// and wait for nobody but a manager that has too much to read, and for that five seconds at most.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sevrin::platform {

class ServiceManager {
public:
    // Each gives the reason, in a sentence, why the manager could not be told; nothing when it has
    // been, and when there is none that wants to be.

    // Everybody can be served from now on.
    [[nodiscard]] static std::optional<std::string> tellReady();

    // What is going on, for people who ask the manager: one line of UTF-8. Control characters
    // become blanks.
    [[nodiscard]] static std::optional<std::string> tellStatus(std::string_view status);

    // The process ends soon, by its own will.
    [[nodiscard]] static std::optional<std::string> tellStopping();
};

}  // namespace sevrin::platform
