// Contract tests of the notifications between processes, with real second processes, some of them
// another user's. Other tests post at the same time: every test uses names of its own, and where it
// may, goes where the others are not heard.
#include "Platform/NSDistributedNotificationCenter.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/DispatchQueue.h"
#include "Platform/NSRunLoop.h"
#include "Tests/Support/OwnNetwork.h"
#include "Tests/Support/TestChild.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;
using test::TestChild;
using Center = NSDistributedNotificationCenter;

constexpr unsigned kPrivately = NSDistributedNotificationDeliverImmediately;
constexpr unsigned kToAllSessions =
    NSDistributedNotificationDeliverImmediately | NSDistributedNotificationPostToAllSessions;

Center& center() {
    return Center::defaultCenter();
}
NSRunLoop& loop() {
    return NSRunLoop::currentRunLoop();
}

void post(const std::string& name, const std::optional<std::string>& object,
          const Value& userInfo = {}, unsigned options = kPrivately) {
    center().postNotificationNameObjectUserInfoOptions(name, object, userInfo, options);
}

[[nodiscard]] bool runUntilStopped() {
    return loop().runUntilDate(std::chrono::steady_clock::now() + 60s);
}

std::ptrdiff_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

// An observer that keeps what it is told; the last word makes the loop stop.
class Recorder {
public:
    static constexpr const char* kLastWord = "that is all";

    explicit Recorder(std::optional<std::string> name,
                      std::optional<std::string> object = std::nullopt)
        : id_(center().addObserver(std::move(name), std::move(object),
                                   [this](const NSNotification& notification) {
                                       received_.push_back(notification);
                                       if (notification.object == kLastWord) loop().stop();
                                   })) {}
    ~Recorder() { center().removeObserver(id_); }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    [[nodiscard]] const std::vector<NSNotification>& received() const { return received_; }

    // The objects of all that came, joined by blanks.
    [[nodiscard]] std::string objects() const {
        std::string text;
        for (const NSNotification& each : received_) {
            if (!text.empty()) text += ' ';
            text += each.object.value_or("-");
        }
        return text;
    }

private:
    std::vector<NSNotification> received_;
    Center::ObserverId id_;
};

// The roles of child processes: "observe NAME" writes the object of each notification of that name
// as a line until it has heard the last word; "post NAME OBJECT OPTIONS" posts one.
class Roles : public testing::Environment {
public:
    void SetUp() override {
        if (!TestChild::role()) return;
        std::istringstream words(TestChild::role());
        std::string verb, name, object;
        unsigned options = 0;
        words >> verb >> name >> object >> options;
        if (verb == "observe") observe(name);
        if (verb == "post") {
            post(name, object, {}, options);
            std::exit(0);
        }
    }

private:
    static void writeLine(const std::string& line) {
        const std::string text = line + '\n';
        static_cast<void>(::write(STDOUT_FILENO, text.data(), text.size()) > 0);
    }

    [[noreturn]] static void observe(const std::string& name) {
        static_cast<void>(center().addObserver(name, {}, [](const NSNotification& notification) {
            writeLine(notification.object.value_or("-"));
            if (notification.object == Recorder::kLastWord) std::exit(0);
        }));
        writeLine("ready");
        loop().run();
        std::abort();
    }
};

const auto* const rolesRegistered = testing::AddGlobalTestEnvironment(new Roles);

class NSDistributedNotificationCenterTest : public testing::Test {
protected:
    static void SetUpTestSuite() { isAlone_ = test::enterOwnNetwork(); }

    static inline bool isAlone_ = false;

