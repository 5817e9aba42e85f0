// A listener on Linux: accepts on the XPC thread, charges each connection to its user, asks the
// delegate.
#include <sys/epoll.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>

#include "Platform/NSLog.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCListener.h"
#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/XPCConnection.h"
#include "Platform/linux/XPCReactor.h"

namespace sevrin::platform {

namespace {

// Connections accepted in a row before the others get their turn.
constexpr int kAcceptsPerEventMax = 64;

// How long to wait for room after the descriptors have run out.
constexpr std::chrono::milliseconds kRoomPause{100};

class XPCListener final : public NSXPCListener,
                          public XPCReactor::Source,
                          public std::enable_shared_from_this<XPCListener> {
public:
    explicit XPCListener(bootstrap::ListeningSocket listening) : listening_(std::move(listening)) {}
    explicit XPCListener(std::string failure) : failure_(std::move(failure)) {}

    ~XPCListener() { listening_.withdraw(); }

    void setDelegate(NSXPCListenerDelegate* delegate) override {
        const std::scoped_lock guard(delegateLock_);
        delegate_ = delegate;
    }

    std::shared_ptr<NSXPCListenerEndpoint> endpoint() override {
        const std::scoped_lock guard(lock_);
        return listening_.endpoint;
    }

    std::optional<std::string> registrationFailure() const override { return failure_; }

    void resume() override {
        const std::scoped_lock guard(lock_);
        if (isLive_ || isInvalid_ || !listening_.socket) return;
        isLive_ = true;
        XPCReactor::shared().add(listening_.socket.get(), shared_from_this(), EPOLLIN);
    }

    void invalidate() override {
        {
            const std::scoped_lock guard(lock_);
            if (isInvalid_.exchange(true)) return;
            listening_.withdraw();
            listening_.endpoint = nullptr;
            // From here on connecting is refused; what waited unaccepted is dropped with the
            // socket. A launcher's socket keeps both for whom it starts next.
            if (listening_.socket && !listening_.isInherited)
                ::shutdown(listening_.socket.get(), SHUT_RDWR);
            if (!isLive_) listening_.socket.reset();
        }
        setDelegate(nullptr);
        if (isLive_) XPCReactor::shared().post([self = shared_from_this()] { self->takeApart(); });
    }

    void handleEvents(std::uint32_t) override {
        for (int i = 0; i < kAcceptsPerEventMax && !isInvalid_; ++i) {
            UniqueFd socket(::accept4(listening_.socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (socket) {
                consider(std::move(socket));
                continue;
            }
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
                waitForRoom();
            return;
        }
    }

private:
    void consider(UniqueFd socket) {
        const auto connection = XPCConnection::accepted(std::move(socket));
        if (!connection) return;
        const std::scoped_lock guard(delegateLock_);
        if (delegate_ && delegate_->listenerShouldAcceptNewConnection(*this, connection)) return;
        connection->invalidate();
    }

    // The pending connection stays in the backlog; watching for it meanwhile would spin.
    void waitForRoom() {
        XPCReactor& reactor = XPCReactor::shared();
        reactor.modify(listening_.socket.get(), this, 0);
        reactor.postAt(XPCReactor::Clock::now() + kRoomPause, [weak = weak_from_this()] {
            const auto self = weak.lock();
            if (!self || self->isInvalid_) return;
            XPCReactor::shared().modify(self->listening_.socket.get(), self.get(), EPOLLIN);
        });
    }

    void takeApart() {
        const std::scoped_lock guard(lock_);
        XPCReactor::shared().remove(listening_.socket.get(), this);
        listening_.socket.reset();
    }

    const std::optional<std::string> failure_;

    // Held while the delegate decides, so that nobody takes it away meanwhile; the delegate itself
    // may.
    std::recursive_mutex delegateLock_;
    NSXPCListenerDelegate* delegate_ = nullptr;

    mutable std::mutex lock_;
    bootstrap::ListeningSocket listening_;
    std::atomic<bool> isLive_ = false;
    std::atomic<bool> isInvalid_ = false;
};

}  // namespace

std::shared_ptr<NSXPCListener> NSXPCListener::initWithMachServiceName(std::string_view name) {
    auto listening = bootstrap::listenAsService(name);
    if (auto* why = std::get_if<std::string>(&listening)) {
        NSLog(std::string(name) + ": not reachable: " + *why);
        return std::make_shared<XPCListener>(std::move(*why));
    }
    return std::make_shared<XPCListener>(
        std::move(std::get<bootstrap::ListeningSocket>(listening)));
}

std::shared_ptr<NSXPCListener> NSXPCListener::anonymousListener() {
    return std::make_shared<XPCListener>(bootstrap::listenAnonymously());
}

std::shared_ptr<NSXPCConnection> NSXPCConnection::initWithListenerEndpoint(
    const std::shared_ptr<NSXPCListenerEndpoint>& endpoint) {
    auto target = std::dynamic_pointer_cast<XPCEndpoint>(endpoint);
    return std::make_shared<XPCConnection>([target](Deadline deadline) -> bootstrap::Connected {
        if (!target)
            return XPCError{XPCError::Code::NoService, "there is no endpoint to connect to"};
        return bootstrap::connectToEndpoint(*target, deadline);
    });
}

std::shared_ptr<NSXPCConnection> NSXPCConnection::initWithMachServiceName(std::string_view name,
                                                                          Domain domain) {
    return std::make_shared<XPCConnection>([name = std::string(name), domain](Deadline deadline) {
        return bootstrap::connectToService(name, domain, deadline);
    });
}

}  // namespace sevrin::platform
