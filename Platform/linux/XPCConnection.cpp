// A connection on Linux: its life, and everything that it sends. What it receives is in
// XPCConnectionReceiving.cpp.
#include "Platform/linux/XPCConnection.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/XPCLimits.h"
#include "Platform/linux/PeerLedger.h"

namespace sevrin::platform {

namespace {

constexpr std::chrono::seconds kConnectTimeout{5};

// What may gather for one peer while the XPC thread handles an event, before it is sent without
// waiting for the event's end: a socket takes no more at once, and the outbox's limit is checked
// only when it does not.
constexpr std::size_t kGatherBytesMax = 128 * 1024;

}  // namespace

EncodedArguments::EncodedArguments(std::span<const Value> arguments) : count_(arguments.size()) {
    for (const Value& argument : arguments)
        wire::appendValue(bytes_, argument, nullptr);
}

EncodedCall::EncodedCall(const MethodDescription& method, std::span<const Value> rest)
    : method_(&method), rest_(rest) {
    SEVRIN_ASSERT(!method.hasReply, "a call to many peers has no reply");
    wire::appendArrayHead(head_, 1 + method.arguments.size());
    wire::appendText(head_, method.selector);
}

bool NSXPCConnection::isXPCThread() {
    return XPCReactor::isCurrentThread();
}

XPCConnection::XPCConnection(Connect connect) : connect_(std::move(connect)), isClient_(true) {
    appendGreeting(outbox_.bytesForGreeting());
}

XPCConnection::XPCConnection(UniqueFd socket) : isClient_(false), socket_(std::move(socket)) {
    learnPeer();
    appendGreeting(outbox_.bytesForGreeting());
}

std::shared_ptr<XPCConnection> XPCConnection::accepted(UniqueFd socket) {
    auto connection = std::make_shared<XPCConnection>(std::move(socket));
    connection->isCharged_ = PeerLedger::shared().chargeConnection(connection->user_);
    if (connection->isCharged_) return connection;
    reportFault(*connection, "one connection more than its user may have");
    return nullptr;
}

XPCConnection::~XPCConnection() {
    if (isCharged_) PeerLedger::shared().releaseConnection(user_);
}

void XPCConnection::learnPeer() {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return;
    user_ = credentials.uid;
    group_ = credentials.gid;
    process_ = credentials.pid;
}

void XPCConnection::setExportedInterface(std::shared_ptr<NSXPCInterface> interface) {
    const std::scoped_lock guard(lock_);
    exportedInterface_ = std::move(interface);
}

void XPCConnection::setExportedObject(ObjectPtr object) {
    const std::unique_lock guard(lock_);
    exportedObject_.swap(object);  // The former object is released after the lock.
}

ObjectPtr XPCConnection::exportedObject() const {
    const std::scoped_lock guard(lock_);
    return exportedObject_;
}

std::shared_ptr<NSXPCInterface> XPCConnection::exportedInterface() const {
    const std::scoped_lock guard(lock_);
    return exportedInterface_;
}

void XPCConnection::setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) {
    const std::scoped_lock guard(lock_);
    remoteInterface_ = std::move(interface);
}

std::shared_ptr<NSXPCInterface> XPCConnection::remoteObjectInterface() const {
    const std::scoped_lock guard(lock_);
    return remoteInterface_;
}

void XPCConnection::setInvalidationHandler(Handler handler) {
    const std::unique_lock guard(lock_);
    invalidationHandler_.swap(handler);
}

void XPCConnection::setInterruptionHandler(Handler) {}

std::optional<XPCError> XPCConnection::failure() const {
    const std::scoped_lock guard(lock_);
    return failure_;
}

