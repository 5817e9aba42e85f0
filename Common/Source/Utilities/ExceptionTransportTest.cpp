// Tests of exceptions as bytes and back, of narrowing them, and of recording instead of raising.
#include "Common/Source/Utilities/ExceptionTransport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Common/Source/Utilities/LogLineIdentifier.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/NSKeyedArchiver.h"
#include "Platform/NSKeyedUnarchiver.h"
#include "Platform/TestArchive.h"

namespace sevrin {
namespace {

using platform::Data;
using platform::Dictionary;
using platform::NSDate;
using platform::NSError;
using platform::NSException;
using platform::NSKeyedArchiver;
using platform::Set;
using platform::Value;
using platform::ValueArray;
using testing::ElementsAre;
using testing::IsEmpty;

SVException makeException(std::string_view reason = "cannot delete item") {
    return SVException::exceptionWithNameReason("IO", reason);
}

NSException makePlain() {
    return NSException::exceptionWithNameReasonUserInfo("IO", "cannot delete item");
}

std::optional<NSException> throughBytes(const NSException& exception) {
    const std::optional<std::string> data = dataForException(exception);
    if (!data) return std::nullopt;
    return exceptionFromData(*data);
}

TEST(ExceptionTransportTest, OnlyAnSVExceptionIsOne) {
    const SVException exception = makeException();
    const NSException handle = exception;

    ASSERT_TRUE(asSVException(handle));
    EXPECT_TRUE(asSVException(handle)->isSame(exception));
    EXPECT_FALSE(asSVException(makePlain()));
}

TEST(ExceptionTransportTest, OnlyAnSVExceptionWhoseFlagWasWrittenIsSoft) {
    EXPECT_FALSE(asSoftException(makeException()));
    EXPECT_FALSE(asSoftException(makePlain()));

    const SVException soft = makeException().setSoft(true);
    ASSERT_TRUE(asSoftException(soft));
    EXPECT_TRUE(asSoftException(soft)->isSame(soft));
    EXPECT_TRUE(asSoftException(makeException().setSoft(false)));
}

TEST(ExceptionTransportTest, ASVExceptionComesBackAsOne) {
    const SVException exception = makeException().setStrPath("/tmp/x").setPOSIXErrApi(2, "unlink");

    const auto decoded = throughBytes(exception);

    ASSERT_TRUE(decoded);
    EXPECT_FALSE(decoded->isSame(exception));
    EXPECT_TRUE(asSVException(*decoded));
    EXPECT_EQ(decoded->isa().name(), "SVException");
    EXPECT_EQ(decoded->name(), exception.name());
    EXPECT_EQ(decoded->reason(), exception.reason());
    EXPECT_EQ(decoded->userInfo(), exception.userInfo());
    EXPECT_EQ(decoded->description(), exception.description());
}

TEST(ExceptionTransportTest, ADecodedExceptionIsRaisedAsWhatItIs) {
    const auto decoded = throughBytes(makeException());

    ASSERT_TRUE(decoded);
    EXPECT_THAT(decoded->callStackReturnAddresses(), IsEmpty());
    EXPECT_THROW(decoded->raise(), SVException);
}

TEST(ExceptionTransportTest, APlainExceptionStaysPlain) {
    const auto decoded = throughBytes(makePlain());
    const auto bare =
        throughBytes(NSException::exceptionWithNameReasonUserInfo("IO", std::nullopt));

    ASSERT_TRUE(decoded && bare);
    EXPECT_EQ(decoded->isa().name(), "NSException");
    EXPECT_FALSE(asSVException(*decoded));
    EXPECT_FALSE(decoded->object()->hasUserInfo());
    EXPECT_EQ(bare->reason(), std::nullopt);
}

TEST(ExceptionTransportTest, DetailsOfEveryKindSurvive) {
    const auto error = NSError::errorWithDomainCodeUserInfo(
        platform::NSPOSIXErrorDomain, 2, Dictionary{{platform::NSFilePathErrorKey, "/tmp/x"}});
    const SVException exception =
        makeException()
            .setError(error)
            .setDetailKey("text", "ascii")
            .setDetailKey("\u00E4\u20AC\U0001F600", "unicode")
            .setDetailKey("", "empty")
            .setDetailKey(0, "zero")
            .setDetailKey(1, "one")
            .setDetailKey(true, "true")
            .setDetailKey(false, "false")
            .setDetailKey(INT64_MIN, "lowest")
            .setDetailKey(UINT64_MAX, "highest")
            .setDetailKey(-1.5, "real")
            .setDetailKey(NSDate::dateWithTimeIntervalSinceReferenceDate(1.25), "date")
            .setDetailKey(Data{std::string("\0\xFF", 2)}, "data")
            .setDetailKey(ValueArray{1, ValueArray{"a", true}, Dictionary{{"k", 2.0}}}, "array")
            .setDetailKey(Dictionary{{"a", Dictionary{{"b", ValueArray{}}}}}, "dictionary")
            .setDetailKey(Set(ValueArray{"x", 1, true}), "set")
            .setDetailKey(LogLineIdentifier::logLineIdentifierFromString("8.1.2"), "line");

    const auto decoded = throughBytes(exception);

    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->userInfo(), exception.userInfo());
}

TEST(ExceptionTransportTest, AnAbsentValueTravelsAsItsText) {
    const auto decoded = throughBytes(makeException().setObject(nullptr));

    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->userInfo(), (Dictionary{{"Object", "(nil)"}}));
}

