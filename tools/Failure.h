// Why a verb ends without its answer, in words for the user; thrown by verbs, shown by the one
// place that runs them.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "client/Result.h"
#include "tools/ExitStatus.h"

namespace sevrin {

struct Target;

struct Failure : std::exception {
    Failure(ExitStatus failureStatus, std::string failureSubject, std::string failureReason,
            std::string failureAdvice = "")
        : status(failureStatus),
          subject(std::move(failureSubject)),
          reason(std::move(failureReason)),
          advice(std::move(failureAdvice)) {}

    [[nodiscard]] const char* what() const noexcept override { return reason.c_str(); }

    ExitStatus status;
    std::string subject;  // what failed
    std::string reason;   // why
    std::string advice;   // what to try; empty when there is nothing to say
};

// "switchboardctl: VERB: what: why. Try: ...", without a line end. `verb` may be empty.
[[nodiscard]] std::string messageOf(const Failure& failure, std::string_view verb);

// What it means that the switchboard gave no answer: names the service and the next step.
[[nodiscard]] Failure switchboardFailure(const CallError& error, const Target& target);

// What it means that the publisher of `identifier` gave none.
[[nodiscard]] Failure publisherFailure(const CallError& error, std::string_view identifier);

}  // namespace sevrin