void XPCConnection::resume(std::optional<Deadline> connectDeadline) {
    {
        const std::scoped_lock guard(lock_);
        if (isEnding_ || std::exchange(isResumed_, true)) return;
    }
    UniqueFd connected;
    if (isClient_) {
        auto result =
            connect_(connectDeadline.value_or(std::chrono::steady_clock::now() + kConnectTimeout));
        if (auto* error = std::get_if<XPCError>(&result)) return end(std::move(*error));
        connected = std::move(std::get<UniqueFd>(result));
    }
    try {
        const std::scoped_lock guard(lock_);
        if (isEnding_) return;  // Invalidated while it connected.
        if (isClient_) {
            socket_ = std::move(connected);
            learnPeer();
        }
        XPCReactor::shared().add(socket_.get(), shared_from_this(), EPOLLIN);
        isLive_ = true;
        afterAppend();
    } catch (const std::system_error& error) {
        end({XPCError::Code::Disconnected, error.what()});
    }
}

void XPCConnection::invalidate() {
    end({XPCError::Code::Disconnected, "the connection was invalidated here"});
}

void XPCConnection::end(XPCError reason) {
    {
        const std::scoped_lock guard(lock_);
        if (isEnding_) return;
        isEnding_ = true;
        failure_ = std::move(reason);
    }
    XPCReactor::shared().post([self = shared_from_this()] { self->takeApart(); });
}

void XPCConnection::takeApart() {
    {
        const std::scoped_lock guard(lock_);
        if (isApart_) return;
        isApart_ = true;
        if (isLive_)
            (void)outbox_.flush(socket_.get());  // What the peer has room for still goes out;
        if (socket_)
            ::shutdown(socket_.get(),
                       SHUT_RDWR);  // a thread that reads for itself wakes up and leaves.
    }

    std::unordered_map<std::uint64_t, Pending> unanswered;
    Handler invalidationHandler;
    ObjectPtr exportedObject;
    {
        const std::scoped_lock guard(reading_, lock_);
        if (isLive_) XPCReactor::shared().remove(socket_.get(), this);
        socket_.reset();
        PeerLedger& ledger = PeerLedger::shared();
        if (outboxCharged_ + inboxCharged_ > 0)
            ledger.releaseBytes(user_, outboxCharged_ + inboxCharged_);
        for (; inboxDescriptorsCharged_ > 0; --inboxDescriptorsCharged_)
            ledger.releaseDescriptor(user_);
        inbox_ = {};
        outbox_.discard();
        if (std::exchange(isCharged_, false)) ledger.releaseConnection(user_);
        unanswered.swap(pending_);
        invalidationHandler.swap(invalidationHandler_);
        for (auto& [serial, pending] : unanswered) {
            if (pending.waiter == nullptr) continue;
            pending.waiter->answer = *failure_;
            pending.waiter->isDone.notify_one();
        }
    }
    for (auto& [serial, pending] : unanswered) {
        if (pending.handler) pending.handler(*failure_);
    }
    if (invalidationHandler) invalidationHandler();
    setExportedObject(nullptr);  // Breaks the cycle with an object that holds its connection.
}

// MARK: Sending

void XPCConnection::send(const MethodDescription& method, std::span<const Value> arguments) {
    const std::scoped_lock guard(lock_);
    if (isEnding_) return;
    appendCall(FrameKind::Message, 0, method, arguments);
    afterAppend();
}

void XPCConnection::send(const EncodedCall& call, const EncodedArguments& leading) {
    SEVRIN_ASSERT(leading.count() + call.rest().count() == call.method().arguments.size(),
                  "a message has the arguments of its method");
    const std::scoped_lock guard(lock_);
    if (isEnding_) return;
    if (!outbox_.appendFrame(call.head(), leading.bytes(), call.rest().bytes(),
                             sentBodyBytesMax())) {
        throw std::length_error("message " + call.method().selector +
                                " is longer than a frame may be");
    }
    afterAppend();
}

