// The slot, the notes of the threads, and the loggers that wait for their end.
#include "Common/Source/Utilities/LoggerInUse.h"

#include <atomic>
#include <cstddef>
#include <list>
#include <mutex>
#include <utility>

#include "Common/Source/Utilities/Logger.h"

namespace sevrin {

namespace {

constexpr std::size_t kCacheLine = 64;

// Where one thread notes which logger it uses. Handed on from thread to thread, and never freed, so
// that all can be looked through without a lock.
struct alignas(kCacheLine) Note {
    std::atomic<const Logger*> used = nullptr;
    std::atomic<bool> isTaken = true;
    Note* next = nullptr;
};

struct Slot {
    std::mutex lock;
    LoggerPtr installed;
    std::list<LoggerPtr> leaving;  // Were installed, and may still be in use.
};

// The address of what is installed, for a look without the lock.
constinit std::atomic<Logger*> installedNow = nullptr;

// How many are leaving.
constinit std::atomic<std::size_t> leavingNow = 0;

constinit std::atomic<Note*> notes = nullptr;

// Never destroyed: what ends with the program may log to the last.
Slot& slot() {
    static Slot& theSlot = *new Slot;
    return theSlot;
}

Note* takeNote() {
    for (Note* note = notes.load(std::memory_order_acquire); note != nullptr; note = note->next) {
        if (!note->isTaken.exchange(true, std::memory_order_acquire)) return note;
    }
    Note* const made = new Note;
    made->next = notes.load(std::memory_order_relaxed);
    while (!notes.compare_exchange_weak(made->next, made, std::memory_order_release,
                                        std::memory_order_relaxed)) {
    }
    return made;
}

// Destructors of other thread-local objects may still log when the note is given back.
constinit thread_local Note* threadNote = nullptr;
constinit thread_local bool threadEnds = false;

struct NoteOwner {
    ~NoteOwner() {
        threadEnds = true;
        std::exchange(threadNote, nullptr)->isTaken.store(false, std::memory_order_release);
    }
};

Note* makeThreadNote() {
    if (threadEnds) return nullptr;
    thread_local NoteOwner owner;
    static_cast<void>(owner);
    threadNote = takeNote();
    return threadNote;
}

bool isInUse(const Logger* logger) {
    for (Note* note = notes.load(std::memory_order_acquire); note != nullptr; note = note->next) {
        if (note->used.load() == logger) return true;
    }
    return false;
}

// Takes out those that nobody uses any more; the caller ends them after the lock. Allocates
// nothing.
std::list<LoggerPtr> takeUnused(Slot& from) noexcept {
    std::list<LoggerPtr> unused;
    for (auto logger = from.leaving.begin(); logger != from.leaving.end();) {
        const auto current = logger++;
        if (!isInUse(current->get())) unused.splice(unused.end(), from.leaving, current);
    }
    leavingNow.store(from.leaving.size(), std::memory_order_relaxed);
    return unused;
}

}  // namespace

// The note is made before the second look at the slot, and who empties the slot does so before the
// look at the notes: one of the two sees the other.
LoggerInUse::LoggerInUse() {
    Note* const note = threadNote != nullptr ? threadNote : makeThreadNote();
    if (note != nullptr && note->used.load(std::memory_order_relaxed) == nullptr) {
        Logger* const logger = installedNow.load(std::memory_order_acquire);
        if (logger != nullptr) {
            note->used.store(logger);
            if (installedNow.load() == logger) {
                logger_ = logger;
                isNoted_ = true;
                return;
            }
            leave();
        }
    }
    held_ = Logger::defaultLogger();
    logger_ = held_.get();
}

// A logger whose last user misses here that it is leaving ends with the next call or change.
void LoggerInUse::leave() noexcept {
    threadNote->used.store(nullptr, std::memory_order_release);
    if (leavingNow.load(std::memory_order_relaxed) == 0) return;
    std::list<LoggerPtr> unused;
    const std::lock_guard guard(slot().lock);
    unused = takeUnused(slot());
}

LoggerPtr InstalledLogger::get() {
    const std::lock_guard guard(slot().lock);
    return slot().installed;
}

void InstalledLogger::put(LoggerPtr logger) {
    std::list<LoggerPtr> before(1);
    std::list<LoggerPtr> unused;
    const std::lock_guard guard(slot().lock);
    installedNow.store(logger.get());
    before.front() = std::exchange(slot().installed, std::move(logger));
    if (before.front()) slot().leaving.splice(slot().leaving.end(), before);
    unused = takeUnused(slot());
}

}  // namespace sevrin
