// Tests of work for the main thread. The tests run on it, and have its run loop run where they need
// its queue served.
#include "Common/Source/Utilities/MainThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "Platform/NSRunLoop.h"

namespace sevrin {
namespace {

using platform::DispatchQueue;
using platform::NSRunLoop;

void stopMainLoop() {
    NSRunLoop::currentRunLoop().stop();
}

// Serves the main queue until somebody stops it; answers whether somebody did.
bool runMainLoop() {
    return NSRunLoop::currentRunLoop().runUntilDate(std::chrono::steady_clock::now() +
                                                    std::chrono::seconds(60));
}

TEST(MainThreadTest, TheQueueIsThePlatformsMainQueue) {
    EXPECT_EQ(&MainDispatchQueue(), &DispatchQueue::mainQueue());
}

TEST(MainThreadTest, OnlyTheMainThreadIsIt) {
    bool elsewhere = true;
    std::thread([&] { elsewhere = IsMainThread(); }).join();

    EXPECT_TRUE(IsMainThread());
    EXPECT_FALSE(elsewhere);
}

TEST(MainThreadTest, WhatIsDispatchedWaitsForTheLoopAlsoOnTheMainThread) {
    std::string order;
    DispatchToMainQueue([&] {
        order += "block ";
        stopMainLoop();
    });
    order += "caller ";

    EXPECT_TRUE(runMainLoop());

    EXPECT_EQ(order, "caller block ");
}

TEST(MainThreadTest, OnTheMainThreadBothRunAtOnce) {
    std::string order;

    RunOnMainThreadSync([&] { order += "sync "; });
    RunOnMainThreadAsync([&] { order += "async "; });

    EXPECT_EQ(order, "sync async ");
}

TEST(MainThreadTest, ElsewhereSyncReturnsWhenTheBlockHasRunOnTheMainThread) {
    bool ranOnMain = false;
    bool hadRun = false;
    std::thread other([&] {
        RunOnMainThreadSync([&] { ranOnMain = IsMainThread(); });
        hadRun = ranOnMain;
        DispatchToMainQueue(stopMainLoop);
    });

    EXPECT_TRUE(runMainLoop());
    other.join();

    EXPECT_TRUE(ranOnMain);
    EXPECT_TRUE(hadRun);
}

TEST(MainThreadTest, ElsewhereAsyncReturnsBeforeTheMainThreadIsThere) {
    bool ranOnMain = false;
    std::thread([&] {
        RunOnMainThreadAsync([&] {
            ranOnMain = IsMainThread();
            stopMainLoop();
        });
    }).join();
    EXPECT_FALSE(ranOnMain);

    EXPECT_TRUE(runMainLoop());

    EXPECT_TRUE(ranOnMain);
}

// Counts those that are destroyed, by thread; the last one that it waits for stops the main loop.
struct Graveyard {
    int expected = 0;
    std::atomic<int> onMain = 0;
    std::atomic<int> elsewhere = 0;

    void add() {
        if (IsMainThread()) {
            ++onMain;
        } else {
            ++elsewhere;
        }
        if (onMain + elsewhere == expected) DispatchToMainQueue(stopMainLoop);
    }
};

class Mortal {
public:
    explicit Mortal(Graveyard& graveyard) : graveyard_(graveyard) {}
    Mortal(const Mortal&) = delete;
    Mortal& operator=(const Mortal&) = delete;
    ~Mortal() { graveyard_.add(); }

private:
    Graveyard& graveyard_;
};

TEST(ReleaseLaterInBackgroundTest, ObjectsAreDestroyedLaterAndOffTheMainThread) {
    Graveyard graveyard{3};
    for (int i = 0; i < 3; ++i)
        ReleaseLaterInBackground(std::make_shared<Mortal>(graveyard));
    EXPECT_EQ(graveyard.onMain + graveyard.elsewhere, 0);

    EXPECT_TRUE(runMainLoop());

    EXPECT_EQ(graveyard.onMain, 0);
    EXPECT_EQ(graveyard.elsewhere, 3);
}

TEST(ReleaseLaterInBackgroundTest, AfterAFlushTheNextObjectIsFlushedToo) {
    for (int round = 0; round < 3; ++round) {
        Graveyard graveyard{1};
        ReleaseLaterInBackground(std::make_shared<Mortal>(graveyard));
        EXPECT_TRUE(runMainLoop());
        EXPECT_EQ(graveyard.elsewhere, 1);
    }
}

TEST(ReleaseLaterInBackgroundTest, AnObjectThatOthersHaveIsOnlyLetGo) {
    Graveyard graveyard{1};
    auto object = std::make_shared<Mortal>(graveyard);
    const std::weak_ptr<Mortal> watched = object;
    ReleaseLaterInBackground(object);
    EXPECT_EQ(watched.use_count(), 2);

    // One more behind it in the same flush tells when it has happened.
    Graveyard next{1};
    ReleaseLaterInBackground(std::make_shared<Mortal>(next));
    EXPECT_TRUE(runMainLoop());

    EXPECT_EQ(watched.use_count(), 1);
    EXPECT_EQ(graveyard.onMain + graveyard.elsewhere, 0);
    object.reset();
    EXPECT_EQ(graveyard.onMain, 1);
    EXPECT_TRUE(runMainLoop());  // Its own stop is in the queue.
}

TEST(ReleaseLaterInBackgroundTest, OffTheMainThreadItDoesNothingWithTheObject) {
    Graveyard graveyard;
    auto object = std::make_shared<Mortal>(graveyard);
    std::thread([&] { ReleaseLaterInBackground(object); }).join();

    EXPECT_EQ(object.use_count(), 1);
    EXPECT_EQ(graveyard.onMain + graveyard.elsewhere, 0);
}

TEST(ReleaseLaterInBackgroundTest, NothingIsNoObjectAndInTheWayOfNone) {
    Graveyard graveyard{1};

    ReleaseLaterInBackground(nullptr);
    ReleaseLaterInBackground(std::make_shared<Mortal>(graveyard));
    ReleaseLaterInBackground(nullptr);

    EXPECT_TRUE(runMainLoop());
    EXPECT_EQ(graveyard.elsewhere, 1);
}

}  // namespace
}  // namespace sevrin
