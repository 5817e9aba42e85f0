// The service as a whole: the name it listens under, the vendor of its connections, its start
// announcement and its end.
//
// There is one instance per process, made by the entry point. It is run and shut down on the main
// thread; the accessors may be used on any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "Platform/Object.h"
#include "switchboard/SVConnectionVendor.h"

namespace sevrin {

class VeloraSwitchboard final : public platform::Object {
public:
    // How long after the beginning of run() the start is announced: long enough for the programs
    // that were started together with the service to listen for it.
    static constexpr std::chrono::seconds kAnnouncementDelay{6};

    // The instance; nullptr before makeSharedSwitchboard().
    [[nodiscard]] static std::shared_ptr<VeloraSwitchboard> sharedSwitchboard();

    // Makes the instance. Doing that twice is a bug.
    static std::shared_ptr<VeloraSwitchboard> makeSharedSwitchboard();

    // The name under which the service listens.
    [[nodiscard]] std::string serviceName() const;
    void setServiceName(std::string name);

    // The vendor that owns the listener; nullptr until it is set.
    [[nodiscard]] std::shared_ptr<SVConnectionVendor> connectionVendor() const;
    void setConnectionVendor(std::shared_ptr<SVConnectionVendor> vendor);

    // Announces the start after `announcementDelay` and serves the main run loop. Returns only if
    // somebody stops the loop.
    void run(std::chrono::nanoseconds announcementDelay = kAnnouncementDelay);

    // Ends all service: first the listener, so that nobody new comes in, then every client.
    void shutdown();

private:
    VeloraSwitchboard() = default;

    mutable std::mutex lock_;
    std::string serviceName_;                               // guarded by lock_
    std::shared_ptr<SVConnectionVendor> connectionVendor_;  // guarded by lock_
};

// The name under which a user's own switchboard listens: with the effective user id at the first
// call, for good. When that is root's, with the one that the process began with.
[[nodiscard]] const std::string& userSwitchboardServiceName();

}  // namespace sevrin
