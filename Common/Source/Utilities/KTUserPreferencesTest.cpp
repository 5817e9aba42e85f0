// Tests of the suite's preferences: conversions, bounds, changes, batches.
#include "Common/Source/Utilities/KTUserPreferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/CFPreferences.h"
#include "Platform/NSRunLoop.h"
#include "Platform/TestPlaces.h"

namespace sevrin {
namespace {

using platform::Data;
using platform::NSDate;
using platform::NSRunLoop;
using platform::readPropertyList;
using platform::TestPlaces;
using platform::Value;
using platform::ValueArray;
using platform::writePropertyList;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

// Counts its flushes; each ends the run of the loop, unless it is a late one of an earlier test.
class CountingPreferences : public KTUserPreferences {
public:
    void synchronize() override {
        KTUserPreferences::synchronize();
        ++flushes;
        if (isWatched) NSRunLoop::currentRunLoop().stop();
    }
    int flushes = 0;
    bool isWatched = true;
};

// Domains of this test's own: what a test does not flush stays in the process.
std::string domainOfTest(const std::string& word) {
    return "com.example." + word + "." +
           testing::UnitTest::GetInstance()->current_test_info()->name();
}

class KTUserPreferencesTest : public testing::Test {
protected:
    ~KTUserPreferencesTest() override { preferences_->isWatched = false; }

    void store(const Value& value) const {
        platform::CFPreferencesSetAppValue("key", value, domain_);
    }
    bool boolOf(const Value& value, bool defaultValue) {
        store(value);
        return preferences_->boolForKeyInDomainWithDefault("key", domain_, defaultValue);
    }
    std::int64_t integerOf(const Value& value) {
        store(value);
        return preferences_->integerForKeyInDomainWithDefault("key", domain_, -77);
    }
    double doubleOf(const Value& value) {
        store(value);
        return preferences_->doubleForKeyInDomainWithDefault("key", domain_, -77.5);
    }

