// The words of failures, one table for each side that may fail to answer.
#include "tools/Failure.h"

#include <fmt/format.h>
#include <unistd.h>

#include "tools/Printable.h"
#include "tools/Target.h"

namespace sevrin {

namespace {

using Code = CallError::Code;

ExitStatus statusOf(Code code) {
    switch (code) {
        case Code::Refused:
            return ExitStatus::Refused;
        case Code::VersionMismatch:
            return ExitStatus::VersionMismatch;
        case Code::DeadlinePassed:
            return ExitStatus::DeadlinePassed;
        case Code::NoService:
        case Code::Untrusted:
        case Code::Disconnected:
        case Code::BadAnswer:
            break;
    }
    return ExitStatus::NoSwitchboard;
}

const char* subjectOf(Code code) {
    switch (code) {
        case Code::NoService:
            return "no switchboard";
        case Code::Untrusted:
            return "no switchboard to trust";
        case Code::Refused:
            return "turned away";
        case Code::VersionMismatch:
            return "protocol versions differ";
        case Code::Disconnected:
            return "connection lost";
        case Code::DeadlinePassed:
            return "no answer in time";
        case Code::BadAnswer:
            return "no sensible answer";
    }
    return "no answer";
}

std::string adviceOf(Code code, const Target& target) {
    const bool isUser = target.service == SwitchboardClient::Service::User;
    switch (code) {
        case Code::NoService:
            if (isUser && ::geteuid() == 0) return "--system, which is the switchboard of root";
            return target.launcherCommand("start");
        case Code::Untrusted:
            return fmt::format(
                "ls -ld on that folder; it must belong to {} and be writable by nobody else",
                isUser ? "you" : "root");
        case Code::Refused:
            if (isUser) return target.launcherCommand("status");
            return "adding the user to SWITCHBOARD_USERS in /etc/default/switchboard, then " +
                   target.launcherCommand("restart");
        case Code::VersionMismatch:
            return target.launcherCommand("restart") + ", if the switchboard is the older side";
        case Code::DeadlinePassed:
            return "a longer --timeout, or " + target.launcherCommand("status");
        case Code::Disconnected:
        case Code::BadAnswer:
            return target.launcherCommand("status");
    }
    return "";
}

}  // namespace

std::string messageOf(const Failure& failure, std::string_view verb) {
    std::string message = "switchboardctl: ";
    for (const std::string_view part : {verb, std::string_view(failure.subject)}) {
        if (!part.empty()) message.append(part).append(": ");
    }
    message += failure.reason;
    if (!failure.advice.empty()) message += ". Try: " + failure.advice;
    return printable(message);
}

Failure switchboardFailure(const CallError& error, const Target& target) {
    const std::string service = target.serviceName();
    std::string reason = error.description;
    if (reason.find(service) == std::string::npos) reason.insert(0, service + ": ");
    return {statusOf(error.code), subjectOf(error.code), std::move(reason),
            adviceOf(error.code, target)};
}

Failure publisherFailure(const CallError& error, std::string_view identifier) {
    const std::string subject = fmt::format("the publisher of {}", identifier);
    switch (error.code) {
        case Code::Refused:
            return {ExitStatus::Refused, subject, error.description};
        case Code::VersionMismatch:
            return {ExitStatus::VersionMismatch, subject, error.description,
                    "restarting the older side"};
        case Code::DeadlinePassed:
            return {ExitStatus::DeadlinePassed, subject, error.description, "a longer --timeout"};
        case Code::NoService:
        case Code::Untrusted:
        case Code::Disconnected:
        case Code::BadAnswer:
            break;
    }
    return {ExitStatus::No, subject, error.description};
}

}  // namespace sevrin
