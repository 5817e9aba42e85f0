// Tests of the preferences that are read once.
#include "Common/Source/Utilities/KTCachedPreferences.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Platform/TestPlaces.h"

namespace sevrin {
namespace {

using platform::TestPlaces;
using platform::Value;
using platform::writePropertyList;

constexpr std::string_view kDomain = "com.example.app";

class KTCachedPreferencesTest : public testing::Test {
protected:
    const TestPlaces places_;
    const std::shared_ptr<KTCachedPreferences> preferences_ =
        std::make_shared<KTCachedPreferences>();
};

TEST_F(KTCachedPreferencesTest, TheSharedInstanceIsNotThatOfTheOtherClass) {
    EXPECT_EQ(KTCachedPreferences::sharedPreferences(), KTCachedPreferences::sharedPreferences());
    EXPECT_NE(KTCachedPreferences::sharedPreferences(), KTUserPreferences::sharedPreferences());
}

TEST_F(KTCachedPreferencesTest, AValueReadOnceStays) {
    writePropertyList(places_.userFile(kDomain), "{\"key\": 1}");
    EXPECT_EQ(preferences_->integerForKeyInDomain("key", kDomain), 1);

    writePropertyList(places_.userFile(kDomain), "{\"key\": 2}");

    EXPECT_EQ(preferences_->integerForKeyInDomain("key", kDomain), 1);
}

TEST_F(KTCachedPreferencesTest, AMissingValueStaysMissing) {
    EXPECT_TRUE(preferences_->valueForKeyInDomain("key", kDomain).isNull());

    writePropertyList(places_.userFile(kDomain), "{\"key\": 2}");

    EXPECT_TRUE(preferences_->valueForKeyInDomain("key", kDomain).isNull());
}

TEST_F(KTCachedPreferencesTest, AValueThatIsSetIsReadAndNeverStored) {
    EXPECT_FALSE(preferences_->setValueForKeyInDomain("new", "key", kDomain));
    EXPECT_FALSE(preferences_->setBoolForKeyInDomain(true, "flag", kDomain));
    preferences_->synchronize();

    EXPECT_EQ(preferences_->valueForKeyInDomain("key", kDomain), Value("new"));
    EXPECT_TRUE(preferences_->boolForKeyInDomain("flag", kDomain));
    EXPECT_TRUE(
        KTUserPreferences::sharedPreferences()->valueForKeyInDomain("key", kDomain).isNull());
    EXPECT_FALSE(std::filesystem::exists(places_.userFile(kDomain)));
}

TEST_F(KTCachedPreferencesTest, AValueSetToNullIsMissingForThisProcessOnly) {
    writePropertyList(places_.userFile(kDomain), "{\"key\": 1}");

    EXPECT_FALSE(preferences_->setValueForKeyInDomain(nullptr, "key", kDomain));

    EXPECT_TRUE(preferences_->valueForKeyInDomain("key", kDomain).isNull());
    EXPECT_EQ(KTUserPreferences::sharedPreferences()->integerForKeyInDomain("key", kDomain), 1);
}

TEST_F(KTCachedPreferencesTest, DomainsAreRememberedApart) {
    preferences_->setIntegerForKeyInDomain(1, "key", kDomain);
    preferences_->setIntegerForKeyInDomain(2, "key", "com.example.other");

    EXPECT_EQ(preferences_->integerForKeyInDomain("key", kDomain), 1);
    EXPECT_EQ(preferences_->integerForKeyInDomain("key", "com.example.other"), 2);
}

TEST_F(KTCachedPreferencesTest, ValuesThatAreCachedBeforehandNeedNoStore) {
    writePropertyList(places_.userFile(kDomain), "{\"a\": 1, \"b\": 2}");

    preferences_->cacheValuesForKeysInDomain({"a", "b", "c"}, kDomain);
    std::filesystem::remove(places_.userFile(kDomain));

    EXPECT_EQ(preferences_->integerForKeyInDomain("a", kDomain), 1);
    EXPECT_EQ(preferences_->integerForKeyInDomain("b", kDomain), 2);
    EXPECT_EQ(preferences_->integerForKeyInDomainWithDefault("c", kDomain, 3), 3);
}

}  // namespace
}  // namespace sevrin