    // A name that no other test and no other run uses.
    const std::string name_ = "com.sevrin.test." + std::to_string(::getpid()) + "." +
                              testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(NSDistributedNotificationCenterTest, NameObjectAndUserInfoArriveAsTheyWerePosted) {
    const Dictionary userInfo{{"number", -7},
                              {"list", ValueArray{true, 2.5, Data{std::string("\0\xff", 2)}}},
                              {"nested", Dictionary{{"text", "Grüße"}, {"none", nullptr}}}};
    const Recorder recorder(name_);

    post(name_, Recorder::kLastWord, userInfo);
    ASSERT_TRUE(runUntilStopped());

    ASSERT_EQ(recorder.received().size(), 1U);
    EXPECT_EQ(recorder.received()[0].name, name_);
    EXPECT_EQ(recorder.received()[0].object, Recorder::kLastWord);
    EXPECT_EQ(recorder.received()[0].userInfo, Value(userInfo));
}

TEST_F(NSDistributedNotificationCenterTest, NoObjectAndNoUserInfoArriveAsNone) {
    const Recorder recorder(name_);

    post(name_, std::nullopt);
    post(name_, Recorder::kLastWord);
    ASSERT_TRUE(runUntilStopped());

    ASSERT_EQ(recorder.received().size(), 2U);
    EXPECT_EQ(recorder.received()[0].object, std::nullopt);
    EXPECT_TRUE(recorder.received()[0].userInfo.isNull());
}

TEST_F(NSDistributedNotificationCenterTest, AnEmptyObjectIsAnObject) {
    const Recorder anyObject(name_);
    const Recorder emptyObject(name_, "");

    post(name_, std::nullopt);
    post(name_, "");
    post(name_, Recorder::kLastWord);
    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(anyObject.received().size(), 3U);
    EXPECT_EQ(emptyObject.received().size(), 1U);
}

TEST_F(NSDistributedNotificationCenterTest, AnObserverHearsItsNameAndItsObjectOnly) {
    const Recorder all(name_);
    const Recorder other(name_ + ".other");
    const Recorder ofA(name_, "A");
    const Recorder ofAnyNameFromB(std::nullopt, name_ + "B");

    post(name_, "A");
    post(name_, name_ + "B");
    post(name_ + ".third", name_ + "B");
    post(name_, Recorder::kLastWord);
    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(all.objects(), "A " + name_ + "B " + Recorder::kLastWord);
    EXPECT_EQ(other.objects(), "");
    EXPECT_EQ(ofA.objects(), "A");
    EXPECT_EQ(ofAnyNameFromB.objects(), name_ + "B " + name_ + "B");
}

TEST_F(NSDistributedNotificationCenterTest, NotificationsArriveInTheOrderOfThePosts) {
    const Recorder recorder(name_);

    for (const char* object : {"1", "2", "3", "4"})
        post(name_, object);
    post(name_, Recorder::kLastWord);
    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(recorder.objects(), std::string("1 2 3 4 ") + Recorder::kLastWord);
}

TEST_F(NSDistributedNotificationCenterTest, EachNotificationHasASerialOfItsOwn) {
    const Recorder recorder(name_);

    post(name_, "first");
    post(name_, Recorder::kLastWord);
    ASSERT_TRUE(runUntilStopped());

    ASSERT_EQ(recorder.received().size(), 2U);
    EXPECT_NE(recorder.received()[0].postSerial, 0U);
    EXPECT_NE(recorder.received()[1].postSerial, 0U);
    EXPECT_NE(recorder.received()[0].postSerial, recorder.received()[1].postSerial);
}

TEST_F(NSDistributedNotificationCenterTest, CallbacksRunOnTheMainThreadAndNotWithinThePost) {
    bool ranOnMain = false;
    const auto id = center().addObserver(name_, {}, [&](const NSNotification&) {
        ranOnMain = isMainThread();
        loop().stop();
    });

    post(name_, {});
    EXPECT_FALSE(ranOnMain);
    ASSERT_TRUE(runUntilStopped());
    EXPECT_TRUE(ranOnMain);

    ranOnMain = false;
    std::thread([&] { post(name_, {}); }).join();
    ASSERT_TRUE(runUntilStopped());
    EXPECT_TRUE(ranOnMain);
    center().removeObserver(id);
}

TEST_F(NSDistributedNotificationCenterTest, ObserversAreCalledOnceEachInTheOrderTheyCame) {
    std::string order;
    const auto note = [&](const char* word) {
        return [&order, word](const NSNotification&) { order += word; };
    };
    const std::vector ids{center().addObserver(name_, {}, note("a")),
                          center().addObserver(name_, {}, note("b")),
                          center().addObserver(name_, {}, note("c"))};
    const Recorder recorder(name_);

    post(name_, Recorder::kLastWord);
    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(order, "abc");
    for (const auto id : ids)
        center().removeObserver(id);
}

TEST_F(NSDistributedNotificationCenterTest, ARemovedObserverMissesEvenWhatWaitsAlready) {
    const Recorder stays(name_);
    int calls = 0;
    const auto id = center().addObserver(name_, {}, [&](const NSNotification&) { ++calls; });

    post(name_, Recorder::kLastWord);
    center().removeObserver(id);
    center().removeObserver(id);  // Harmless.
    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(calls, 0);
}

TEST_F(NSDistributedNotificationCenterTest, ACallbackMayRemoveItselfAndAnotherObserver) {
    int secondCalls = 0;
    Center::ObserverId second = 0;
    Center::ObserverId first = 0;
    first = center().addObserver(name_, {}, [&](const NSNotification&) {
        center().removeObserver(first);
        center().removeObserver(second);
    });
    second = center().addObserver(name_, {}, [&](const NSNotification&) { ++secondCalls; });
    const Recorder recorder(name_);

    post(name_, Recorder::kLastWord);
    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(secondCalls, 0);
}

TEST_F(NSDistributedNotificationCenterTest, ACallbackMayRemoveTheLastObserverAndPost) {
    Center::ObserverId id = 0;
    id = center().addObserver(name_, {}, [&](const NSNotification&) {
        center().removeObserver(id);
        post(name_, {});
        loop().stop();
    });

    post(name_, {});

    EXPECT_TRUE(runUntilStopped());
}

TEST_F(NSDistributedNotificationCenterTest, ObserversComeAndGoOnOtherThreadsDuringDelivery) {
    if (!isAlone_) GTEST_SKIP() << "without root the posts would drown those of other tests";
    const Recorder recorder(name_);
    std::thread other([&] {
        for (int round = 0; round < 200; ++round) {
            const auto id = center().addObserver(name_, {}, [](const NSNotification&) {});
            post(name_ + ".unheard", {});
            center().removeObserver(id);
        }
        DispatchQueue::mainQueue().async([] { loop().stop(); });
    });

    EXPECT_TRUE(runUntilStopped());
    other.join();
}

TEST_F(NSDistributedNotificationCenterTest, TheLastObserverMayGoOnAnotherThreadDuringDelivery) {
    if (!isAlone_) GTEST_SKIP() << "without root the posts would drown those of other tests";
    std::thread other([&] {
        for (int round = 0; round < 200; ++round) {
            const auto id = center().addObserver(name_, {}, [](const NSNotification&) {});
            post(name_, {});
            center().removeObserver(id);
        }
        DispatchQueue::mainQueue().async([] { loop().stop(); });
    });

    EXPECT_TRUE(runUntilStopped());
    other.join();
}

TEST_F(NSDistributedNotificationCenterTest, APosterNeverWaitsForAReceiverThatDoesNotRead) {
    if (!isAlone_) GTEST_SKIP() << "without root the posts would drown those of other tests";
    const Recorder recorder(name_);

    for (int number = 0; number < 2000; ++number)
        post(name_, std::to_string(number));
    DispatchQueue::mainQueue().after(50ms, [] { loop().stop(); });
    ASSERT_TRUE(runUntilStopped());

    ASSERT_FALSE(recorder.received().empty());
    EXPECT_EQ(recorder.received()[0].object, "0");  // What came first is what is kept.
    EXPECT_LT(recorder.received().size(), 2000U);
}

TEST_F(NSDistributedNotificationCenterTest, ALargeNotificationArrivesAndATooLargeOneThrows) {
    const Recorder recorder(name_);
    const Dictionary large{{"data", Data{std::string(Center::kNotificationBytesMax - 1024, 'x')}}};
    const Dictionary tooLarge{{"data", Data{std::string(Center::kNotificationBytesMax, 'x')}}};

    EXPECT_THROW(post(name_, {}, tooLarge), std::invalid_argument);
    post(name_, Recorder::kLastWord, large);
    ASSERT_TRUE(runUntilStopped());

    ASSERT_EQ(recorder.received().size(), 1U);
    EXPECT_EQ(recorder.received()[0].userInfo, Value(large));
}

TEST_F(NSDistributedNotificationCenterTest, AUserInfoThatCannotTravelThrows) {
    EXPECT_THROW(post(name_, {}, Dictionary{{"set", Set({1, 2})}}), std::invalid_argument);
    EXPECT_THROW(post(name_, {}, Dictionary{{3, "a key that is no text"}}), std::invalid_argument);
    EXPECT_THROW(post(name_, {}, "no dictionary"), std::invalid_argument);
}

TEST_F(NSDistributedNotificationCenterTest, APostThatNobodyObservesLeavesNothing) {
    const std::ptrdiff_t before = openDescriptors();

    post(name_, "object", {}, kToAllSessions);

    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(NSDistributedNotificationCenterTest, TheFirstObserverOpensWhatTheLastOneCloses) {
    DispatchQueue::mainQueue().after(0ns, [] { loop().stop(); });
    ASSERT_TRUE(runUntilStopped());  // The loop's own descriptors exist from here on.
    const std::ptrdiff_t before = openDescriptors();
    {
        const Recorder first(name_);
        EXPECT_EQ(openDescriptors(), before + 1);
        const Recorder second(name_);
        EXPECT_EQ(openDescriptors(), before + 1);
    }

    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(NSDistributedNotificationCenterTest, AnotherProcessHearsAPost) {
    TestChild child = TestChild::playing("observe " + name_);
    ASSERT_TRUE(child.waitForLine("ready"));

    post(name_, "first");
    post(name_, Recorder::kLastWord);

    EXPECT_EQ(child.readLine(), "first");
    EXPECT_EQ(child.readLine(), Recorder::kLastWord);
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(NSDistributedNotificationCenterTest, AllObservingProcessesHearAPostOnceEach) {
    TestChild first = TestChild::playing("observe " + name_);
    TestChild second = TestChild::playing("observe " + name_);
    const Recorder third(name_);
    ASSERT_TRUE(first.waitForLine("ready"));
    ASSERT_TRUE(second.waitForLine("ready"));

    post(name_, "one");
    post(name_, Recorder::kLastWord);
    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(third.objects(), std::string("one ") + Recorder::kLastWord);
    for (TestChild* child : {&first, &second}) {
        EXPECT_EQ(child->readLine(), "one");
        EXPECT_EQ(child->readLine(), Recorder::kLastWord);
        EXPECT_EQ(child->wait(), 0);
    }
}

TEST_F(NSDistributedNotificationCenterTest, APostFromAnotherProcessIsHeard) {
    const auto id =
        center().addObserver(name_, "child", [](const NSNotification&) { loop().stop(); });

    TestChild child = TestChild::playing("post " + name_ + " child 1");

    EXPECT_TRUE(runUntilStopped());
    EXPECT_EQ(child.wait(), 0);
    center().removeObserver(id);
}

TEST_F(NSDistributedNotificationCenterTest, OnlyAPostToAllSessionsReachesAnotherUser) {
    if (!TestChild::mayChangeUser()) GTEST_SKIP() << "only root can start another user's process";
    TestChild child = TestChild::playing("observe " + name_, TestChild::kNobody);
    ASSERT_TRUE(child.waitForLine("ready"));

    post(name_, "private", {}, kPrivately);
    post(name_, "public", {}, kToAllSessions);
    post(name_, Recorder::kLastWord, {}, kToAllSessions);

    EXPECT_EQ(child.readLine(), "public");
    EXPECT_EQ(child.readLine(), Recorder::kLastWord);
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(NSDistributedNotificationCenterTest, OnlyAPostToAllSessionsIsHeardFromAnotherUser) {
    if (!TestChild::mayChangeUser()) GTEST_SKIP() << "only root can start another user's process";
    const Recorder recorder(name_);

    for (const char* objectAndOptions : {" private 1", " public 3"}) {
        const std::string role = "post " + name_ + objectAndOptions;
        EXPECT_EQ(TestChild::playing(role, TestChild::kNobody).wait(), 0);
    }
    post(name_, Recorder::kLastWord);
    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(recorder.objects(), std::string("public ") + Recorder::kLastWord);
}

TEST_F(NSDistributedNotificationCenterTest, ProcessesOfAnotherUserHearEachOtherPrivately) {
    if (!TestChild::mayChangeUser()) GTEST_SKIP() << "only root can start another user's process";
    TestChild observer = TestChild::playing("observe " + name_, TestChild::kNobody);
    ASSERT_TRUE(observer.waitForLine("ready"));

    EXPECT_EQ(TestChild::playing("post " + name_ + " private 1", TestChild::kNobody).wait(), 0);

    EXPECT_EQ(observer.readLine(), "private");
}

TEST_F(NSDistributedNotificationCenterTest, AProcessThatWasKilledLeavesNothingToPostTo) {
    {
        TestChild killed = TestChild::playing("observe " + name_);
        ASSERT_TRUE(killed.waitForLine("ready"));
    }
    const Recorder recorder(name_);

    post(name_, Recorder::kLastWord);

    EXPECT_TRUE(runUntilStopped());
}

using NSDistributedNotificationCenterDeathTest = NSDistributedNotificationCenterTest;

TEST_F(NSDistributedNotificationCenterDeathTest, AnExceptionThatLeavesACallbackEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            static_cast<void>(center().addObserver(
                name_, {}, [](const NSNotification&) { throw std::runtime_error("boom"); }));
            post(name_, {});
            loop().run();
        },
        "an exception left a block: boom");
}

}  // namespace
}  // namespace sevrin::platform
