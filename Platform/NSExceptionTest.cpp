// Tests of the platform's exception: one object behind its copies, raising, the call stack it
// keeps.
#include "Platform/NSException.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace sevrin::platform {
namespace {

using testing::IsEmpty;

NSException exceptionNamed(std::string_view name) {
    return NSException::exceptionWithNameReasonUserInfo(name, "no reason");
}

// An exception of a class of its own, as layers above make them.
class SpecialException : public NSException {
public:
    using NSException::NSException;
};

class SpecialObject final : public ExceptionObject {
public:
    using ExceptionObject::ExceptionObject;
    void throwHandle() override { throw SpecialException(shared_from_this()); }
};

NSException caught(const NSException& exception) {
    try {
        exception.raise();
    } catch (const NSException& raised) {
        return raised;
    }
}

TEST(NSExceptionTest, HasWhatItWasMadeOf) {
    const auto exception = NSException::exceptionWithNameReasonUserInfo(
        NSRangeException, "index out of range", Dictionary{{"index", 7}});

    EXPECT_EQ(exception.name(), "NSRangeException");
    EXPECT_EQ(exception.reason(), "index out of range");
    EXPECT_EQ(exception.userInfo(), (Dictionary{{"index", 7}}));
    EXPECT_EQ(exception.isa().name(), "NSException");
}

TEST(NSExceptionTest, MayHaveNeitherReasonNorUserInfo) {
    const auto exception = NSException::exceptionWithNameReasonUserInfo("IO", std::nullopt);

    EXPECT_EQ(exception.reason(), std::nullopt);
    EXPECT_TRUE(exception.userInfo().empty());
    EXPECT_FALSE(exception.object()->hasUserInfo());
}

TEST(NSExceptionTest, ACopyIsTheSameException) {
    const NSException exception = exceptionNamed("IO");
    const NSException copy = exception;

    EXPECT_TRUE(copy.isSame(exception));
    EXPECT_FALSE(copy.isSame(exceptionNamed("IO")));
}

TEST(NSExceptionTest, WhatIsCaughtIsWhatWasRaised) {
    const NSException exception = exceptionNamed("IO");

    EXPECT_TRUE(caught(exception).isSame(exception));
}

TEST(NSExceptionTest, DetailsAddedToACopyAreSeenByAll) {
    const NSException exception = exceptionNamed("IO");

    caught(exception).object()->setUserInfoValueForKey("/tmp/x", "Path");

    EXPECT_EQ(exception.userInfo(), (Dictionary{{"Path", "/tmp/x"}}));
}

TEST(NSExceptionTest, AMovedFromExceptionIsStillOne) {
    NSException exception = exceptionNamed("IO");
    const NSException moved = std::move(exception);

    EXPECT_TRUE(exception.isSame(moved));
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<NSException>);
}

TEST(NSExceptionTest, ANullKeyIsRefused) {
    const NSException exception = exceptionNamed("IO");

    try {
        exception.object()->setUserInfoValueForKey(1, Value());
        FAIL() << "a null key was taken";
    } catch (const NSException& refusal) {
        EXPECT_EQ(refusal.name(), NSInvalidArgumentException);
    }
}

TEST(NSExceptionTest, DescribesItselfByItsReasonElseItsName) {
    EXPECT_EQ(exceptionNamed("IO").description(), "no reason");
    EXPECT_EQ(NSException::exceptionWithNameReasonUserInfo("IO", std::nullopt).description(), "IO");
}

TEST(NSExceptionTest, ACatcherOfTheStandardExceptionLearnsTheDescription) {
    try {
        exceptionNamed("IO").raise();
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "no reason");
    }
}

TEST(NSExceptionTest, WhatStaysInPlaceUntilTheExceptionChanges) {
    const NSException exception = exceptionNamed("IO");
    const char* const text = exception.what();
    const NSException copy = exception;

    EXPECT_EQ(copy.what(), text);
}

// A description that cannot be made.
class Indescribable final : public ExceptionObject {
public:
    using ExceptionObject::ExceptionObject;
    std::string description() const override { throw std::bad_alloc(); }
};

TEST(NSExceptionTest, WithoutADescriptionTheNameHasToDo) {
    const NSException exception(std::make_shared<Indescribable>("IO", std::nullopt, std::nullopt));

    EXPECT_STREQ(exception.what(), "IO");
}

TEST(NSExceptionTest, RaisingAFormatRaisesItsText) {
    try {
        NSException::raiseFormat(NSInvalidArgumentException, "%@ is not %d", "x", 5);
        FAIL() << "nothing was raised";
    } catch (const NSException& exception) {
        EXPECT_EQ(exception.name(), NSInvalidArgumentException);
        EXPECT_EQ(exception.reason(), "x is not 5");
        EXPECT_FALSE(exception.callStackReturnAddresses().empty());
    }
}

