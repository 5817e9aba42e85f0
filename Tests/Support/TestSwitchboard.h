// A switchboard inside the test, that does as the test says: answers, keeps silent, refuses, hangs
// up. And the ways to wait for what happens on the XPC thread.
//
// It listens under the service name that this user's real switchboard would have, in a bootstrap
// folder of the test program's own. It runs on the XPC thread, like the client under test.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Class.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCListener.h"
#include "Tests/Support/ServiceProcess.h"
#include "client/Switchboard.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin::test {

// How long a test waits for what must happen before it fails.
inline constexpr std::chrono::seconds kPatience{60};

// The bootstrap folder of the test program, for all of its tests: a variable of the environment
// cannot change while other threads read it. A test that starts the program anew, to see it die,
// shares the folder of the first.
class BootstrapFolder : public testing::Environment {
public:
    void SetUp() override {
        testing::FLAGS_gtest_death_test_style = "threadsafe";  // There are other threads.
        if (std::getenv(kMark)) return;
        folder_.emplace(::geteuid());
        ::setenv("SEVRIN_BOOTSTRAP_DIR", folder_->bootstrap().c_str(), 1);
        ::setenv(kMark, "1", 1);
    }
    void TearDown() override { folder_.reset(); }

    [[nodiscard]] const ServiceFolder& folder() const { return folder_.value(); }

private:
    static constexpr const char* kMark = "SEVRIN_CLIENT_TESTS";

    std::optional<ServiceFolder> folder_;
};

inline BootstrapFolder& bootstrapFolder =
    *static_cast<BootstrapFolder*>(testing::AddGlobalTestEnvironment(new BootstrapFolder));

// Root is served by the machine's switchboard, and has none of its own.
inline const SwitchboardClient::Service kService =
    ::geteuid() == 0 ? SwitchboardClient::Service::System : SwitchboardClient::Service::User;

[[nodiscard]] inline std::string serviceName() {
    const std::string name = kSystemServiceName;
    return ::geteuid() == 0 ? name : name + "." + std::to_string(::geteuid());
}

[[nodiscard]] inline SwitchboardClient::Options options(
    SwitchboardClient::StateHandler stateHandler = nullptr) {
    return {.service = kService, .reconnects = true, .stateHandler = std::move(stateHandler)};
}

// Something to publish; nobody listens behind it.
[[nodiscard]] inline EndpointPtr anEndpoint() {
    return platform::NSXPCListener::anonymousListener()->endpoint();
}

// What callbacks bring, for the test to wait for.
template <typename Type>
class Inbox {
public:
    void add(Type item) {
        const std::scoped_lock guard(lock_);
        items_.push_back(std::move(item));
        changed_.notify_all();
    }

    // Everything so far, as soon as there are `count` or patience is at its end.
    [[nodiscard]] std::vector<Type> waitFor(std::size_t count) {
        std::unique_lock guard(lock_);
        changed_.wait_for(guard, kPatience, [&] { return items_.size() >= count; });
        return items_;
    }

    [[nodiscard]] std::vector<Type> items() { return waitFor(0); }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<Type> items_;
};

class TestSwitchboard final : public platform::NSXPCListenerDelegate {
public:
    // Listens at once, unless told to wait for start().
    explicit TestSwitchboard(bool starts = true) {
        if (starts) start();
    }
    ~TestSwitchboard() { stop(); }
    TestSwitchboard(const TestSwitchboard&) = delete;
    TestSwitchboard& operator=(const TestSwitchboard&) = delete;

    void start() {
        listener_ = platform::NSXPCListener::initWithMachServiceName(serviceName());
        ASSERT_EQ(listener_->registrationFailure(), std::nullopt);
        listener_->setDelegate(this);
        listener_->resume();
    }

    // Goes away: what was published here is forgotten, but not what was called.
    void stop() {
        if (listener_) listener_->invalidate();
        hangUp();
    }

    // Ends all connections. Held answers are never given.
    void hangUp() {
        decltype(board_->connections) connections;
        decltype(board_->answers) answers;
        {
            const std::scoped_lock guard(board_->lock);
            connections.swap(board_->connections);
            answers.swap(board_->answers);
            board_->published.clear();
        }
        for (const auto& connection : connections)
            connection->invalidate();
    }

    // Whether connections are accepted from now on.
    void setAccepts(bool accepts) {
        const std::scoped_lock guard(board_->lock);
        board_->accepts = accepts;
    }

    // Whether answers are held back from now on. Letting go gives all that were.
    void setHolds(bool holds) {
        decltype(board_->answers) answers;
        {
            const std::scoped_lock guard(board_->lock);
            board_->holds = holds;
            if (!holds) answers.swap(board_->answers);
        }
        for (const auto& answer : answers)
            answer();
    }

    // Every call so far, such as "publish com.example.a" or "barrier".
    [[nodiscard]] std::vector<std::string> calls() { return board_->calls.items(); }
    [[nodiscard]] std::vector<std::string> waitForCalls(std::size_t count) {
        return board_->calls.waitFor(count);
    }

    // Connections that came so far, refused ones too.
    [[nodiscard]] std::size_t arrivals() {
        const std::scoped_lock guard(board_->lock);
        return board_->arrivals;
    }

