// Tests of the platform's error: its texts and where they come from, equality.
#include "Platform/NSError.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "Platform/DescriptionScope.h"

namespace sevrin::platform {
namespace {

NSErrorPtr makeError(std::string_view domain, std::int64_t code,
                     std::optional<Dictionary> userInfo = std::nullopt) {
    return NSError::errorWithDomainCodeUserInfo(domain, code, std::move(userInfo));
}

TEST(NSErrorTest, HasWhatItWasMadeOf) {
    const NSErrorPtr error =
        makeError(NSCocoaErrorDomain, 4864, Dictionary{{NSFilePathErrorKey, "/tmp/x"}});

    EXPECT_EQ(error->domain(), "NSCocoaErrorDomain");
    EXPECT_EQ(error->code(), 4864);
    EXPECT_EQ(error->userInfo(), (Dictionary{{"NSFilePath", "/tmp/x"}}));
    EXPECT_EQ(error->isa().name(), "NSError");
}

TEST(NSErrorTest, WithoutUserInfoItHasAnEmptyOne) {
    const NSErrorPtr error = makeError("test", 1);

    EXPECT_TRUE(error->userInfo().empty());
    EXPECT_FALSE(error->hasUserInfo());
}

TEST(NSErrorTest, SaysWhatItsUserInfoSays) {
    const NSErrorPtr error =
        makeError(NSPOSIXErrorDomain, ENOENT,
                  Dictionary{{NSLocalizedDescriptionKey, "The file is missing."},
                             {NSLocalizedFailureReasonErrorKey, "Nobody made it."}});

    EXPECT_EQ(error->localizedDescription(), "The file is missing.");
    EXPECT_EQ(error->localizedFailureReason(), "Nobody made it.");
}

TEST(NSErrorTest, AReasonServesAsTheDescription) {
    EXPECT_EQ(makeError("test", 1, Dictionary{{NSLocalizedFailureReasonErrorKey, "No room."}})
                  ->localizedDescription(),
              "No room.");
}

TEST(NSErrorTest, AnErrorNumberIsItsOwnReason) {
    const NSErrorPtr error = makeError(NSPOSIXErrorDomain, ENOENT);

    EXPECT_EQ(error->localizedFailureReason(), std::strerror(ENOENT));
    EXPECT_EQ(error->localizedDescription(), std::strerror(ENOENT));
}

TEST(NSErrorTest, ACodeThatIsNoErrorNumberHasNoReason) {
    EXPECT_EQ(makeError(NSPOSIXErrorDomain, INT64_MAX)->localizedFailureReason(), std::nullopt);
}

TEST(NSErrorTest, AnyOtherErrorIsNamedByDomainAndCode) {
    const NSErrorPtr error = makeError("com.example.test", -42);

    EXPECT_EQ(error->localizedFailureReason(), std::nullopt);
    EXPECT_EQ(error->localizedDescription(), "com.example.test error -42");
}

TEST(NSErrorTest, ADescriptionThatIsNoTextIsPassedOver) {
    EXPECT_EQ(
        makeError("test", 1, Dictionary{{NSLocalizedDescriptionKey, 5}})->localizedDescription(),
        "test error 1");
}

TEST(NSErrorTest, DescribesAllOfItself) {
    EXPECT_EQ(makeError("test", 1)->description(), "Error Domain=test Code=1 \"test error 1\"");
    EXPECT_EQ(makeError("test", 1, Dictionary{{"a", 1}, {"b", "x y"}})->description(),
              "Error Domain=test Code=1 \"test error 1\" UserInfo={a=1, b=x y}");
}

TEST(NSErrorTest, EqualErrorsAreEqualInEverything) {
    const Value error = makeError("test", 1, Dictionary{{"a", 1}});

    EXPECT_EQ(error, Value(makeError("test", 1, Dictionary{{"a", 1}})));
    EXPECT_NE(error, Value(makeError("test", 1, Dictionary{{"a", 2}})));
    EXPECT_NE(error, Value(makeError("test", 2, Dictionary{{"a", 1}})));
    EXPECT_NE(error, Value(makeError("tests", 1, Dictionary{{"a", 1}})));
    EXPECT_EQ(makeError("test", 1)->hash(), makeError("test", 1)->hash());
}

// Each error has the one below twice: without a limit, 2^60 comparisons.
NSErrorPtr nested(int levels) {
    NSErrorPtr error = makeError("test", 0);
    for (int i = 0; i < levels; ++i)
        error = makeError("test", 0, Dictionary{{"a", error}, {"b", error}});
    return error;
}

TEST(NSErrorTest, ErrorsNestedBeyondReasonAreComparedInGoodTime) {
    EXPECT_TRUE(nested(4)->isEqual(*nested(4)));
    EXPECT_FALSE(nested(60)->isEqual(*nested(60)));
    EXPECT_TRUE(nested(4)->isEqual(*nested(4)));
}

// So many errors, one below the other.
NSErrorPtr chainOf(int length) {
    NSErrorPtr error = makeError("test", 0);
    for (int i = 1; i < length; ++i)
        error = makeError("test", 0, Dictionary{{NSUnderlyingErrorKey, error}});
    return error;
}

TEST(NSErrorTest, ErrorsAreComparedToACertainDepth) {
    EXPECT_TRUE(chainOf(32)->isEqual(*chainOf(32)));
    EXPECT_FALSE(chainOf(33)->isEqual(*chainOf(33)));
    const NSErrorPtr same = chainOf(33);
    EXPECT_TRUE(same->isEqual(*same));
}

TEST(NSErrorTest, OnlySoManyErrorsAreCompared) {
    const auto withMany = [](int number) {
        ValueArray many;
        for (int i = 0; i < number; ++i)
            many.emplace_back(makeError("test", i));
        return makeError("test", 0, Dictionary{{"many", many}});
    };

    EXPECT_TRUE(withMany(9'999)->isEqual(*withMany(9'999)));
    EXPECT_FALSE(withMany(10'000)->isEqual(*withMany(10'000)));
}

TEST(NSErrorTest, WhatIsTooDeepToBeDescribedIsHintedAt) {
    const std::string text = chainOf(40)->description();

    EXPECT_NE(text.find("\"test error 0\" UserInfo={...}}"), std::string::npos) << text;
}

TEST(NSErrorTest, ErrorsNestedBeyondReasonAreDescribedInGoodTime) {
    EXPECT_LT(nested(60)->description().size(), 4U * kDescriptionBytesMax);
}

TEST(NSErrorTest, AChainOfErrorsOfAnyLengthEnds) {
    NSErrorPtr error = makeError("test", 0);
    for (int i = 0; i < 200'000; ++i)
        error = makeError("test", 0, Dictionary{{NSUnderlyingErrorKey, error}});
    const std::weak_ptr<NSError> watched = error;

    error.reset();

    EXPECT_TRUE(watched.expired());
}

TEST(NSErrorTest, ArchivesKnowItsClass) {
    EXPECT_EQ(NSCodingClass::named("NSError"), &NSError::classObject());
}

TEST(NSErrorTest, ErrnoStaysAsItIs) {
    errno = EDOM;
    static_cast<void>(errorNumberText(123456));
    EXPECT_EQ(errno, EDOM);
}

TEST(NSErrorTest, ANumberWithoutATextIsNamed) {
    EXPECT_NE(errorNumberText(123456).find("123456"), std::string::npos);
}

}  // namespace
}  // namespace sevrin::platform
