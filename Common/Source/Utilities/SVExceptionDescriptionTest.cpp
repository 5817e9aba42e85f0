// Tests of an exception as text: its form, its quotes, and that it ends whatever the details hold.
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

#include "Common/Source/Utilities/SVException.h"
#include "Platform/DescriptionScope.h"

namespace sevrin {
namespace {

using platform::kDescriptionBytesMax;
using platform::Object;
using platform::Value;
using platform::ValueArray;

SVException makeException(std::string_view reason = "no reason") {
    return SVException::exceptionWithNameReason("IO", reason);
}

TEST(SVExceptionDescriptionTest, WithoutDetailsThereAreNoBraces) {
    EXPECT_EQ(makeException().description(), "<IO> no reason");
}

TEST(SVExceptionDescriptionTest, AReasonThatIsAbsentSaysSo) {
    const SVException exception(std::make_shared<SVExceptionObject>());

    EXPECT_EQ(exception.description(), "<> (null)");
}

TEST(SVExceptionDescriptionTest, DetailsAreListedInTheDictionarysOrder) {
    const SVException exception = SVException::exceptionWithNameReason("IO", "cannot delete item")
                                      .setStrPath("/tmp/x")
                                      .setDetailKey("Permission denied", "ErrDescription")
                                      .setDecimalDetailKey(13, "POSIXErr");

    EXPECT_EQ(exception.description(),
              "<IO> cannot delete item "
              "{ ErrDescription='Permission denied', POSIXErr=13, Path=/tmp/x }");
}

TEST(SVExceptionDescriptionTest, InternalDetailsAreNotLeftOut) {
    EXPECT_EQ(makeException().setSoft(true).description(), "<IO> no reason { .SoftError=1 }");
}

TEST(SVExceptionDescriptionTest, WhiteSpaceWithinALineCallsForQuotes) {
    const auto described = [](std::string_view value) {
        return makeException("r").setDetailKey(value, "key").description();
    };

    EXPECT_EQ(described("a b"), "<IO> r { key='a b' }");
    EXPECT_EQ(described(" b"), "<IO> r { key=' b' }");
    EXPECT_EQ(described("a\tb"), "<IO> r { key='a\tb' }");
    EXPECT_EQ(described("a\u00A0b"), "<IO> r { key='a\u00A0b' }");
    EXPECT_EQ(described("a\u3000b"), "<IO> r { key='a\u3000b' }");
    EXPECT_EQ(described("a\nb"), "<IO> r { key=a\nb }");
    EXPECT_EQ(described("a'b"), "<IO> r { key=a'b }");
    EXPECT_EQ(described("a' b"), "<IO> r { key='a' b' }");
    EXPECT_EQ(described(""), "<IO> r { key= }");
    EXPECT_EQ(described("\xFF"), "<IO> r { key=\xFF }");
}

TEST(SVExceptionDescriptionTest, ACatcherOfTheStandardExceptionLearnsEverything) {
    try {
        makeException().setStrPath("/tmp/x").raise();
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "<IO> no reason { Path=/tmp/x }");
    }
}

TEST(SVExceptionDescriptionTest, ALaterDetailIsInTheTextToo) {
    SVException exception = makeException();
    EXPECT_STREQ(exception.what(), "<IO> no reason");

    exception.setStrPath("/tmp/x");

    EXPECT_STREQ(exception.what(), "<IO> no reason { Path=/tmp/x }");
}

TEST(SVExceptionDescriptionTest, ACauseIsDescribedWithItsDetails) {
    const SVException cause = makeException("inner").setStrPath("/x");

    EXPECT_EQ(makeException("outer").setCause(cause).description(),
              "<IO> outer { Cause='<IO> inner { Path=/x }' }");
}

TEST(SVExceptionDescriptionTest, AnExceptionThatIsItsOwnCauseIsDescribedOnce) {
    SVException exception = makeException();

    exception.setCause(exception);

    EXPECT_EQ(exception.description(), "<IO> no reason { Cause='<IO> no reason { ... }' }");
}

TEST(SVExceptionDescriptionTest, AnExceptionThatReachesItselfByWayOfAnotherIsDescribedOnce) {
    SVException outer = makeException("outer");
    SVException inner = makeException("inner");
    outer.setCause(ValueArray{inner.object()});
    inner.setCause(ValueArray{outer.object()});

    const std::string text = outer.description();
    inner.setCause(Value());

    EXPECT_NE(text.find("<IO> outer { ... }"), std::string::npos) << text;
}

TEST(SVExceptionDescriptionTest, CausesWithoutEndAreHintedAt) {
    SVException exception = makeException();
    for (int i = 0; i < 100'000; ++i)
        exception = makeException().setCause(exception);

    const std::string text = exception.description();

    EXPECT_LT(text.size(), 1000U);
    EXPECT_NE(text.find("{ ... }"), std::string::npos);
}

TEST(SVExceptionDescriptionTest, CausesThatUnfoldWithoutEndAreCutShort) {
    SVException exception = makeException();
    for (int i = 0; i < 15; ++i) {
        SVException next = makeException();
        for (const char* key : {"a", "b", "c", "d", "e", "f", "g", "h"})
            next.setDetailKey(exception.object(), key);
        exception = next;
    }

    EXPECT_LT(exception.description().size(), 16 * kDescriptionBytesMax);
}

// A description of any length.
class Talkative : public Object {
public:
    std::string description() const override { return std::string(64 * kDescriptionBytesMax, 'a'); }
};

// A description that cannot be made.
class Mute : public Object {
public:
    std::string description() const override { throw std::bad_alloc(); }
};

TEST(SVExceptionDescriptionTest, AnEnormousDescriptionIsCut) {
    const SVException exception = makeException().setObject(std::make_shared<Talkative>());

    EXPECT_LT(exception.description().size(), 2 * kDescriptionBytesMax);
}

TEST(SVExceptionDescriptionTest, AnObjectThatCannotDescribeItselfDoesNotHideTheOthers) {
    const SVException exception =
        makeException("r").setObject(std::make_shared<Mute>()).setStrPath("/tmp/x");

    EXPECT_EQ(exception.description(),
              "<IO> r { Object='(no description: std::bad_alloc)', Path=/tmp/x }");
}

}  // namespace
}  // namespace sevrin