TEST(NSExceptionTest, RaisingThrowsTheTypeOfTheObjectNotOfTheHandle) {
    const NSException exception(std::make_shared<SpecialObject>("IO", "no reason", std::nullopt));

    EXPECT_THROW(exception.raise(), SpecialException);
}

TEST(NSExceptionTest, BeforeItIsRaisedItComesFromNowhere) {
    EXPECT_THAT(exceptionNamed("IO").callStackReturnAddresses(), IsEmpty());
}

TEST(NSExceptionTest, RaisingAgainKeepsWhereItWasRaisedFirst) {
    const NSException exception = exceptionNamed("IO");
    const std::vector<std::uintptr_t> first = caught(exception).callStackReturnAddresses();

    [&] { EXPECT_THROW(exception.raise(), NSException); }();

    EXPECT_FALSE(first.empty());
    EXPECT_EQ(exception.callStackReturnAddresses(), first);
}

TEST(NSExceptionTest, AStandardExceptionBecomesOneOfThePlatform) {
    const NSException exception =
        NSException::exceptionForStandardException(std::runtime_error("out of order"));

    EXPECT_EQ(exception.name(), NSGenericException);
    EXPECT_EQ(exception.reason(), "out of order");
}

TEST(NSExceptionTest, OneOfThePlatformStaysItself) {
    const NSException exception = exceptionNamed("IO");

    EXPECT_TRUE(NSException::exceptionForStandardException(exception).isSame(exception));
}

TEST(NSExceptionTest, AnExceptionInAValueIsTheSame) {
    const NSException exception = exceptionNamed("IO");
    const Value value = exception.object();

    const std::optional<NSException> found = NSException::exceptionInValue(value);

    ASSERT_TRUE(found);
    EXPECT_TRUE(found->isSame(exception));
    EXPECT_EQ(NSException::exceptionInValue("text"), std::nullopt);
}

TEST(NSExceptionTest, AnExceptionThatIsItsOwnDetailDoesNotKeepItselfAlive) {
    std::weak_ptr<ExceptionObject> watched;
    {
        const NSException exception = exceptionNamed("IO");
        watched = exception.object();
        exception.object()->setUserInfoValueForKey(exception.object(), "Cause");

        const std::optional<NSException> cause =
            NSException::exceptionInValue(*exception.userInfo().find("Cause"));
        ASSERT_TRUE(cause);
        EXPECT_TRUE(cause->isSame(exception));
    }

    EXPECT_TRUE(watched.expired());
}

TEST(NSExceptionTest, AChainOfCausesOfAnyLengthEnds) {
    constexpr int kCauses = 200'000;
    auto exception = std::make_shared<ExceptionObject>("IO", std::nullopt, std::nullopt);
    for (int i = 0; i < kCauses; ++i) {
        exception = std::make_shared<ExceptionObject>("IO", std::nullopt,
                                                      Dictionary{{"Cause", ValueArray{exception}}});
    }
    const std::weak_ptr<ExceptionObject> watched = exception;

    exception.reset();

    EXPECT_TRUE(watched.expired());
}

TEST(NSExceptionTest, ArchivesKnowItsClass) {
    EXPECT_EQ(NSCodingClass::named("NSException"), &ExceptionObject::classObject());
    EXPECT_NE(NSCodingClass::named("NSException")->twoSteps(), nullptr);
}

TEST(ExceptionReferenceTest, DescribesTheExceptionWhileThereIsOne) {
    auto exception = std::make_shared<ExceptionObject>("IO", "no reason", std::nullopt);
    const ExceptionReference reference(exception);

    EXPECT_EQ(reference.description(), "no reason");
    exception.reset();
    EXPECT_EQ(reference.description(), "(null)");
    EXPECT_EQ(reference.exception(), nullptr);
}

TEST(ExceptionReferenceTest, EqualsReferencesToTheSameException) {
    const auto one = std::make_shared<ExceptionObject>("IO", "no reason", std::nullopt);
    const auto other = std::make_shared<ExceptionObject>("IO", "no reason", std::nullopt);

    EXPECT_EQ(Value(std::make_shared<ExceptionReference>(one)),
              Value(std::make_shared<ExceptionReference>(one)));
    EXPECT_NE(Value(std::make_shared<ExceptionReference>(one)),
              Value(std::make_shared<ExceptionReference>(other)));
}

TEST(ExceptionReferenceTest, IsAClassOfItsOwnThatNoArchiveNames) {
    EXPECT_EQ(ExceptionReference(nullptr).isa().name(), "ExceptionReference");
    EXPECT_EQ(NSCodingClass::named("ExceptionReference"), nullptr);
}

}  // namespace
}  // namespace sevrin::platform
