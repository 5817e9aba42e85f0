// A connection on Linux: everything that it receives, judged against the protocol before any other
// code sees it.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/Class.h"
#include "Platform/XPCLimits.h"
#include "Platform/linux/PeerLedger.h"
#include "Platform/linux/XPCConnection.h"
#include "Platform/linux/XPCEndpoint.h"

namespace sevrin::platform {

namespace {

// Receives in a row for one connection before the others get their turn.
constexpr int kReceivesPerEventMax = 16;

NSXPCConnection::FaultReporter& faultReporter() {
    static NSXPCConnection::FaultReporter& theReporter = *new NSXPCConnection::FaultReporter;
    return theReporter;
}

// Reads `count` values where `wanted` are expected, and nothing more, taking every descriptor of
// the frame exactly once. An empty text when all is well, else what is wrong.
std::string readValues(CborReader& reader, std::uint64_t count, std::size_t wanted,
                       std::vector<UniqueFd>& fds, uid_t user, ValueArray& values) {
    if (count != wanted)
        return std::to_string(count) + " values where " + std::to_string(wanted) + " are wanted";
    const char* whyNoEndpoint = nullptr;
    const wire::TakeEndpoint takeEndpoint =
        [&](std::uint64_t index) -> std::shared_ptr<NSXPCListenerEndpoint> {
        if (index >= fds.size() || !fds[index]) {
            whyNoEndpoint = "an endpoint without a descriptor of its own";
            return nullptr;
        }
        return XPCEndpoint::adoptFromPeer(std::move(fds[index]), user, whyNoEndpoint);
    };
    values.resize(wanted);
    for (Value& value : values) {
        if (wire::readValue(reader, value, &takeEndpoint)) continue;
        return whyNoEndpoint ? whyNoEndpoint : "a value that is malformed or nested too deep";
    }
    if (!reader.atEnd()) return "bytes after the end of a message";
    const bool isAllTaken =
        std::ranges::none_of(fds, [](const UniqueFd& fd) { return static_cast<bool>(fd); });
    return isAllTaken ? "" : "a descriptor that no argument names";
}

}  // namespace

void NSXPCConnection::setFaultReporter(FaultReporter reporter) {
    faultReporter() = std::move(reporter);
}

void reportFault(const NSXPCConnection& connection, const std::string& what) {
    if (faultReporter()) faultReporter()(connection, what);
}

// The reply block of one request: answers at most once, and counts the request as unanswered until
// it is gone.
class XPCConnection::ReplyBlock {
public:
    ReplyBlock(std::shared_ptr<XPCConnection> connection, std::uint64_t serial,
               const MethodDescription& method)
        : connection_(std::move(connection)), serial_(serial), method_(method) {}
    ReplyBlock(const ReplyBlock&) = delete;
    ReplyBlock& operator=(const ReplyBlock&) = delete;

    ~ReplyBlock() {
        const std::scoped_lock guard(connection_->lock_);
        --connection_->unanswered_;
    }

