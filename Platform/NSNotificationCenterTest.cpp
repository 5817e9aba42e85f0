// Contract tests of the notification centre: who is told, in which order, and what changes during a
// post do.
#include "Platform/NSNotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace sevrin::platform {
namespace {

class NSNotificationCenterTest : public testing::Test {
protected:
    using Observer = NSNotificationCenter::Observer;

    // Observes and writes `word` down for every notification.
    Observer observe(std::optional<std::string> name, const std::string& word,
                     std::optional<std::string> object = std::nullopt) {
        return center_.addObserver(std::move(name), std::move(object),
                                   [this, word](const NSNotification&) { heard_.push_back(word); });
    }

    // Observes for the whole test.
    void onEach(const std::string& name, NSNotificationCenter::Callback callback) {
        const Observer kept = center_.addObserver(name, std::nullopt, std::move(callback));
    }

    void post(const std::string& name, std::optional<std::string> object = std::nullopt) {
        center_.postNotificationNameObjectUserInfo(name, std::move(object), nullptr);
    }

    NSNotificationCenter center_;
    std::vector<std::string> heard_;
};

using Words = std::vector<std::string>;

TEST_F(NSNotificationCenterTest, TellsTheObserversOfTheNameInTheOrderOfRegistration) {
    observe("tick", "a");
    observe("tock", "b");
    observe(std::nullopt, "c");
    observe("tick", "d");

    post("tick");

    EXPECT_EQ(heard_, (Words{"a", "c", "d"}));
}

TEST_F(NSNotificationCenterTest, AnObserverOfAnObjectHearsOfThatObjectOnly) {
    observe("tick", "clock", "clock");
    observe(std::nullopt, "bell", "bell");

    post("tick", "clock");
    post("tick", "bell");
    post("tick");

    EXPECT_EQ(heard_, (Words{"clock", "bell"}));
}

TEST_F(NSNotificationCenterTest, EveryPostHasASerialOfItsOwn) {
    std::vector<std::uint64_t> serials;
    onEach("tick",
           [&](const NSNotification& notification) { serials.push_back(notification.postSerial); });

    post("tick");
    post("tick");

    ASSERT_EQ(serials.size(), 2U);
    EXPECT_NE(serials[0], 0U);
    EXPECT_NE(serials[0], serials[1]);
}

TEST_F(NSNotificationCenterTest, ASerialIsNeverTheSameInTwoCentres) {
    NSNotificationCenter other;
    std::vector<std::uint64_t> serials;
    const auto note = [&](const NSNotification& notification) {
        serials.push_back(notification.postSerial);
    };
    onEach("tick", note);
    const Observer elsewhere = other.addObserver("tick", std::nullopt, note);

    post("tick");
    other.postNotification({"tick", std::nullopt, nullptr});

    ASSERT_EQ(serials.size(), 2U);
    EXPECT_NE(serials[0], serials[1]);
}

TEST_F(NSNotificationCenterTest, AllObserversGetTheVerySameNotification) {
    std::vector<const NSNotification*> seen;
    for (int number = 0; number < 3; ++number) {
        onEach("tick", [&](const NSNotification& notification) { seen.push_back(&notification); });
    }

    post("tick");

    EXPECT_EQ(seen, std::vector<const NSNotification*>(3, seen.at(0)));
}

TEST_F(NSNotificationCenterTest, CarriesNameObjectAndUserInfo) {
    std::optional<NSNotification> heard;
    onEach("tick", [&](const NSNotification& notification) { heard = notification; });

    center_.postNotificationNameObjectUserInfo("tick", "clock", Dictionary{{"hour", 3}});

    ASSERT_TRUE(heard.has_value());
    EXPECT_EQ(heard->name, "tick");
    EXPECT_EQ(heard->object, "clock");
    EXPECT_EQ(heard->userInfo, Value(Dictionary{{"hour", 3}}));
}

TEST_F(NSNotificationCenterTest, LetsGoOfWhatARemovedCallbackCaptured) {
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = captured;
    onEach("tick", [](const NSNotification&) {});
    onEach("tick", [](const NSNotification&) {});
    const Observer removed = center_.addObserver(
        "tick", std::nullopt, [captured = std::move(captured)](const NSNotification&) {});

    center_.removeObserver(removed);

    EXPECT_TRUE(watched.expired());
}

TEST_F(NSNotificationCenterTest, KeepsWhatARunningCallbackCapturedUntilThePostEnds) {
    auto captured = std::make_shared<std::string>("still here");
    const std::weak_ptr<std::string> watched = captured;
    Observer self;
    self = center_.addObserver("tick", std::nullopt, [&, captured](const NSNotification&) {
        center_.removeObserver(self);
        self = nullptr;
        heard_.push_back(*captured);
    });
    captured = nullptr;

    post("tick");

    EXPECT_EQ(heard_, (Words{"still here"}));
    EXPECT_TRUE(watched.expired());
}

TEST_F(NSNotificationCenterTest, WhatACallbackCapturedMayCallTheCentreWhenItGoes) {
    class Owner {
    public:
        Owner(NSNotificationCenter& center, Observer owned)
            : center_(center), owned_(std::move(owned)) {}
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;
        ~Owner() { center_.removeObserver(owned_); }

    private:
        NSNotificationCenter& center_;
        const Observer owned_;
    };
    const auto observeWithOwner = [&](const std::string& word) {
        auto owner = std::make_shared<Owner>(center_, observe("tock", word));
        return center_.addObserver("tick", std::nullopt,
                                   [owner = std::move(owner)](const NSNotification&) {});
    };
    const Observer idle = observeWithOwner("first");
    const Observer duringPost = observeWithOwner("second");
    onEach("remove", [&](const NSNotification&) { center_.removeObserver(duringPost); });
    post("tock");

    center_.removeObserver(idle);
    post("tock");
    post("remove");
    post("tock");

    EXPECT_EQ(heard_, (Words{"first", "second", "second"}));
    EXPECT_EQ(center_.observerCount(), 1U);
}

TEST_F(NSNotificationCenterTest, ARemovedObserverHearsNothing) {
    const Observer removed = observe("tick", "removed");
    observe("tick", "other");

    center_.removeObserver(removed);
    center_.removeObserver(removed);
    center_.removeObserver(nullptr);
    post("tick");

    EXPECT_EQ(heard_, (Words{"other"}));
    EXPECT_EQ(center_.observerCount(), 1U);
}

TEST_F(NSNotificationCenterTest, TheOthersKeepTheirOrderWhicheverAreRemoved) {
    std::vector<Observer> observers;
    Words expected;
    for (int number = 0; number < 100; ++number) {
        observers.push_back(observe("tick", std::to_string(number)));
        if (number % 5 == 0) expected.push_back(std::to_string(number));
    }

    for (int number = 0; number < 100; ++number) {
        if (number % 5 != 0) center_.removeObserver(observers[static_cast<std::size_t>(number)]);
    }
    expected.push_back("late");
    observe("tick", "late");
    post("tick");

    EXPECT_EQ(heard_, expected);
    EXPECT_EQ(center_.observerCount(), expected.size());
}

TEST_F(NSNotificationCenterTest, AnObserverRemovedDuringAPostIsNotToldAnyMore) {
    Observer later;
    onEach("tick", [&](const NSNotification&) { center_.removeObserver(later); });
    later = observe("tick", "later");

    post("tick");

    EXPECT_TRUE(heard_.empty());
}

TEST_F(NSNotificationCenterTest, AnObserverMayRemoveItself) {
    Observer self;
    self = center_.addObserver("tick", std::nullopt, [&](const NSNotification&) {
        heard_.push_back("once");
        center_.removeObserver(self);
    });

    post("tick");
    post("tick");

    EXPECT_EQ(heard_, (Words{"once"}));
    EXPECT_EQ(center_.observerCount(), 0U);
}

TEST_F(NSNotificationCenterTest, AnObserverAddedDuringAPostHearsOfTheNextOne) {
    bool isAdded = false;
    onEach("tick", [&](const NSNotification&) {
        if (!isAdded) observe("tick", "added");
        isAdded = true;
    });

    post("tick");
    EXPECT_TRUE(heard_.empty());

    post("tick");
    EXPECT_EQ(heard_, (Words{"added"}));
}

TEST_F(NSNotificationCenterTest, AnObserverMayPost) {
    onEach("tick", [&](const NSNotification&) { post("tock"); });
    observe("tick", "tick");
    observe("tock", "tock");

    post("tick");

    EXPECT_EQ(heard_, (Words{"tock", "tick"}));
}

TEST_F(NSNotificationCenterTest, AnExceptionOfAnObserverReachesThePosterAndHarmsNothing) {
    const Observer failing = center_.addObserver(
        "tick", std::nullopt, [](const NSNotification&) { throw std::runtime_error("no"); });
    observe("tick", "other");

    EXPECT_THROW(post("tick"), std::runtime_error);
    center_.removeObserver(failing);
    post("tick");

    EXPECT_EQ(heard_, (Words{"other"}));
}

TEST_F(NSNotificationCenterTest, ObserversComeAndGoWhileOthersPost) {
    std::atomic<int> told = 0;
    std::atomic<bool> isDone = false;
    onEach("tick", [&](const NSNotification&) { ++told; });

    std::thread poster([&] {
        while (!isDone)
            post("tick");
    });
    for (int round = 0; round < 1'000; ++round) {
        std::vector<Observer> observers;
        for (int number = 0; number < 5; ++number) {
            observers.push_back(
                center_.addObserver("tick", std::nullopt, [&](const NSNotification&) { ++told; }));
        }
        for (const Observer& observer : observers)
            center_.removeObserver(observer);
    }
    isDone = true;
    poster.join();

    EXPECT_EQ(center_.observerCount(), 1U);
    const int before = told;
    post("tick");
    EXPECT_EQ(told, before + 1);
}

}  // namespace
}  // namespace sevrin::platform