    const std::string domain_ = domainOfTest("app");
    const std::string other_ = domainOfTest("other");
    const TestPlaces places_;
    const std::shared_ptr<CountingPreferences> preferences_ =
        std::make_shared<CountingPreferences>();
};

TEST_F(KTUserPreferencesTest, ThereIsOneSharedInstance) {
    ASSERT_TRUE(KTUserPreferences::sharedPreferences());
    EXPECT_EQ(KTUserPreferences::sharedPreferences(), KTUserPreferences::sharedPreferences());
}

TEST_F(KTUserPreferencesTest, WhatIsMissingGivesTheDefault) {
    EXPECT_TRUE(preferences_->valueForKeyInDomain("key", domain_).isNull());
    EXPECT_EQ(preferences_->valueForKeyInDomainWithDefault("key", domain_, "d"), Value("d"));
    EXPECT_FALSE(preferences_->boolForKeyInDomain("key", domain_));
    EXPECT_TRUE(preferences_->boolForKeyInDomainWithDefault("key", domain_, true));
    EXPECT_EQ(preferences_->integerForKeyInDomain("key", domain_), 0);
    EXPECT_EQ(preferences_->integerForKeyInDomainWithDefault("key", domain_, 5), 5);
    EXPECT_EQ(preferences_->doubleForKeyInDomain("key", domain_), 0.0);
    EXPECT_EQ(preferences_->doubleForKeyInDomainWithDefault("key", domain_, 2.5), 2.5);
}

TEST_F(KTUserPreferencesTest, WhatIsThereIsPreferredToTheDefault) {
    store("value");

    EXPECT_EQ(preferences_->valueForKeyInDomainWithDefault("key", domain_, "d"), Value("value"));
}

TEST_F(KTUserPreferencesTest, EachKindIsReadBackAsItWasSet) {
    EXPECT_TRUE(preferences_->setBoolForKeyInDomain(true, "bool", domain_));
    EXPECT_TRUE(preferences_->setIntegerForKeyInDomain(-5, "integer", domain_));
    EXPECT_TRUE(preferences_->setDoubleForKeyInDomain(0.5, "double", domain_));

    EXPECT_EQ(preferences_->valueForKeyInDomain("bool", domain_), Value(true));
    EXPECT_EQ(preferences_->valueForKeyInDomain("integer", domain_), Value(-5));
    EXPECT_EQ(preferences_->valueForKeyInDomain("double", domain_), Value(0.5));
    EXPECT_TRUE(preferences_->boolForKeyInDomain("bool", domain_));
    EXPECT_EQ(preferences_->integerForKeyInDomain("integer", domain_), -5);
    EXPECT_EQ(preferences_->doubleForKeyInDomain("double", domain_), 0.5);
}

TEST_F(KTUserPreferencesTest, NumbersAndTextAreTruthValues) {
    EXPECT_TRUE(boolOf(1, false));
    EXPECT_FALSE(boolOf(0, true));
    EXPECT_TRUE(boolOf(0.5, false));
    EXPECT_FALSE(boolOf(0.0, true));
    EXPECT_TRUE(boolOf(std::numeric_limits<std::uint64_t>::max(), false));
    for (const char* text : {"YES", "y", "true", "T", "1", " 09", "-1", "+3x"})
        EXPECT_TRUE(boolOf(text, false)) << text;
    for (const char* text : {"NO", "false", "0", "", "on", "--1"})
        EXPECT_FALSE(boolOf(text, true)) << text;
}

TEST_F(KTUserPreferencesTest, TextAndNumbersAreIntegers) {
    EXPECT_EQ(integerOf("42"), 42);
    EXPECT_EQ(integerOf(" \t-42 items"), -42);
    EXPECT_EQ(integerOf("+7"), 7);
    EXPECT_EQ(integerOf("items"), 0);
    EXPECT_EQ(integerOf("+-7"), 0);
    EXPECT_EQ(integerOf("99999999999999999999"), kMost);
    EXPECT_EQ(integerOf("-99999999999999999999"), kLeast);
    EXPECT_EQ(integerOf(true), 1);
    EXPECT_EQ(integerOf(-2.9), -2);
    EXPECT_EQ(integerOf(1e300), kMost);
    EXPECT_EQ(integerOf(-1e300), kLeast);
    EXPECT_EQ(integerOf(9223372036854775808.0), kMost);
    EXPECT_EQ(integerOf(std::nan("")), 0);
    EXPECT_EQ(integerOf(std::numeric_limits<std::uint64_t>::max()), kMost);
}

TEST_F(KTUserPreferencesTest, TextAndNumbersAreReals) {
    EXPECT_EQ(doubleOf(" 2.5 m"), 2.5);
    EXPECT_EQ(doubleOf("-1e3"), -1000.0);
    EXPECT_EQ(doubleOf("+.5"), 0.5);
    EXPECT_EQ(doubleOf("nan"), 0.0);
    EXPECT_EQ(doubleOf("infinity"), 0.0);
    EXPECT_EQ(doubleOf("1e999"), HUGE_VAL);
    EXPECT_EQ(doubleOf("-1e999"), -HUGE_VAL);
    EXPECT_EQ(doubleOf("1e-999"), 0.0);
    EXPECT_EQ(doubleOf(true), 1.0);
    EXPECT_EQ(doubleOf(7), 7.0);
    EXPECT_EQ(doubleOf(std::numeric_limits<std::uint64_t>::max()), 18446744073709551616.0);
}

TEST_F(KTUserPreferencesTest, WhatIsNeitherNumberNorTextGivesTheDefault) {
    for (const Value& value : {Value(ValueArray{1}), Value(Data{"1"}), Value(NSDate::date()),
                               Value(platform::Dictionary{})}) {
        EXPECT_TRUE(boolOf(value, true));
        EXPECT_EQ(integerOf(value), -77);
        EXPECT_EQ(doubleOf(value), -77.5);
    }
}

TEST_F(KTUserPreferencesTest, AnIntegerStaysWithinItsBounds) {
    const auto clamped = [&](const Value& value, std::int64_t defaultValue = 5) {
        store(value);
        return preferences_->integerForKeyInDomainWithDefaultClampedToMinMax("key", domain_,
                                                                             defaultValue, 1, 10);
    };
    EXPECT_EQ(clamped(0), 1);
    EXPECT_EQ(clamped(1), 1);
    EXPECT_EQ(clamped(9), 9);
    EXPECT_EQ(clamped(10), 10);
    EXPECT_EQ(clamped(99), 10);
    EXPECT_EQ(clamped(nullptr), 5);
    EXPECT_EQ(clamped(nullptr, 50), 10);
    EXPECT_EQ(clamped("-3"), 1);
}

TEST_F(KTUserPreferencesTest, ARealStaysWithinItsBounds) {
    const auto clamped = [&](const Value& value) {
        store(value);
        return preferences_->doubleForKeyInDomainWithDefaultClampedToMinMax("key", domain_, 0.75,
                                                                            0.5, 1.5);
    };
    EXPECT_EQ(clamped(0.25), 0.5);
    EXPECT_EQ(clamped(1.0), 1.0);
    EXPECT_EQ(clamped(1.5), 1.5);
    EXPECT_EQ(clamped(9), 1.5);
    EXPECT_EQ(clamped(nullptr), 0.75);
    EXPECT_EQ(clamped(std::nan("")), 1.5);
}

TEST_F(KTUserPreferencesTest, BoundsThatContradictGiveTheLowerOne) {
    store(5);

    EXPECT_EQ(
        preferences_->integerForKeyInDomainWithDefaultClampedToMinMax("key", domain_, 0, 8, 2), 8);
}

TEST_F(KTUserPreferencesTest, AValueEqualToTheStoredOneIsNotWritten) {
    writePropertyList(places_.userFile(domain_), "{\"key\": \"value\"}");

    EXPECT_FALSE(preferences_->setValueForKeyInDomain("value", "key", domain_));
    EXPECT_FALSE(preferences_->setValueForKeyInDomain(nullptr, "missing", domain_));

    EXPECT_FALSE(NSRunLoop::currentRunLoop().runUntilDate(std::chrono::steady_clock::now() +
                                                          KTUserPreferences::kFlushDelay +
                                                          std::chrono::milliseconds(300)));
    EXPECT_EQ(preferences_->flushes, 0);
}

TEST_F(KTUserPreferencesTest, AValueOfAnotherKindIsAChange) {
    store(1);

    EXPECT_TRUE(preferences_->setBoolForKeyInDomain(true, "key", domain_));
    EXPECT_TRUE(preferences_->setValueForKeyInDomain("1", "key", domain_));
}

TEST_F(KTUserPreferencesTest, NullRemovesTheValue) {
    preferences_->setValueForKeyInDomain("value", "key", domain_);

    EXPECT_TRUE(preferences_->setValueForKeyInDomain(nullptr, "key", domain_));
    EXPECT_TRUE(preferences_->valueForKeyInDomain("key", domain_).isNull());
}

TEST_F(KTUserPreferencesTest, ChangesOfTwoDomainsAreFlushedTogetherOnce) {
    EXPECT_TRUE(preferences_->setIntegerForKeyInDomain(1, "a", domain_));
    EXPECT_TRUE(preferences_->setIntegerForKeyInDomain(2, "b", domain_));
    EXPECT_TRUE(preferences_->setIntegerForKeyInDomain(3, "c", other_));
    EXPECT_FALSE(std::filesystem::exists(places_.userFile(domain_)));

    EXPECT_TRUE(NSRunLoop::currentRunLoop().runUntilDate(std::chrono::steady_clock::now() +
                                                         std::chrono::seconds(60)));
    EXPECT_EQ(readPropertyList(places_.userFile(domain_)), "{'a': 1, 'b': 2}");
    EXPECT_EQ(readPropertyList(places_.userFile(other_)), "{'c': 3}");

    EXPECT_FALSE(NSRunLoop::currentRunLoop().runUntilDate(std::chrono::steady_clock::now() +
                                                          KTUserPreferences::kFlushDelay +
                                                          std::chrono::milliseconds(300)));
    EXPECT_EQ(preferences_->flushes, 1);
}

TEST_F(KTUserPreferencesTest, AFlushIsFollowedByAnotherWhenSomethingChangesAfterIt) {
    preferences_->setIntegerForKeyInDomain(1, "a", domain_);
    preferences_->synchronize();
    preferences_->setIntegerForKeyInDomain(2, "a", domain_);
    preferences_->synchronize();

    EXPECT_EQ(readPropertyList(places_.userFile(domain_)), "{'a': 2}");
}

TEST_F(KTUserPreferencesTest, ADueFlushOutlivesTheCallersInterest) {
    auto passing = std::make_shared<KTUserPreferences>();
    passing->setIntegerForKeyInDomain(1, "a", domain_);
    passing.reset();
    preferences_->setIntegerForKeyInDomain(2, "b", other_);

    EXPECT_TRUE(NSRunLoop::currentRunLoop().runUntilDate(std::chrono::steady_clock::now() +
                                                         std::chrono::seconds(60)));
    EXPECT_EQ(readPropertyList(places_.userFile(domain_)), "{'a': 1}");
}

TEST_F(KTUserPreferencesTest, AChangeByAnotherProcessIsSeen) {
    writePropertyList(places_.userFile(domain_), "{\"key\": 1}");
    EXPECT_EQ(preferences_->integerForKeyInDomain("key", domain_), 1);

    writePropertyList(places_.userFile(domain_), "{\"key\": 2}");

    EXPECT_EQ(preferences_->integerForKeyInDomain("key", domain_), 2);
}

TEST_F(KTUserPreferencesTest, ADamagedFileGivesDefaultsAndOneLine) {
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);
    std::filesystem::create_directories(places_.home() + "/Library/Preferences");
    std::ofstream(places_.userFile(domain_)) << "damaged";

    EXPECT_EQ(preferences_->integerForKeyInDomainWithDefault("key", domain_, 5), 5);
    EXPECT_EQ(preferences_->integerForKeyInDomainWithDefault("key", domain_, 6), 6);

    EXPECT_THAT(logger->lines(), ElementsAre(testing::AllOf(testing::StartsWith("9 "),
                                                            HasSubstr("preferences ignored"))));
}

}  // namespace
}  // namespace sevrin
