// Counting by ptrace: the child marks the begin and the end of the work by two calls of its own.
#include "bench/SystemCalls.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace sevrin::bench {

namespace {

// Asks for a session that cannot be; nothing else does.
constexpr std::uint64_t kMark = SYS_getsid;
constexpr pid_t kMarkArgument = -4711;

[[noreturn]] void doInChild(const std::function<void()>& work) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(1);
    ::raise(SIGSTOP);
    ::syscall(SYS_getsid, kMarkArgument);
    work();
    ::syscall(SYS_getsid, kMarkArgument);
    ::_exit(0);
}

// What stopped the thread: the number of the system call that it enters.
bool isAtEntry(pid_t thread, __ptrace_syscall_info& info) {
    return ::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) > 0 &&
           info.op == PTRACE_SYSCALL_INFO_ENTRY;
}

// A stop that is no signal's: of a system call, or of a new thread.
bool isOwnStop(int status) {
    return WSTOPSIG(status) == (SIGTRAP | 0x80) || status >> 16 != 0;
}

}  // namespace

std::map<std::uint64_t, std::int64_t> systemCallsOf(const std::function<void()>& work) {
    std::map<std::uint64_t, std::int64_t> calls;
    const pid_t child = ::fork();
    if (child < 0) return calls;
    if (child == 0) doInChild(work);
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return calls;
    constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
    ::ptrace(PTRACE_SETOPTIONS, child, nullptr, kOptions);
    ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    bool isCounting = false;
    for (pid_t thread; (thread = ::waitpid(-1, &status, __WALL)) > 0 || errno == EINTR;) {
        if (thread <= 0) continue;
        if (!WIFSTOPPED(status)) {
            if (thread == child) break;
            continue;
        }
        __ptrace_syscall_info info{};
        if (WSTOPSIG(status) == (SIGTRAP | 0x80) && isAtEntry(thread, info)) {
            const bool isMark =
                info.entry.nr == kMark && static_cast<pid_t>(info.entry.args[0]) == kMarkArgument;
            if (isMark) isCounting = !isCounting;
            if (isCounting && !isMark) ++calls[info.entry.nr];
        }
        const bool isNewThreads = WSTOPSIG(status) == SIGSTOP;
        const long signal = isOwnStop(status) || isNewThreads ? 0 : WSTOPSIG(status);
        ::ptrace(PTRACE_SYSCALL, thread, nullptr, signal);
    }
    return calls;
}

}  // namespace sevrin::bench
