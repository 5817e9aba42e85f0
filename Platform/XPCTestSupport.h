// What the tests of the messaging between processes share: two protocols, a service and a client
// whose methods are hooks, a listener in this process, and ways to wait for other threads.
//
// Only the contract headers are used, so the suites that stand on it run against every backend.
// Waiting ends with what is waited for; kPatience is only where a broken run gives up.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Class.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCListener.h"
#include "Platform/Protocol.h"
#include "Platform/SelectorMethod.h"

namespace sevrin::platform::xpctest {

inline constexpr std::chrono::seconds kPatience{20};

[[nodiscard]] inline NSXPCConnection::Deadline patience() {
    return std::chrono::steady_clock::now() + kPatience;
}

// Things put by any thread, taken by the test in the order put.
template <typename Thing>
class Mailbox {
public:
    void put(Thing thing) {
        const std::scoped_lock guard(lock_);
        things_.push_back(std::move(thing));
        isThere_.notify_all();
    }

    // The oldest thing, removed; nothing when none comes in time.
    [[nodiscard]] std::optional<Thing> take() {
        std::unique_lock guard(lock_);
        if (!isThere_.wait_until(guard, patience(), [this] { return !things_.empty(); }))
            return std::nullopt;
        std::optional<Thing> thing(std::move(things_.front()));
        things_.pop_front();
        return thing;
    }

    [[nodiscard]] std::size_t size() const {
        const std::scoped_lock guard(lock_);
        return things_.size();
    }

    // Everything there is, removed.
    [[nodiscard]] std::vector<Thing> takeAll() {
        const std::scoped_lock guard(lock_);
        std::vector<Thing> all(std::make_move_iterator(things_.begin()),
                               std::make_move_iterator(things_.end()));
        things_.clear();
        return all;
    }

private:
    mutable std::mutex lock_;
    std::condition_variable isThere_;
    std::deque<Thing> things_;
};

// Something that happens some number of times.
class Event {
public:
    void happen() {
        const std::scoped_lock guard(lock_);
        ++count_;
        hasHappened_.notify_all();
    }

    // Whether it has happened `times` times before patience ends.
    [[nodiscard]] bool wait(std::size_t times = 1) {
        std::unique_lock guard(lock_);
        return hasHappened_.wait_until(guard, patience(), [&] { return count_ >= times; });
    }

    [[nodiscard]] std::size_t count() const {
        const std::scoped_lock guard(lock_);
        return count_;
    }

private:
    mutable std::mutex lock_;
    std::condition_variable hasHappened_;
    std::size_t count_ = 0;
};

// What a TestService offers.
[[nodiscard]] inline const Protocol& serviceProtocol() {
    using Kind = ArgumentType::Kind;
    static const Protocol& theProtocol = *new Protocol(
        "TestServing", {},
        {{"note:", {{Kind::String}}, false, {}, true},
         {"noteDictionary:", {{Kind::Dictionary, true}}, false, {}, true},
         {"noteNumber:", {{Kind::UnsignedInt32}}, false, {}, true},
         {"keepEndpoint:", {{Kind::Endpoint, true}}, false, {}, true},
         {"keepEndpoint:andEndpoint:", {{Kind::Endpoint}, {Kind::Endpoint}}, false, {}, true},
         {"missing", {}, false, {}, false},
         {"missingWithReply:", {}, true, {}, false},
         {"echo:withReply:", {{Kind::String}}, true, {{Kind::String}}, true},
         {"echoDictionary:withReply:", {{Kind::Dictionary}}, true, {{Kind::Dictionary}}, true},
         {"askEndpointWithReply:", {}, true, {{Kind::Endpoint, true}}, true},
         {"barrierWithCompletion:", {}, true, {}, true}});
    return theProtocol;
}

// What a TestClient offers.
[[nodiscard]] inline const Protocol& clientProtocol() {
    using Kind = ArgumentType::Kind;
    static const Protocol& theProtocol =
        *new Protocol("TestClient", {},
                      {{"push:", {{Kind::String}}, false, {}, true},
                       {"pushDictionary:", {{Kind::Dictionary, true}}, false, {}, true},
                       {"ask:withReply:", {{Kind::String}}, true, {{Kind::String}}, true}});
    return theProtocol;
}

[[nodiscard]] inline const MethodDescription& serviceMethod(std::string_view selector) {
    return *serviceProtocol().method(selector);
}

[[nodiscard]] inline const MethodDescription& clientMethod(std::string_view selector) {
    return *clientProtocol().method(selector);
}

// Each method calls its hook, if there is one. Without a hook the echoes answer what they got and
// the barrier answers, all at once.
class TestService : public Object {
public:
    using StringReply = std::function<void(std::string)>;
    using EndpointPtr = std::shared_ptr<NSXPCListenerEndpoint>;

