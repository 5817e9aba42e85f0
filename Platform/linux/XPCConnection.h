// A connection on Linux: one stream socket, its frames, and the requests that wait for answers.
//
// Two locks, in this order. reading_ says who reads the socket: the XPC thread, which holds it
// while it handles what it read, or a thread that waits for an answer and reads for itself
// meanwhile, with the XPC thread not watching. Nobody blocks on it but the XPC thread, to take the
// connection apart. lock_ guards everything else and is never held across foreign code. The
// descriptor is closed only on the XPC thread, under both.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/NSXPCConnection.h"
#include "Platform/UniqueFd.h"
#include "Platform/XPCLimits.h"
#include "Platform/linux/XPCInbox.h"
#include "Platform/linux/XPCOutbox.h"
#include "Platform/linux/XPCReactor.h"

namespace sevrin::platform {

// Tells the process's fault reporter, if there is one, that the peer of `connection` broke a rule.
void reportFault(const NSXPCConnection& connection, const std::string& what);

class XPCConnection final : public NSXPCConnection,
                            public XPCReactor::Source,
                            public std::enable_shared_from_this<XPCConnection> {
public:
    // Makes a connected socket for a client, or says why not. Blocks until `deadline` at most.
    using Connect = std::function<std::variant<UniqueFd, XPCError>(Deadline deadline)>;

    // A client's connection, connected by resume().
    explicit XPCConnection(Connect connect);

    // A server's connection over a socket just accepted; nullptr when that is more than the peer's
    // user may hold.
    [[nodiscard]] static std::shared_ptr<XPCConnection> accepted(UniqueFd socket);

    explicit XPCConnection(UniqueFd socket);
    ~XPCConnection();

    void setExportedInterface(std::shared_ptr<NSXPCInterface> interface) override;
    void setExportedObject(ObjectPtr object) override;
    [[nodiscard]] ObjectPtr exportedObject() const override;
    [[nodiscard]] std::shared_ptr<NSXPCInterface> exportedInterface() const override;
    void setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) override;
    [[nodiscard]] std::shared_ptr<NSXPCInterface> remoteObjectInterface() const override;
    void setInvalidationHandler(Handler handler) override;
    void setInterruptionHandler(Handler handler) override;
    void resume(std::optional<Deadline> connectDeadline) override;
    void invalidate() override;
    [[nodiscard]] std::optional<XPCError> failure() const override;
    [[nodiscard]] uid_t effectiveUserIdentifier() const override { return user_; }
    [[nodiscard]] gid_t effectiveGroupIdentifier() const override { return group_; }
    [[nodiscard]] pid_t processIdentifier() const override { return process_; }
    void send(const MethodDescription& method, std::span<const Value> arguments) override;
    void send(const EncodedCall& call, const EncodedArguments& leading) override;
    void request(const MethodDescription& method, std::span<const Value> arguments,
                 AnswerHandler handler, std::optional<Deadline> deadline) override;
    [[nodiscard]] Answer requestAndWait(const MethodDescription& method,
                                        std::span<const Value> arguments,
                                        Deadline deadline) override;

    // Ends the connection for `reason`: no more is sent or handled, and the XPC thread takes it
    // apart when it gets to it.
    void end(XPCError reason);

    void handleEvents(std::uint32_t events) override;
    void flush() override;

private:
    // A thread that waits for an answer; guarded by lock_.
    struct Waiter {
        std::condition_variable isDone;
        std::optional<Answer> answer;
    };

    struct Pending {
        const MethodDescription* method = nullptr;
        AnswerHandler handler;     // either this
        Waiter* waiter = nullptr;  // or this
        std::optional<Deadline> deadline;
    };

    class ReplyBlock;

    // Sending, with lock_ held.
    template <typename AppendBody>
    void appendFrame(FrameKind kind, std::uint64_t serial, const std::string& selector,
                     const AppendBody& appendBody);
    void appendCall(FrameKind kind, std::uint64_t serial, const MethodDescription& method,
                    std::span<const Value> arguments);
    void afterAppend();
    void flushLocked();
    void watch();
    [[nodiscard]] bool chargeOutbox(std::size_t bytes);