TEST(ExceptionTransportTest, AnExceptionWithoutDetailsHasEmptyOnes) {
    const auto decoded = throughBytes(makeException());

    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->object()->hasUserInfo());
    EXPECT_TRUE(decoded->userInfo().empty());
}

TEST(ExceptionTransportTest, AnSVExceptionArchivedWithoutDetailsHasThemAllTheSame) {
    platform::TestArchive archive;
    const auto theClass = archive.addClass("SVException");
    const auto name = archive.add(archive.text("IO"));
    const auto root = archive.addObject(theClass, {{"NS.name", archive.uid(name)},
                                                   {"NS.reason", archive.uid(0)},
                                                   {"NS.userinfo", archive.uid(0)}});

    const auto decoded = exceptionFromData(archive.bytes(root));

    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->description(), "<IO> (null)");
    EXPECT_TRUE(decoded->object()->hasUserInfo());
    EXPECT_EQ(asSVException(*decoded)->setStrPath("/tmp/x").description(),
              "<IO> (null) { Path=/tmp/x }");
}

TEST(ExceptionTransportTest, ACauseMetTwiceIsOneObject) {
    const SVException cause = makeException("inner").setStrPath("/tmp/x");
    const auto decoded =
        throughBytes(makeException().setCause(cause).setObject(ValueArray{cause.object()}));

    ASSERT_TRUE(decoded);
    const auto found = NSException::exceptionInValue(*decoded->userInfo().find("Cause"));
    const Value again = decoded->userInfo().find("Object")->ifArray()->at(0);
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->isSame(*NSException::exceptionInValue(again)));
    EXPECT_EQ(found->description(), cause.description());
}

TEST(ExceptionTransportTest, AnExceptionThatIsItsOwnCauseTravels) {
    SVException exception = makeException();
    exception.setCause(exception);

    const auto decoded = throughBytes(exception);

    ASSERT_TRUE(decoded);
    const auto cause = NSException::exceptionInValue(*decoded->userInfo().find("Cause"));
    ASSERT_TRUE(cause);
    EXPECT_TRUE(cause->isSame(*decoded));
    EXPECT_EQ(decoded->description(), exception.description());
    const auto again = throughBytes(*decoded);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->description(), exception.description());
}

TEST(ExceptionTransportTest, ADecodedExceptionThatReachesItselfEnds) {
    std::weak_ptr<platform::ExceptionObject> watched;
    {
        SVException outer = makeException("outer");
        SVException inner = makeException("inner").setCause(ValueArray{outer.object()});
        outer.setCause(inner);

        const auto decoded = throughBytes(outer);
        inner.setCause(nullptr);

        ASSERT_TRUE(decoded);
        watched = decoded->object();
        EXPECT_EQ(decoded->name(), "IO");
    }

    EXPECT_TRUE(watched.expired());
}

