// The service as a whole, from its announcement to its end.
#include "switchboard/VeloraSwitchboard.h"

#include <sys/types.h>
#include <unistd.h>

#include <exception>
#include <utility>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/Process.h"
#include "Platform/Assertion.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Format.h"
#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/NSRunLoop.h"
#include "switchboard/SwitchboardProtocols.h"
#include "switchboard/UserSwitchboard.h"

namespace sevrin {

using platform::DispatchQueue;
using platform::NSDistributedNotificationCenter;
using platform::NSRunLoop;

namespace {

struct Shared {
    std::mutex lock;
    std::shared_ptr<VeloraSwitchboard> instance;
};

// Never destroyed: other threads may still ask while the process exits.
Shared& shared() {
    static Shared& theShared = *new Shared;
    return theShared;
}

void announceStart(const std::string& serviceName) try {
    NSDistributedNotificationCenter::defaultCenter().postNotificationNameObjectUserInfoOptions(
        kStartedNotification, serviceName, nullptr,
        platform::NSDistributedNotificationDeliverImmediately |
            platform::NSDistributedNotificationPostToAllSessions);
} catch (const std::exception& error) {
    // Clients that wait for it will try again by themselves; those who found the service are
    // served.
    Logger::logFormat(LogClassification::Failure, "cannot announce the start: %s", error.what());
}

}  // namespace

std::shared_ptr<VeloraSwitchboard> VeloraSwitchboard::sharedSwitchboard() {
    const std::lock_guard guard(shared().lock);
    return shared().instance;
}

std::shared_ptr<VeloraSwitchboard> VeloraSwitchboard::makeSharedSwitchboard() {
    const std::lock_guard guard(shared().lock);
    SEVRIN_ASSERT(!shared().instance, "the shared switchboard is made once");
    shared().instance.reset(new VeloraSwitchboard);
    return shared().instance;
}

std::string VeloraSwitchboard::serviceName() const {
    const std::lock_guard guard(lock_);
    return serviceName_;
}

void VeloraSwitchboard::setServiceName(std::string name) {
    const std::lock_guard guard(lock_);
    serviceName_ = std::move(name);
}

std::shared_ptr<SVConnectionVendor> VeloraSwitchboard::connectionVendor() const {
    const std::lock_guard guard(lock_);
    return connectionVendor_;
}

void VeloraSwitchboard::setConnectionVendor(std::shared_ptr<SVConnectionVendor> vendor) {
    const std::unique_lock guard(lock_);
    connectionVendor_.swap(vendor);  // The former one goes after the lock.
}

void VeloraSwitchboard::run(std::chrono::nanoseconds announcementDelay) {
    // The instance is shared for good, so the block needs no hold on it.
    DispatchQueue::mainQueue().after(announcementDelay, [this] { announceStart(serviceName()); });
    NSRunLoop::currentRunLoop().run();
}

void VeloraSwitchboard::shutdown() {
    if (const auto vendor = connectionVendor()) vendor->shutdown();
    UserSwitchboard::shutdownSwitchboards();
}

const std::string& userSwitchboardServiceName() {
    static const std::string& theName = *new std::string([] {
        const uid_t effective = ::geteuid();
        return platform::stringWithFormat(kUserServiceNameFormat,
                                          effective != 0 ? effective : Process::userID());
    }());
    return theName;
}

}  // namespace sevrin
