// A vendor that asks a server class for an object to serve each new connection, and exports it.
//
// The class is given by name and looked up for every connection; it decides whom to serve
// (SVConnectionObjectFactory). The factory itself knows neither users nor registries.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "Platform/Protocol.h"
#include "switchboard/SVConnectionVendor.h"

namespace sevrin {

class SVConnectionServiceFactory final : public SVConnectionVendor {
public:
    // Becomes the delegate of `listener` and resumes it: from then on connections arrive. Objects
    // of the class registered as `serverClass` are exported under `protocol`, which is borrowed and
    // lives on, as every protocol does.
    [[nodiscard]] static std::shared_ptr<SVConnectionServiceFactory>
    initWithListenerServerClassConformingTo(std::shared_ptr<platform::NSXPCListener> listener,
                                            std::string serverClass,
                                            const platform::Protocol& protocol);

    ~SVConnectionServiceFactory() override;

    [[nodiscard]] std::string serverClass() const;
    void setServerClass(std::string serverClass);
    [[nodiscard]] const platform::Protocol& serverProtocol() const { return *serverProtocol_; }
    void setServerProtocol(const platform::Protocol& protocol) { serverProtocol_ = &protocol; }

    // Accepts when the server class gives an object for `connection`, which is then exported and
    // the connection resumed. Otherwise, or when nobody registered such a class, the connection is
    // refused as it came.
    bool listenerShouldAcceptNewConnection(
        platform::NSXPCListener& listener,
        const std::shared_ptr<platform::NSXPCConnection>& connection) override;

private:
    SVConnectionServiceFactory(std::shared_ptr<platform::NSXPCListener> listener,
                               std::string serverClass, const platform::Protocol& protocol);

    mutable std::mutex lock_;
    std::string serverClass_;  // guarded by lock_
    std::atomic<const platform::Protocol*> serverProtocol_;
};

}  // namespace sevrin