    // Requests.
    void scheduleExpiry(Deadline deadline);
    void expireRequests();
    void readIfNobodyDoes(std::unique_lock<std::mutex>& guard, std::uint64_t serial,
                          Deadline deadline);
    [[nodiscard]] bool readForMyself(std::uint64_t serial, Deadline deadline);
    void setReceiveTimeout(Deadline deadline);

    // Receiving. The first two take reading_, all others have it held for them. The booleans answer
    // whether the connection goes on.
    void handleReceived();
    void handleRest();
    void endReceiving(std::unique_lock<std::mutex> reading);
    [[nodiscard]] bool receiveAndHandle();
    [[nodiscard]] bool handleFrames();
    [[nodiscard]] bool handleFrame(const FrameHeader& header, std::string_view body);
    [[nodiscard]] bool handleGreeting(std::string_view body);
    [[nodiscard]] bool handleCall(const FrameHeader& header, std::string_view body,
                                  std::vector<UniqueFd>& fds);
    [[nodiscard]] bool handleReply(const FrameHeader& header, std::string_view body,
                                   std::vector<UniqueFd>& fds);
    [[nodiscard]] bool dispatch(const MethodDescription& method, const FrameHeader& header,
                                ValueArray& arguments);
    [[nodiscard]] bool breach(std::string what);

    // What a listener sends may be larger by what a relay adds.
    [[nodiscard]] std::size_t sentBodyBytesMax() const {
        return kFrameBodyBytesMax + (isClient_ ? 0 : kRelayBytesMax);
    }
    [[nodiscard]] std::size_t receivedBodyBytesMax() const {
        return kFrameBodyBytesMax + (isClient_ ? kRelayBytesMax : 0);
    }
    [[nodiscard]] bool chargeInbox();

    void learnPeer();
    void takeApart();

    const Connect connect_;
    const bool isClient_;
    uid_t user_ = static_cast<uid_t>(-1);
    gid_t group_ = static_cast<gid_t>(-1);
    pid_t process_ = 0;
    bool isCharged_ = false;

    // Guarded by reading_.
    std::mutex reading_;
    XPCInbox inbox_;
    std::size_t inboxCharged_ = 0;
    std::size_t inboxDescriptorsCharged_ = 0;
    std::int64_t receiveTimeoutMs_ = -1;
    bool isGreeted_ = false;
    bool isInboxBroken_ = false;
    std::optional<XPCError> breach_;

    // Guarded by lock_, except that isEnding_ may be read without it.
    mutable std::mutex lock_;
    UniqueFd socket_;
    std::atomic<bool> isEnding_ = false;
    bool isResumed_ = false;
    bool isLive_ = false;
    bool isApart_ = false;
    bool isReadPaused_ = false;
    bool isBlocked_ = false;
    bool isFlushQueued_ = false;
    std::optional<XPCError> failure_;
    std::string sendFailure_;  // why nothing more can be sent, while the rest is read
    XPCOutbox outbox_;
    std::size_t outboxCharged_ = 0;
    std::size_t unanswered_ = 0;
    std::shared_ptr<NSXPCInterface> exportedInterface_;
    std::shared_ptr<NSXPCInterface> remoteInterface_;
    ObjectPtr exportedObject_;
    Handler invalidationHandler_;
    std::uint64_t nextSerial_ = 1;
    std::unordered_map<std::uint64_t, Pending> pending_;
    std::unordered_set<std::uint64_t>
        abandoned_;  // given up at their deadline: a late reply is no breach
    std::optional<Deadline> expiry_;
};

// Appends a frame whose body `appendBody` writes. Throws std::length_error, with nothing appended,
// when it is larger or nested deeper than a frame may be.
template <typename AppendBody>
void XPCConnection::appendFrame(FrameKind kind, std::uint64_t serial, const std::string& selector,
                                const AppendBody& appendBody) {
    wire::Endpoints endpoints;
    std::string& bytes = outbox_.beginFrame();
    try {
        appendBody(bytes, endpoints);
    } catch (...) {
        outbox_.dropFrame();
        throw;
    }
    if (!outbox_.endFrame(kind, serial, std::move(endpoints), sentBodyBytesMax()))
        throw std::length_error("message " + selector + " is longer than a frame may be");
}

}  // namespace sevrin::platform