void XPCConnection::appendCall(FrameKind kind, std::uint64_t serial,
                               const MethodDescription& method, std::span<const Value> arguments) {
    SEVRIN_ASSERT(arguments.size() == method.arguments.size(),
                  "a message has the arguments of its method");
    SEVRIN_ASSERT(method.hasReply == (kind == FrameKind::Request),
                  "a method with a reply block is a request");
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        SEVRIN_ASSERT(method.arguments[i].accepts(arguments[i]),
                      "a message's arguments are of the types that its method takes");
    }

    appendFrame(kind, serial, method.selector, [&](std::string& bytes, wire::Endpoints& endpoints) {
        wire::appendArrayHead(bytes, 1 + arguments.size());
        wire::appendText(bytes, method.selector);
        for (const Value& argument : arguments)
            wire::appendValue(bytes, argument, &endpoints);
    });
}

// Has what was appended sent: at once, or on the XPC thread, while more is about to come, together
// with that.
void XPCConnection::afterAppend() {
    if (!isLive_ || isEnding_) return;
    XPCReactor& reactor = XPCReactor::shared();
    const bool gathers = XPCReactor::isCurrentThread() && reactor.isGathering();
    if (!isBlocked_ && gathers && outbox_.waiting() <= kGatherBytesMax) {
        if (isFlushQueued_) return;
        isFlushQueued_ = true;
        reactor.flushLater(shared_from_this());
        return;
    }
    if (!isBlocked_) flushLocked();
    if (!isBlocked_) return;
    if (outbox_.waiting() <= kOutboxBytesMax && chargeOutbox(outbox_.waiting())) return;
    isEnding_ = true;
    failure_ = {XPCError::Code::Disconnected, "the peer does not read what it is sent"};
    XPCReactor::shared().post([self = shared_from_this()] {
        reportFault(*self, "does not read what it is sent");
        self->takeApart();
    });
}

void XPCConnection::flush() {
    const std::scoped_lock guard(lock_);
    isFlushQueued_ = false;
    if (isLive_ && !isApart_ && !isBlocked_) flushLocked();
}

void XPCConnection::flushLocked() {
    const XPCOutbox::Flush result = outbox_.flush(socket_.get());
    if (result == XPCOutbox::Flush::Failed) {
        // The peer is gone, or the kernel refuses. What it sent before is handled first; nothing
        // more can come, so a thread that reads for itself leaves soon.
        sendFailure_ = std::strerror(errno);
        ::shutdown(socket_.get(), SHUT_RDWR);
        XPCReactor::shared().post([self = shared_from_this()] { self->handleRest(); });
        return;
    }
    const bool isBlocked = result == XPCOutbox::Flush::Blocked;
    (void)chargeOutbox(isBlocked ? outbox_.waiting() : 0);
    if (isBlocked == isBlocked_) return;
    isBlocked_ = isBlocked;
    watch();
}

void XPCConnection::watch() {
    const std::uint32_t events = (isReadPaused_ ? 0u : static_cast<std::uint32_t>(EPOLLIN)) |
                                 (isBlocked_ ? static_cast<std::uint32_t>(EPOLLOUT) : 0u);
    XPCReactor::shared().modify(socket_.get(), this, events);
}

// Makes the ledger say that `bytes` wait for the peer. False when that is more than its user may
// keep waiting.
bool XPCConnection::chargeOutbox(std::size_t bytes) {
    if (bytes < outboxCharged_) {
        PeerLedger::shared().releaseBytes(user_, outboxCharged_ - bytes);
    } else if (bytes > outboxCharged_ &&
               !PeerLedger::shared().chargeBytes(user_, bytes - outboxCharged_)) {
        return false;
    }
    outboxCharged_ = bytes;
    return true;
}

// MARK: Requests

