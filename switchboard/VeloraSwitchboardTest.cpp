// Tests of the service as a whole: the shared instance, the announcement and the order of the end.
#include "switchboard/VeloraSwitchboard.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/DispatchQueue.h"
#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/NSRunLoop.h"
#include "Tests/Support/TestChild.h"
#include "switchboard/SVConnectionServiceFactory.h"
#include "switchboard/TestRegistry.h"

namespace sevrin {
namespace {

using platform::DispatchQueue;
using platform::NSDistributedNotificationCenter;
using platform::NSNotification;
using platform::NSRunLoop;
using test::TestChild;

class VeloraSwitchboardTest : public testing::Test, protected TestRegistry {
protected:
    static void SetUpTestSuite() {
        wasThereBefore_ = VeloraSwitchboard::sharedSwitchboard() != nullptr;
        if (!wasThereBefore_) made_ = VeloraSwitchboard::makeSharedSwitchboard();
    }

    ~VeloraSwitchboardTest() override {
        shared_->setConnectionVendor(nullptr);
        shared_->setServiceName("");
    }

    static inline bool wasThereBefore_ = true;
    static inline std::shared_ptr<VeloraSwitchboard> made_;
    const std::shared_ptr<VeloraSwitchboard> shared_ = VeloraSwitchboard::sharedSwitchboard();
};

TEST_F(VeloraSwitchboardTest, TheSharedInstanceIsTheOneThatWasMade) {
    EXPECT_FALSE(wasThereBefore_);
    EXPECT_NE(shared_, nullptr);
    EXPECT_EQ(shared_, made_);
}

TEST_F(VeloraSwitchboardTest, KeepsItsNameAndItsVendor) {
    EXPECT_EQ(shared_->serviceName(), "");
    EXPECT_EQ(shared_->connectionVendor(), nullptr);
    const auto vendor = SVConnectionVendor::initWithListener(FakeListener::make());

    shared_->setServiceName("com.sevrin.switchboard.501");
    shared_->setConnectionVendor(vendor);

    EXPECT_EQ(shared_->serviceName(), "com.sevrin.switchboard.501");
    EXPECT_EQ(shared_->connectionVendor(), vendor);
}

TEST_F(VeloraSwitchboardTest, ShutdownRefusesNewcomersBeforeItUnplugsAnybody) {
    const Client client(kAlice);
    const auto listener = FakeListener::make();
    shared_->setConnectionVendor(
        SVConnectionServiceFactory::initWithListenerServerClassConformingTo(
            listener, "VeloraOperator", VeloraSwitchboarding_private::protocol()));
    std::vector<std::string> order;
    listener->onInvalidate = [&] { order.push_back("listener"); };
    client.connection->onInvalidate = [&] { order.push_back("client"); };

    shared_->shutdown();

    EXPECT_EQ(order, (std::vector<std::string>{"listener", "client"}));
    EXPECT_EQ(UserSwitchboard::switchboardForUser(kAlice), nullptr);
}

TEST_F(VeloraSwitchboardTest, RunAnnouncesTheServiceNameOnceAfterTheDelay) {
    const std::string name = "VeloraSwitchboardTest." + std::to_string(::getpid());
    std::vector<NSNotification> heard;
    NSDistributedNotificationCenter& center = NSDistributedNotificationCenter::defaultCenter();
    const auto observer = center.addObserver(
        "com.sevrin.switchboard.started", name, [&](const NSNotification& notification) {
            heard.push_back(notification);
            // Whatever else had been announced would be delivered before this.
            DispatchQueue::mainQueue().async([] { NSRunLoop::currentRunLoop().stop(); });
        });
    shared_->setServiceName(name);

    shared_->run(std::chrono::milliseconds(1));

    center.removeObserver(observer);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0].object, name);
    EXPECT_TRUE(heard[0].userInfo.isNull());
}

TEST(VeloraSwitchboardDelayTest, TheStartIsAnnouncedSixSecondsAfterIt) {
    EXPECT_EQ(VeloraSwitchboard::kAnnouncementDelay, std::chrono::nanoseconds(6'000'000'000));
}

constexpr const char* kNameRole = "tell the service name as root";

// In the role: prints the name that a process computes while it acts as root.
class NameRole : public testing::Environment {
public:
    void SetUp() override {
        if (!TestChild::role() || TestChild::role() != std::string(kNameRole)) return;
        if (::seteuid(0) != 0) ::_exit(113);
        std::printf("%s\n", userSwitchboardServiceName().c_str());
        std::fflush(stdout);
        ::_exit(0);
    }
};
const auto* const kNameRoleRegistered = testing::AddGlobalTestEnvironment(new NameRole);

TEST(UserSwitchboardServiceNameTest, AProcessThatActsAsRootHasTheNameOfItsUser) {
    if (::getuid() != 0) GTEST_SKIP() << "only root may become somebody else and return";

    TestChild child = TestChild::running([] {
        if (::seteuid(TestChild::kNobody) != 0) return 111;
        ::setenv(TestChild::kRoleVariable, kNameRole, 1);
        ::execl("/proc/self/exe", "child", static_cast<char*>(nullptr));
        return 112;
    });

    EXPECT_TRUE(child.waitForLine("com.sevrin.switchboard.65534"));
    EXPECT_EQ(child.wait(), 0);
}

TEST(UserSwitchboardServiceNameTest, EndsInTheEffectiveUserIdAndNeverChanges) {
    const std::string& name = userSwitchboardServiceName();

    EXPECT_EQ(name, "com.sevrin.switchboard." + std::to_string(::geteuid()));
    EXPECT_EQ(&userSwitchboardServiceName(), &name);
}

}  // namespace
}  // namespace sevrin