    std::function<void(const std::string&)> onNote;
    std::function<void(const Value&)> onDictionary;
    std::function<void(std::uint32_t)> onNumber;
    std::function<void(EndpointPtr)> onEndpoint;
    std::function<void(const std::string&, StringReply)> onEcho;
    std::function<EndpointPtr()> onAskEndpoint;

    // A connection for the hooks to speak back on; borrowed weakly.
    void setCurrentConnection(const std::shared_ptr<NSXPCConnection>& connection) {
        currentConnection_ = connection;
    }
    [[nodiscard]] std::shared_ptr<NSXPCConnection> currentConnection() const {
        return currentConnection_.lock();
    }

    [[nodiscard]] const Class& isa() const override {
        static Class& theClass = *new Class("TestService", &Object::classObject(), methods());
        return theClass;
    }

private:
    std::weak_ptr<NSXPCConnection> currentConnection_;

    void note(const std::string& text) {
        if (onNote) onNote(text);
    }
    void noteDictionary(const Value& dictionary) {
        if (onDictionary) onDictionary(dictionary);
    }
    void noteNumber(std::uint32_t number) {
        if (onNumber) onNumber(number);
    }
    void keepEndpoint(EndpointPtr endpoint) {
        if (onEndpoint) onEndpoint(std::move(endpoint));
    }
    void keepEndpoints(EndpointPtr first, EndpointPtr second) {
        keepEndpoint(std::move(first));
        keepEndpoint(std::move(second));
    }
    void echo(const std::string& text, StringReply reply) {
        if (onEcho) return onEcho(text, std::move(reply));
        reply(text);
    }
    void echoDictionary(const Value& dictionary, std::function<void(Value)> reply) {
        reply(dictionary);
    }
    void askEndpoint(std::function<void(EndpointPtr)> reply) {
        reply(onAskEndpoint ? onAskEndpoint() : nullptr);
    }
    void barrier(std::function<void()> completion) { completion(); }

    [[nodiscard]] static Class::MethodTable methods() {
        return {
            {"note:", selectorMethod<TestService>(&TestService::note)},
            {"noteDictionary:", selectorMethod<TestService>(&TestService::noteDictionary)},
            {"noteNumber:", selectorMethod<TestService>(&TestService::noteNumber)},
            {"keepEndpoint:", selectorMethod<TestService>(&TestService::keepEndpoint)},
            {"keepEndpoint:andEndpoint:", selectorMethod<TestService>(&TestService::keepEndpoints)},
            {"echo:withReply:", selectorMethod<TestService>(&TestService::echo)},
            {"echoDictionary:withReply:",
             selectorMethod<TestService>(&TestService::echoDictionary)},
            {"askEndpointWithReply:", selectorMethod<TestService>(&TestService::askEndpoint)},
            {"barrierWithCompletion:", selectorMethod<TestService>(&TestService::barrier)}};
    }
};

// The object that a client exports to its server.
class TestClient : public Object {
public:
    std::function<void(const std::string&)> onPush;
    std::function<void(const Value&)> onPushDictionary;

    [[nodiscard]] const Class& isa() const override {
        static Class& theClass = *new Class(
            "TestClient", &Object::classObject(),
            {{"push:", selectorMethod<TestClient>(&TestClient::push)},
             {"pushDictionary:", selectorMethod<TestClient>(&TestClient::pushDictionary)},
             {"ask:withReply:", selectorMethod<TestClient>(&TestClient::ask)}});
        return theClass;
    }

private:
    void push(const std::string& text) {
        if (onPush) onPush(text);
    }
    void pushDictionary(const Value& dictionary) {
        if (onPushDictionary) onPushDictionary(dictionary);
    }
    void ask(const std::string& question, std::function<void(std::string)> reply) {
        reply("client: " + question);
    }
};

// Returns when the XPC thread has done what it had to do when this was called.
inline void waitForXPCThread() {
    Event isThere;
    const auto ended = NSXPCConnection::initWithListenerEndpoint(nullptr);
    ended->invalidate();
    ended->request(serviceMethod("echo:withReply:"), std::vector<Value>{""},
                   [&](const auto&) { isThere.happen(); });
    EXPECT_TRUE(isThere.wait());
}

// A listener of this process that gives every connection the same service. When it goes, it ends
// all connections of both sides and waits for their handlers: what these use is declared before it.
class TestServer : private NSXPCListenerDelegate {
public:
    explicit TestServer(
        std::shared_ptr<NSXPCListener> listener = NSXPCListener::anonymousListener(),
        const std::function<void(TestService&)>& prepare = nullptr)
        : listener_(std::move(listener)) {
        listener_->setDelegate(this);
        if (prepare) prepare(*service);  // Before a client of another process can call.
        listener_->resume();
    }
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;
    ~TestServer() {
        listener_->invalidate();
        for (const auto& connection : all_.takeAll())
            connection->invalidate();
        for (const auto& weak : clients_) {
            if (const auto connection = weak.lock()) connection->invalidate();
        }
        waitForXPCThread();
    }

