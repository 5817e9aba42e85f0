// The main queue by its short name, and the list of what the main thread wants to be rid of.
#include "Common/Source/Utilities/MainThread.h"

#include <system_error>
#include <utility>
#include <vector>

namespace sevrin {

using platform::DispatchQueue;

namespace {

using Objects = std::vector<std::shared_ptr<const void>>;

// What waits for the next flush; of the main thread alone. Never destroyed: the process ends
// without destroying what is on it.
Objects& pendingObjects() {
    static Objects& thePending = *new Objects;
    return thePending;
}

// Hands what is pending to the background, which destroys it.
void flushPendingObjects() {
    const auto objects = std::make_shared<Objects>(std::exchange(pendingObjects(), {}));
    try {
        DispatchQueue::globalQueue(DispatchQueue::Priority::Background).async([objects] {
            objects->clear();
        });
    } catch (const std::system_error&) {
        // No thread to be had: then the objects go here and now, later than wished but not never.
    }
}

}  // namespace

DispatchQueue& MainDispatchQueue() {
    static DispatchQueue& theQueue = DispatchQueue::mainQueue();
    return theQueue;
}

bool IsMainThread() noexcept {
    return platform::isMainThread();
}

void DispatchToMainQueue(std::function<void()> block) {
    MainDispatchQueue().async(std::move(block));
}

void RunOnMainThreadSync(const std::function<void()>& block) {
    if (IsMainThread()) {
        block();
    } else {
        MainDispatchQueue().sync(block);
    }
}

void RunOnMainThreadAsync(std::function<void()> block) {
    if (IsMainThread()) {
        block();
    } else {
        DispatchToMainQueue(std::move(block));
    }
}

void ReleaseLaterInBackground(std::shared_ptr<const void> object) {
    if (!IsMainThread() || !object) return;
    if (pendingObjects().empty()) DispatchToMainQueue(flushPendingObjects);
    pendingObjects().push_back(std::move(object));
}

}  // namespace sevrin
