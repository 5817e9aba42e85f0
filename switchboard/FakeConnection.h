// Stand-ins for the platform's connections, listeners and endpoints, for this folder's tests.
//
// A FakeConnection records what it is told and what is sent through it; nothing leaves the test.
// A test plays the peer: it calls the exported object, or ends the connection.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCListener.h"
#include "Platform/NSXPCListenerEndpoint.h"

namespace sevrin {

class FakeEndpoint final : public platform::NSXPCListenerEndpoint {
public:
    [[nodiscard]] static std::shared_ptr<FakeEndpoint> make() {
        return std::make_shared<FakeEndpoint>();
    }
};

class FakeConnection final : public platform::NSXPCConnection {
public:
    // One message that was sent: its arguments, or, of one that was encoded beforehand, the bytes.
    struct Sent {
        const platform::MethodDescription* method;
        platform::ValueArray arguments;
        std::string encodedLeading;
        std::string encodedRest;
    };

    explicit FakeConnection(uid_t user) : user_(user) {}
    [[nodiscard]] static std::shared_ptr<FakeConnection> ofUser(uid_t user) {
        return std::make_shared<FakeConnection>(user);
    }

    // The peer goes away: the connection ends and its handler runs.
    void end() {
        invalidate();
        if (const Handler handler = std::exchange(invalidationHandler_, nullptr)) handler();
    }

    std::vector<Sent> sent;
    int resumed = 0;
    int invalidated = 0;
    std::function<void()> onInvalidate = [] {};

    [[nodiscard]] bool hasInvalidationHandler() const { return invalidationHandler_ != nullptr; }
    [[nodiscard]] bool hasInterruptionHandler() const { return interruptionHandler_ != nullptr; }

    void setExportedInterface(std::shared_ptr<platform::NSXPCInterface> interface) override {
        exportedInterface_ = std::move(interface);
    }
    void setExportedObject(platform::ObjectPtr object) override {
        std::swap(exportedObject_, object);  // The former one goes when all is done.
    }
    [[nodiscard]] platform::ObjectPtr exportedObject() const override { return exportedObject_; }
    [[nodiscard]] std::shared_ptr<platform::NSXPCInterface> exportedInterface() const override {
        return exportedInterface_;
    }
    void setRemoteObjectInterface(std::shared_ptr<platform::NSXPCInterface> interface) override {
        remoteObjectInterface_ = std::move(interface);
    }
    [[nodiscard]] std::shared_ptr<platform::NSXPCInterface> remoteObjectInterface() const override {
        return remoteObjectInterface_;
    }

    void setInvalidationHandler(Handler handler) override {
        invalidationHandler_ = std::move(handler);
    }
    void setInterruptionHandler(Handler handler) override {
        interruptionHandler_ = std::move(handler);
    }

    void resume(std::optional<Deadline>) override { ++resumed; }
    void invalidate() override {
        ++invalidated;
        onInvalidate();
    }
    [[nodiscard]] std::optional<platform::XPCError> failure() const override {
        if (invalidated == 0) return std::nullopt;
        return platform::XPCError{platform::XPCError::Code::Disconnected, "ended by the test"};
    }

    [[nodiscard]] uid_t effectiveUserIdentifier() const override { return user_; }
    [[nodiscard]] gid_t effectiveGroupIdentifier() const override { return 0; }
    [[nodiscard]] pid_t processIdentifier() const override { return 1; }

    void send(const platform::MethodDescription& method,
              std::span<const platform::Value> arguments) override {
        sent.push_back({&method, {arguments.begin(), arguments.end()}, {}, {}});
    }
    void send(const platform::EncodedCall& call,
              const platform::EncodedArguments& leading) override {
        sent.push_back({&call.method(), {}, leading.bytes(), call.rest().bytes()});
    }
    void request(const platform::MethodDescription&, std::span<const platform::Value>,
                 AnswerHandler handler, std::optional<Deadline>) override {
        handler(*failure());
    }
    [[nodiscard]] Answer requestAndWait(const platform::MethodDescription&,
                                        std::span<const platform::Value>, Deadline) override {
        return *failure();
    }

private:
    const uid_t user_;
    platform::ObjectPtr exportedObject_;
    std::shared_ptr<platform::NSXPCInterface> exportedInterface_;
    std::shared_ptr<platform::NSXPCInterface> remoteObjectInterface_;
    Handler invalidationHandler_;
    Handler interruptionHandler_;
};

class FakeListener final : public platform::NSXPCListener {
public:
    [[nodiscard]] static std::shared_ptr<FakeListener> make() {
        return std::make_shared<FakeListener>();
    }

    // A peer connects: what the delegate decides.
    bool offer(const std::shared_ptr<platform::NSXPCConnection>& connection) {
        return delegate->listenerShouldAcceptNewConnection(*this, connection);
    }

    platform::NSXPCListenerDelegate* delegate = nullptr;
    std::shared_ptr<FakeEndpoint> theEndpoint = FakeEndpoint::make();
    int resumed = 0;
    int invalidated = 0;
    std::function<void()> onInvalidate = [] {};

    void setDelegate(platform::NSXPCListenerDelegate* newDelegate) override {
        delegate = newDelegate;
    }
    [[nodiscard]] std::shared_ptr<platform::NSXPCListenerEndpoint> endpoint() override {
        return invalidated == 0 ? theEndpoint : nullptr;
    }
    void resume() override { ++resumed; }
    void invalidate() override {
        ++invalidated;
        onInvalidate();
    }
    [[nodiscard]] std::optional<std::string> registrationFailure() const override {
        return std::nullopt;
    }
};

}  // namespace sevrin