TEST(ExceptionTransportTest, AChainOfCausesTravels) {
    SVException exception = makeException("first");
    for (int i = 0; i < 400; ++i)
        exception = makeException().setCause(exception);

    auto decoded = throughBytes(exception);

    ASSERT_TRUE(decoded);
    int causes = 0;
    for (auto walk = decoded; walk && walk->userInfo().find("Cause") != nullptr; ++causes)
        walk = NSException::exceptionInValue(*walk->userInfo().find("Cause"));
    EXPECT_EQ(causes, 400);
}

// What cannot be archived.
class Stranger : public platform::Object {};

TEST(ExceptionTransportTest, ADetailThatCannotBeArchivedGivesNoBytes) {
    EXPECT_EQ(dataForException(makeException().setObject(std::make_shared<Stranger>())),
              std::nullopt);
}

TEST(ExceptionTransportTest, BytesThatAreNoArchiveRaise) {
    EXPECT_THROW(static_cast<void>(exceptionFromData("no archive at all")), NSException);
    const std::string whole = *dataForException(makeException().setStrPath("/tmp/x"));
    EXPECT_THROW(static_cast<void>(exceptionFromData(whole.substr(0, whole.size() / 2))),
                 NSException);
}

// Messages of the default logger, without identifiers.
class ExceptionTransportLogTest : public ::testing::Test {
protected:
    std::vector<std::string> messages() const {
        std::vector<std::string> result = logger_->lines();
        for (std::string& line : result)
            line.resize(line.rfind(" ["));
        return result;
    }

    const std::shared_ptr<TestLogger> logger_ = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed_{logger_};
};

TEST_F(ExceptionTransportLogTest, NoBytesGiveNothingAndNoLine) {
    EXPECT_FALSE(exceptionFromData(std::nullopt));

    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(ExceptionTransportLogTest, BytesThatAreNoneGiveNothingAndALine) {
    EXPECT_FALSE(exceptionFromData(""));

    EXPECT_THAT(messages(), ElementsAre("9 +[NSException(SVException) exceptionFromData:] "
                                        "exception object was actually a (null)"));
}

TEST_F(ExceptionTransportLogTest, AnArchiveOfSomethingElseIsReported) {
    EXPECT_FALSE(exceptionFromData(NSKeyedArchiver::archivedDataWithRootObject("text")));
    EXPECT_FALSE(exceptionFromData(NSKeyedArchiver::archivedDataWithRootObject(
        LogLineIdentifier::logLineIdentifierFromString("8.1"))));
    EXPECT_FALSE(exceptionFromData(NSKeyedArchiver::archivedDataWithRootObject(Value())));

    const std::string place = "9 +[NSException(SVException) exceptionFromData:] ";
    EXPECT_THAT(messages(), ElementsAre(place + "exception object was actually a NSString",
                                        place + "exception object was actually a LogLineIdentifier",
                                        place + "exception object was actually a (null)"));
}

TEST_F(ExceptionTransportLogTest, FailuresAreRaisedUnlessTheyArePersisted) {
    EXPECT_THROW(raiseOrPersist(makeException()), SVException);

    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(ExceptionTransportLogTest, PersistedFailuresAreLoggedUnderOneHeading) {
    SVPersistFailures = true;
    raiseOrPersist(makeException("one").setStrPath("/tmp/x"));
    raiseOrPersist(makePlain());
    SVPersistFailures = false;

    EXPECT_THAT(messages(),
                ElementsAre("4 Ignored failures", "5 one", "8 .Exception: IO", "6 Path: /tmp/x",
                            "5 cannot delete item", "8 .Exception: IO"));
    const auto heading = Logger::logLineForKey("ShePersisted");
    ASSERT_NE(heading, nullptr);
    EXPECT_EQ(heading->count(), 2U);
    EXPECT_EQ(heading->parent(), Logger::rootLogLine());
}

}  // namespace
}  // namespace sevrin