    // Sends a notification to the subscription with this number, on every connection.
    void forward(std::uint64_t subscription, const Notification& notification) {
        using platform::Value;
        const platform::ValueArray arguments = {
            std::to_string(subscription), notification.name,
            notification.source ? Value(*notification.source) : Value(),
            notification.userInfo ? Value(*notification.userInfo) : Value()};
        const platform::MethodDescription* method = SwitchboardSubscribing::protocol().method(
            "forwardToObserver:notification:fromSource:withInfo:");
        const std::scoped_lock guard(board_->lock);
        for (const auto& connection : board_->connections)
            connection->send(*method, arguments);
    }

    bool listenerShouldAcceptNewConnection(
        platform::NSXPCListener&,
        const std::shared_ptr<platform::NSXPCConnection>& connection) override {
        using platform::NSXPCInterface;
        {
            const std::scoped_lock guard(board_->lock);
            ++board_->arrivals;
            if (!board_->accepts) return false;
            board_->connections.push_back(connection);
        }
        connection->setExportedInterface(
            NSXPCInterface::interfaceWithProtocol(VeloraSwitchboarding_private::protocol()));
        connection->setRemoteObjectInterface(
            NSXPCInterface::interfaceWithProtocol(SwitchboardSubscribing::protocol()));
        connection->setExportedObject(std::make_shared<Operator>(board_));
        connection->resume();
        return true;
    }

private:
    // What has happened and what is to happen; connections may outlive the test that made them.
    struct Board {
        Inbox<std::string> calls;

        std::mutex lock;
        bool accepts = true;
        bool holds = false;
        std::size_t arrivals = 0;
        std::vector<std::shared_ptr<platform::NSXPCConnection>> connections;
        std::vector<std::function<void()>> answers;
        std::map<std::string, EndpointPtr> published;

        // Answers a call, now or later.
        void answer(std::string call, std::function<void()> reply) {
            {
                const std::scoped_lock guard(lock);
                if (holds) answers.push_back(std::exchange(reply, nullptr));
            }
            calls.add(std::move(call));
            if (reply) reply();
        }

        void publish(EndpointPtr endpoint, const std::string& identifier) {
            {
                const std::scoped_lock guard(lock);
                published[identifier] = std::move(endpoint);
            }
            calls.add("publish " + identifier);
        }

        [[nodiscard]] EndpointPtr find(const std::string& identifier) {
            const std::scoped_lock guard(lock);
            const auto found = published.find(identifier);
            return found == published.end() ? nullptr : found->second;
        }
    };

    class Operator final : public platform::Object, public VeloraSwitchboarding_private {
    public:
        explicit Operator(std::shared_ptr<Board> board) : board_(std::move(board)) {}

        [[nodiscard]] const platform::Class& isa() const override {
            static const platform::Class& theClass =
                *new platform::Class("TestSwitchboardOperator", &Object::classObject(),
                                     switchboardingMethods<Operator>());
            return theClass;
        }

        void barrierWithCompletion(std::function<void()> completion) override {
            board_->answer("barrier", std::move(completion));
        }
        void queryComponentVersionWithReply(std::function<void(std::string)> reply) override {
            board_->answer("version", [reply] { reply(kSwitchboardVersion); });
        }
        void queryBuildNumberWithReply(std::function<void(std::uint32_t)> reply) override {
            board_->answer("build", [reply] { reply(kSwitchboardBuildNumber); });
        }
        void publishEndpointForIdentifier(EndpointPtr endpoint,
                                          const std::string& identifier) override {
            board_->publish(std::move(endpoint), identifier);
        }
        void redactEndpointForIdentifier(const std::string& identifier) override {
            board_->calls.add("redact " + identifier);
        }
        void queryEndpointForIdentifierWithReply(const std::string& identifier,
                                                 std::function<void(EndpointPtr)> reply) override {
            board_->answer("query " + identifier,
                           [reply, found = board_->find(identifier)] { reply(found); });
        }
        void postNotificationNameSourceUserInfo(const std::string& name,
                                                const std::optional<std::string>& source,
                                                const platform::Value& userInfo) override {
            const platform::Dictionary* info = userInfo.ifDictionary();
            board_->calls.add("post " + name + " " + source.value_or("-") + " " +
                              (info ? std::to_string(info->size()) : "-"));
        }
        void setUser(std::uint32_t uid) override {
            board_->calls.add("setUser " + std::to_string(uid));
        }
        void addProxyObserverForNameSource(const std::string& observerID,
                                           const std::optional<std::string>& name,
                                           const std::optional<std::string>& source) override {
            board_->calls.add("subscribe " + observerID + " " + name.value_or("-") + " " +
                              source.value_or("-"));
        }
        void removeObserver(const std::string& observerID) override {
            board_->calls.add("unsubscribe " + observerID);
        }
        void removeAllObservers() override { board_->calls.add("unsubscribe all"); }

    private:
        const std::shared_ptr<Board> board_;
    };

    const std::shared_ptr<Board> board_ = std::make_shared<Board>();
    std::shared_ptr<platform::NSXPCListener> listener_;
};

}  // namespace sevrin::test