    void reply(const ValueArray& values) {
        if (isUsed_.exchange(true)) return;
        SEVRIN_ASSERT(method_.whyNotReplies(values).empty(),
                      "a reply is of the types that its method gives");
        const std::scoped_lock guard(connection_->lock_);
        if (connection_->isEnding_) return;
        connection_->appendFrame(FrameKind::Reply, serial_, method_.selector,
                                 [&values](std::string& bytes, wire::Endpoints& endpoints) {
                                     wire::appendArrayHead(bytes, values.size());
                                     for (const Value& value : values)
                                         wire::appendValue(bytes, value, &endpoints);
                                 });
        connection_->afterAppend();
    }

private:
    const std::shared_ptr<XPCConnection> connection_;
    const std::uint64_t serial_;
    const MethodDescription& method_;
    std::atomic<bool> isUsed_ = false;
};

void XPCConnection::handleEvents(std::uint32_t events) {
    if (events & EPOLLOUT) {
        const std::scoped_lock guard(lock_);
        if (isLive_ && !isApart_) flushLocked();
    }
    if (events & ~static_cast<std::uint32_t>(EPOLLOUT)) handleReceived();
}

void XPCConnection::handleReceived() {
    std::unique_lock reading(reading_, std::try_to_lock);
    if (!reading || !socket_ || isEnding_) return;
    if (!receiveAndHandle()) endReceiving(std::move(reading));
}

// Handles what still waits in a socket that was shut down, and ends the connection.
void XPCConnection::handleRest() {
    std::unique_lock reading(reading_);
    if (!socket_ || isEnding_) return;
    while (receiveAndHandle()) {
    }
    endReceiving(std::move(reading));
}

// Nothing more is to be received: ends the connection for the reason that explains it best.
void XPCConnection::endReceiving(std::unique_lock<std::mutex> reading) {
    const std::optional<XPCError> breach = std::exchange(breach_, std::nullopt);
    const bool isRefusal = isClient_ && !isGreeted_;
    reading.unlock();
    if (isEnding_) return;
    if (breach) {
        reportFault(*this, breach->description);
        end(*breach);
    } else if (isRefusal) {
        end({XPCError::Code::Refused, "the server refused the connection"});
    } else {
        std::unique_lock guard(lock_);
        const std::string why = sendFailure_.empty() ? "the peer closed the connection"
                                                     : "the connection ended: " + sendFailure_;
        guard.unlock();
        end({XPCError::Code::Disconnected, why});
    }
}

bool XPCConnection::receiveAndHandle() {
    if (isInboxBroken_) return breach("more descriptors than a frame may bring");
    if (inbox_.kept() > 0 && !handleFrames()) return false;
    for (int i = 0; i < kReceivesPerEventMax; ++i) {
        const XPCInbox::Receive received = inbox_.receive(socket_.get(), false);
        if (received == XPCInbox::Receive::Ended) return false;
        if (received == XPCInbox::Receive::Broken)
            return breach("more descriptors than a frame may bring");
        if (!handleFrames()) return false;
        if (!inbox_.wasFull()) return true;
    }
    return true;
}

bool XPCConnection::handleFrames() {
    FrameHeader header;
    std::string_view body;
    for (;;) {
        const XPCInbox::Next next = inbox_.next(header, body, receivedBodyBytesMax());
        if (next == XPCInbox::Next::Broken) return breach("bytes that are no frame");
        if (next == XPCInbox::Next::Incomplete) break;
        XPCReactor& reactor = XPCReactor::shared();
        reactor.setGathering(!inbox_.isLast(header));
        const bool goesOn = handleFrame(header, body);
        reactor.setGathering(true);
        if (!goesOn) return false;
        inbox_.consume(header);
    }
    inbox_.keepRest();
    if (inbox_.hasStrayDescriptors()) return breach("descriptors that no frame declares");
    if (!chargeInbox()) return breach("more of unfinished frames than its user may have waiting");
    return true;
}

bool XPCConnection::handleFrame(const FrameHeader& header, std::string_view body) {
    if (isEnding_) return false;
    std::vector<UniqueFd> fds;
    if (header.descriptors > 0 && !inbox_.takeDescriptors(header, fds))
        return breach("fewer descriptors than a frame declares");

    if (header.kind == FrameKind::Greeting)
        return fds.empty() ? handleGreeting(body) : breach("a greeting with descriptors");
    if (!isGreeted_) return breach("a message before the greeting");
    return header.kind == FrameKind::Reply ? handleReply(header, body, fds)
                                           : handleCall(header, body, fds);
}

bool XPCConnection::handleGreeting(std::string_view body) {
    if (isGreeted_) return breach("a second greeting");
    const std::optional<std::uint64_t> version = readGreeting(body);
    if (!version) return breach("bytes that are no greeting");
    if (*version != kProtocolVersion) {
        (void)breach("version " + std::to_string(*version) +
                     " of the protocol where this program speaks version " +
                     std::to_string(kProtocolVersion) + "; " +
                     (*version < kProtocolVersion ? "the other side" : "this side") +
                     " is the older one");
        breach_->code = XPCError::Code::VersionMismatch;
        return false;
    }
    isGreeted_ = true;
    return true;
}

bool XPCConnection::handleCall(const FrameHeader& header, std::string_view body,
                               std::vector<UniqueFd>& fds) {
    CborReader reader(body);
    CborItem head;
    CborItem selector;
    if (!reader.next(head) || head.type != CborItem::Type::Array || head.number == 0 ||
        !reader.next(selector) || selector.type != CborItem::Type::Text) {
        return breach("a body that is no message");
    }
    const std::shared_ptr<NSXPCInterface> interface = exportedInterface();
    const MethodDescription* method =
        interface ? interface->protocol().method(selector.text) : nullptr;
    if (method == nullptr) return breach("an unknown selector");
    if (method->hasReply != (header.kind == FrameKind::Request)) {
        return breach(method->selector + (method->hasReply
                                              ? " without wanting its reply"
                                              : " as a request, though it has no reply"));
    }

    ValueArray arguments;
    std::string wrong =
        readValues(reader, head.number - 1, method->arguments.size(), fds, user_, arguments);
    if (wrong.empty()) wrong = method->whyNotArguments(arguments);
    if (!wrong.empty()) return breach(method->selector + ": " + wrong);
    return dispatch(*method, header, arguments);
}

bool XPCConnection::dispatch(const MethodDescription& method, const FrameHeader& header,
                             ValueArray& arguments) {
    Invocation invocation{arguments, nullptr};
    ObjectPtr object;
    {
        const std::scoped_lock guard(lock_);
        object = exportedObject_;
        if (header.kind == FrameKind::Request) {
            if (unanswered_ == kUnansweredRequestsMax) return breach("too many requests at once");
            ++unanswered_;
        }
    }
    if (header.kind == FrameKind::Request) {
        invocation.reply =
            [block = std::make_shared<ReplyBlock>(shared_from_this(), header.serial, method)](
                const ValueArray& values) { block->reply(values); };
    }
    const Class::Method* implementation =
        object ? object->isa().instanceMethod(method.selector) : nullptr;
    if (implementation == nullptr)
        return true;  // An optional method, or an object that is already gone.
    try {
        (*implementation)(object.get(), invocation);
    } catch (const std::exception& error) {
        return breach(method.selector + ", which failed: " + error.what());
    }
    return true;
}

bool XPCConnection::handleReply(const FrameHeader& header, std::string_view body,
                                std::vector<UniqueFd>& fds) {
    const MethodDescription* method = nullptr;
    {
        const std::scoped_lock guard(lock_);
        const auto found = pending_.find(header.serial);
        if (found == pending_.end()) {
            return abandoned_.erase(header.serial) > 0 || breach("a reply to no question");
        }
        method = found->second.method;
    }
    CborReader reader(body);
    CborItem head;
    if (!reader.next(head) || head.type != CborItem::Type::Array)
        return breach("a body that is no reply");
    ValueArray values;
    std::string wrong = readValues(reader, head.number, method->replies.size(), fds, user_, values);
    if (wrong.empty()) wrong = method->whyNotReplies(values);
    if (!wrong.empty()) return breach("reply to " + method->selector + ": " + wrong);

    AnswerHandler handler;
    {
        const std::scoped_lock guard(lock_);
        const auto found = pending_.find(header.serial);
        if (found == pending_.end()) return true;  // Given up just now: nobody is left to tell.
        if (Waiter* waiter = found->second.waiter) {
            waiter->answer = std::move(values);
            waiter->isDone.notify_one();
        }
        handler = std::move(found->second.handler);
        pending_.erase(found);
    }
    if (handler) handler(std::move(values));
    return true;
}

// Reads until the answer to `serial` is there, anything else arrives first, or the time is up.
// Whatever is not that answer is left to the XPC thread, which handles it in its order: true when
// there is such a thing.
bool XPCConnection::readForMyself(std::uint64_t serial, Deadline deadline) {
    for (;;) {
        FrameHeader header;
        std::string_view body;
        const XPCInbox::Next next = inbox_.next(header, body, receivedBodyBytesMax());
        if (next == XPCInbox::Next::Frame && header.kind == FrameKind::Reply &&
            header.serial == serial) {
            std::vector<UniqueFd> fds;
            const bool isFine = (header.descriptors == 0 || inbox_.takeDescriptors(header, fds)) &&
                                handleReply(header, body, fds);
            if (isFine) inbox_.consume(header);
            inbox_.keepRest();
            return !isFine || inbox_.kept() > 0 || inbox_.hasStrayDescriptors() || inbox_.wasFull();
        }
        inbox_.keepRest();
        if (next != XPCInbox::Next::Incomplete) return true;
        if (std::chrono::steady_clock::now() >= deadline || isEnding_) return false;
        setReceiveTimeout(deadline);
        switch (inbox_.receive(socket_.get(), true)) {
            case XPCInbox::Receive::Some:
            case XPCInbox::Receive::Nothing:
                break;
            case XPCInbox::Receive::Broken:
                isInboxBroken_ = true;
                [[fallthrough]];
            case XPCInbox::Receive::Ended:
                return true;
        }
    }
}

// The kernel counts from each call anew, so waits longer than a second are cut into seconds and the
// option is set only when it changes.
void XPCConnection::setReceiveTimeout(Deadline deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now())
            .count();
    const std::int64_t timeoutMs = std::clamp<std::int64_t>(left, 1, 1000);
    if (timeoutMs == receiveTimeoutMs_) return;
    const timeval timeout{timeoutMs / 1000, (timeoutMs % 1000) * 1000};
    if (::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) == 0)
        receiveTimeoutMs_ = timeoutMs;
}

// Makes the ledger say what waits here for the rest of its frame: bytes, and descriptors, of which
// a user could otherwise leave some on each of its connections.
bool XPCConnection::chargeInbox() {
    PeerLedger& ledger = PeerLedger::shared();
    const std::size_t descriptors = inbox_.waitingDescriptors();
    for (; inboxDescriptorsCharged_ > descriptors; --inboxDescriptorsCharged_)
        ledger.releaseDescriptor(user_);
    for (; inboxDescriptorsCharged_ < descriptors; ++inboxDescriptorsCharged_) {
        if (!ledger.chargeDescriptor(user_)) return false;
    }

    const std::size_t kept = inbox_.kept();
    if (kept < inboxCharged_) {
        ledger.releaseBytes(user_, inboxCharged_ - kept);
    } else if (kept > inboxCharged_ && !ledger.chargeBytes(user_, kept - inboxCharged_)) {
        return false;
    }
    inboxCharged_ = kept;
    return true;
}

// Notes what the peer did wrong; always false, so that it can be returned.
bool XPCConnection::breach(std::string what) {
    breach_ = XPCError{XPCError::Code::BadAnswer, std::move(what)};
    return false;
}

}  // namespace sevrin::platform