void XPCConnection::request(const MethodDescription& method, std::span<const Value> arguments,
                            AnswerHandler handler, std::optional<Deadline> deadline) {
    const std::scoped_lock guard(lock_);
    if (isEnding_) {
        XPCReactor::shared().post(
            [handler = std::move(handler), failure = *failure_] { handler(failure); });
        return;
    }
    const std::uint64_t serial = nextSerial_;
    appendCall(FrameKind::Request, serial, method, arguments);
    ++nextSerial_;
    pending_.emplace(serial, Pending{&method, std::move(handler), nullptr, deadline});
    if (deadline) scheduleExpiry(*deadline);
    afterAppend();
}

// One timer a connection: it comes at the earliest deadline, gives up what is due and looks for the
// next.
void XPCConnection::scheduleExpiry(Deadline deadline) {
    if (expiry_ && *expiry_ <= deadline) return;
    expiry_ = deadline;
    XPCReactor::shared().postAt(deadline, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->expireRequests();
    });
}

void XPCConnection::expireRequests() {
    std::vector<Pending> due;
    {
        const std::scoped_lock guard(lock_);
        const auto now = std::chrono::steady_clock::now();
        if (!expiry_ || *expiry_ > now) return;  // An earlier deadline took this timer's place.
        expiry_.reset();
        std::optional<Deadline> next;
        for (auto entry = pending_.begin(); entry != pending_.end();) {
            const auto& deadline = entry->second.deadline;
            if (deadline && *deadline <= now) {
                abandoned_.insert(entry->first);
                due.push_back(std::move(entry->second));
                entry = pending_.erase(entry);
                continue;
            }
            if (deadline && (!next || *deadline < *next)) next = deadline;
            ++entry;
        }
        if (next) scheduleExpiry(*next);
    }
    for (Pending& pending : due) {
        pending.handler(XPCError{XPCError::Code::DeadlinePassed,
                                 "no answer to " + pending.method->selector + " in time"});
    }
}

// Sends what was appended, and reads until the answer to `serial` is there unless another thread
// reads already: that saves waking the XPC thread and being woken by it. `guard` holds lock_.
void XPCConnection::readIfNobodyDoes(std::unique_lock<std::mutex>& guard, std::uint64_t serial,
                                     Deadline deadline) {
    std::unique_lock reading(reading_, std::defer_lock);
    if (!isLive_ || !reading.try_lock()) return afterAppend();
    const bool mayRead = isGreeted_ && !isBlocked_;
    bool isWorkLeft = inbox_.kept() > 0;
    if (mayRead) {
        isReadPaused_ = true;
        watch();
    }
    afterAppend();
    if (mayRead) {
        guard.unlock();
        isWorkLeft = readForMyself(serial, deadline);
        guard.lock();
        isReadPaused_ = false;
        if (!isApart_) watch();
    }
    reading.unlock();
    // Only now: as long as this thread was the one that reads, the XPC thread turned away.
    if (isWorkLeft)
        XPCReactor::shared().post([self = shared_from_this()] { self->handleReceived(); });
}

NSXPCConnection::Answer XPCConnection::requestAndWait(const MethodDescription& method,
                                                      std::span<const Value> arguments,
                                                      Deadline deadline) {
    SEVRIN_ASSERT(!isXPCThread(),
                  "the XPC thread cannot wait for an answer that it would have to deliver");
    Waiter waiter;
    std::unique_lock guard(lock_);
    if (isEnding_) return *failure_;
    const std::uint64_t serial = nextSerial_;
    appendCall(FrameKind::Request, serial, method, arguments);
    ++nextSerial_;
    pending_.emplace(serial, Pending{&method, nullptr, &waiter, std::nullopt});

    readIfNobodyDoes(guard, serial, deadline);

    const bool isDone =
        waiter.isDone.wait_until(guard, deadline, [&waiter] { return waiter.answer.has_value(); });
    if (isDone) return std::move(*waiter.answer);
    pending_.erase(serial);
    abandoned_.insert(serial);
    return XPCError{XPCError::Code::DeadlinePassed, "no answer to " + method.selector + " in time"};
}

}  // namespace sevrin::platform