    // Set before the first client connects.
    std::shared_ptr<TestService> service = std::make_shared<TestService>();
    std::function<bool(const std::shared_ptr<NSXPCConnection>&)> onConnection;

    [[nodiscard]] NSXPCListener& listener() { return *listener_; }

    // A client's connection, not resumed yet.
    [[nodiscard]] std::shared_ptr<NSXPCConnection> client() {
        auto connection = NSXPCConnection::initWithListenerEndpoint(listener_->endpoint());
        connection->setRemoteObjectInterface(
            NSXPCInterface::interfaceWithProtocol(serviceProtocol()));
        clients_.push_back(connection);
        return connection;
    }

    // A client's connection, resumed.
    [[nodiscard]] std::shared_ptr<NSXPCConnection> connect() {
        auto connection = client();
        connection->resume();
        return connection;
    }

    // The server's end of the next connection.
    [[nodiscard]] std::shared_ptr<NSXPCConnection> accepted() {
        auto connection = accepted_.take();
        return connection ? *connection : nullptr;
    }

private:
    bool listenerShouldAcceptNewConnection(
        NSXPCListener&, const std::shared_ptr<NSXPCConnection>& connection) override {
        connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol(serviceProtocol()));
        connection->setExportedObject(service);
        connection->setRemoteObjectInterface(
            NSXPCInterface::interfaceWithProtocol(clientProtocol()));
        if (onConnection && !onConnection(connection)) return false;
        connection->resume();
        all_.put(connection);
        accepted_.put(connection);
        return true;
    }

    std::shared_ptr<NSXPCListener> listener_;
    std::vector<std::weak_ptr<NSXPCConnection>> clients_;
    Mailbox<std::shared_ptr<NSXPCConnection>> all_;
    Mailbox<std::shared_ptr<NSXPCConnection>> accepted_;
};

// The faults of peers that are reported while this lives. One at a time.
class FaultLog {
public:
    FaultLog() {
        const std::scoped_lock guard(lock());
        if (!std::exchange(isInstalled(), true)) {
            NSXPCConnection::setFaultReporter(
                [](const NSXPCConnection&, const std::string& what) { report(what); });
        }
        current() = this;
    }
    FaultLog(const FaultLog&) = delete;
    FaultLog& operator=(const FaultLog&) = delete;
    ~FaultLog() {
        const std::scoped_lock guard(lock());
        current() = nullptr;
    }

    // What the reported peers did, so far.
    [[nodiscard]] std::vector<std::string> faults() const {
        const std::scoped_lock guard(lock());
        return faults_;
    }

private:
    static std::mutex& lock() {
        static std::mutex& theLock = *new std::mutex;
        return theLock;
    }
    static bool& isInstalled() {
        static bool isInstalled = false;
        return isInstalled;
    }
    static FaultLog*& current() {
        static FaultLog* theCurrent = nullptr;
        return theCurrent;
    }
    static void report(const std::string& what) {
        const std::scoped_lock guard(lock());
        if (current()) current()->faults_.push_back(what);
    }

    std::vector<std::string> faults_;
};

// Shorthand for the test's own side.
[[nodiscard]] inline NSXPCConnection::Answer ask(NSXPCConnection& connection,
                                                 const std::string& text) {
    return connection.requestAndWait(serviceMethod("echo:withReply:"), std::vector<Value>{text},
                                     patience());
}

// The text of an answer; what went wrong, in angle brackets, when there is none.
[[nodiscard]] inline std::string textOf(const NSXPCConnection::Answer& answer) {
    if (const auto* error = std::get_if<XPCError>(&answer)) return "<" + error->description + ">";
    const auto& values = std::get<ValueArray>(answer);
    return values.size() == 1 && values[0].ifString() ? *values[0].ifString() : "<no text>";
}

[[nodiscard]] inline std::optional<XPCError::Code> codeOf(const NSXPCConnection::Answer& answer) {
    const auto* error = std::get_if<XPCError>(&answer);
    return error ? std::optional(error->code) : std::nullopt;
}

inline void note(NSXPCConnection& connection, const std::string& text) {
    connection.send(serviceMethod("note:"), std::vector<Value>{text});
}

inline void push(NSXPCConnection& connection, const std::string& text) {
    connection.send(clientMethod("push:"), std::vector<Value>{text});
}

}  // namespace sevrin::platform::xpctest
