// Tests of records of exceptions and errors: their lines, and that nothing keeps one from being
// written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <regex>
#include <string>
#include <vector>

#include "Common/Source/Utilities/NSLogLogger.h"
#include "Common/Source/Utilities/RecordExtent.h"
#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/DescriptionScope.h"

namespace sevrin {
namespace {

using platform::Dictionary;
using platform::NSError;
using platform::NSException;
using platform::Object;
using platform::Value;
using platform::ValueArray;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

SVException makeException(std::string_view reason = "cannot delete item") {
    return SVException::exceptionWithNameReason("IO", reason);
}

[[gnu::noinline]] SVException raised(std::string_view reason = "cannot delete item") {
    try {
        makeException(reason).raise();
    } catch (const SVException& exception) {
        return exception;
    }
}

class ExceptionRecordsTest : public ::testing::Test {
protected:
    LogLineIdentifierPtr log(const NSException& exception,
                             LogClassification classification = LogClassification::Failure) {
        return logger_.logMapInLineException(
            classification, &SVException::userInfoLogClassifications(), line_, exception);
    }

    TestLogger logger_;
    const LogLineIdentifierPtr line_ = LogLineIdentifier::logLineIdentifierFromString("8.1");
};

TEST_F(ExceptionRecordsTest, IsTheReasonWithNameAndDetailsBelow) {
    const auto head = log(makeException()
                              .setStrPath("/tmp/x")
                              .setAPI("unlink")
                              .setDetailKey("Permission denied", "ErrDescription")
                              .setSoft(true));

    EXPECT_EQ(head->description(), "8.1.1");
    EXPECT_THAT(
        logger_.lines(),
        ElementsAre("5 cannot delete item [8.1.1]", "8 .Exception: IO [8.1.1.1]",
                    "8 .SoftError: 1 [8.1.1.2]", "9 API: unlink [8.1.1.3]",
                    "7 ErrDescription: Permission denied [8.1.1.4]", "6 Path: /tmp/x [8.1.1.5]"));
}

TEST_F(ExceptionRecordsTest, WithoutAMapDetailsAreDetails) {
    logger_.logMapInLineException(LogClassification::Failure, nullptr, line_,
                                  makeException().setStrPath("/tmp/x"));

    EXPECT_EQ(logger_.lines().back(), "7 Path: /tmp/x [8.1.1.2]");
}

TEST_F(ExceptionRecordsTest, WithoutAClassificationTheExceptionsOwnIsTaken) {
    log(SVException::exceptionWithNameReason("Bug", "r"), LogClassification::Preferred);
    log(makeException("r").setPreferredLogClass(LogClassification::Curious),
        LogClassification::Preferred);
    log(NSException::exceptionWithNameReasonUserInfo("Bug", "r"), LogClassification::Preferred);

    const std::vector<std::string> lines = logger_.lines();
    EXPECT_EQ(lines[0], "9 r [8.1.1]");
    EXPECT_EQ(lines[2], "2 r [8.1.2]");
    EXPECT_EQ(lines[5], "5 r [8.1.3]");
}

TEST_F(ExceptionRecordsTest, TheReasonIsMadeFitForOneLine) {
    const auto head = [&](std::string_view reason) {
        TestLogger logger;
        logger.logMapInLineException(LogClassification::Failure, nullptr, line_,
                                     makeException(reason));
        const std::string line = logger.lines()[0];
        return line.substr(2, line.rfind(" [") - 2);
    };

    EXPECT_EQ(head("a\nb"), "a | b");
    EXPECT_EQ(head("a\r\nb"), "a |  | b");
    EXPECT_EQ(head("a\x0B\x0C\u0085\u2028\u2029z"), "a |  |  |  |  | z");
    EXPECT_EQ(head("a\tb"), "a?b");
    EXPECT_EQ(head("a\x7F\u200B\xFFz"), "a???z");
    EXPECT_EQ(head("\u00E4 \U0001F600"), "\u00E4 \U0001F600");
    EXPECT_EQ(head(""), "");
}

TEST_F(ExceptionRecordsTest, AnExceptionWithoutAReasonSaysSo) {
    log(NSException::exceptionWithNameReasonUserInfo("IO", std::nullopt));

    EXPECT_EQ(logger_.lines()[0], "5 (null) [8.1.1]");
}

TEST_F(ExceptionRecordsTest, OneThatWasNotRaisedHasNoBacktrace) {
    log(makeException());

    EXPECT_THAT(logger_.lines(), Not(Contains(HasSubstr("backtrace"))));
}

TEST_F(ExceptionRecordsTest, OneThatWasRaisedHasItsBacktrace) {
    const SVException exception = raised();
    std::uint64_t sum = 0;
    for (const std::uintptr_t address : exception.callStackReturnAddresses())
        sum += address;

    log(exception);

    const std::vector<std::string> lines = logger_.lines();
    ASSERT_EQ(lines.size(), 3 + exception.callStackReturnAddresses().size());
    EXPECT_EQ(lines[2], platform::stringWithFormat("9 backtrace %lx [8.1.1.2]", sum));
    const std::regex form("9 +0x[0-9a-f]+: +0x[0-9a-f]+ \\S+ \\(/?\\S+@ +0x[0-9a-f]+\\) \\[.*\\]");
    EXPECT_TRUE(std::regex_match(lines[3], form)) << lines[3];
    EXPECT_THAT(lines[3], EndsWith(" [8.1.1.2.1]"));
}

TEST_F(ExceptionRecordsTest, ARepeatedBacktraceIsReferredToByItsTag) {
    const SVException exception = raised();
    log(exception);
    const std::string tag = logger_.lines()[2].substr(0, logger_.lines()[2].find(" ["));
    const std::size_t before = logger_.lines().size();

    log(exception);

    EXPECT_EQ(logger_.lines().size(), before + 3);
    EXPECT_EQ(logger_.lines().back(), tag + " [8.1.2.2]");
}

TEST_F(ExceptionRecordsTest, AfterAReopenTheBacktraceIsShownAgain) {
    const SVException exception = raised();
    log(exception);
    const std::size_t first = logger_.lines().size();

    logger_.reopen();
    log(exception);

    EXPECT_EQ(logger_.lines().size(), 2 * first);
}

TEST_F(ExceptionRecordsTest, BacktracesWithTheSameSumHaveDifferentTags) {
    const auto withAddresses = [](std::vector<std::uintptr_t> addresses) {
        const SVException exception = makeException();
        exception.object()->setCallStackReturnAddresses(std::move(addresses));
        return exception;
    };

    log(withAddresses({0x1000, 0x2000}));
    log(withAddresses({0x2000, 0x1000}));

    EXPECT_EQ(logger_.lines()[2], "9 backtrace 3000 [8.1.1.2]");
    EXPECT_EQ(logger_.lines()[7], "9 backtrace 3001 [8.1.2.2]");
}

TEST_F(ExceptionRecordsTest, AnAddressOutsideAllCodeIsUnknown) {
    const SVException exception = makeException();
    exception.object()->setCallStackReturnAddresses({0x10});

    log(exception);

    EXPECT_EQ(logger_.lines().back(), "9               0x10: (unknown image) [8.1.1.2.1]");
}

TEST_F(ExceptionRecordsTest, TheSameExceptionIsNotNewAndACopyNeither) {
    const SVException exception = makeException();
    EXPECT_TRUE(logger_.isNewException(exception));

    log(exception);

    const NSException copy = exception;
    EXPECT_FALSE(logger_.isNewException(copy));
    EXPECT_TRUE(logger_.isNewException(makeException()));
}

TEST_F(ExceptionRecordsTest, AnExceptionThatIsGoneIsNotTakenForANewOne) {
    log(makeException());

    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(logger_.isNewException(makeException()));
}

// What cannot describe itself.
class Mute : public Object {
public:
    std::string description() const override { throw std::bad_alloc(); }
};

TEST_F(ExceptionRecordsTest, AnObjectThatCannotDescribeItselfDoesNotHideTheOthers) {
    log(makeException().setObject(std::make_shared<Mute>()).setStrPath("/tmp/x"));

    EXPECT_THAT(logger_.lines(),
                ElementsAre("5 cannot delete item [8.1.1]", "8 .Exception: IO [8.1.1.1]",
                            "9 Object: (no description: std::bad_alloc) [8.1.1.2]",
                            "6 Path: /tmp/x [8.1.1.3]"));
}

TEST_F(ExceptionRecordsTest, AnExceptionThatReachesItselfIsWrittenOnce) {
    SVException exception = makeException();
    exception.setCause(exception);

    log(exception);

    EXPECT_EQ(logger_.lines().back(),
              "9 Cause: <IO> cannot delete item { Cause='<IO> cannot delete item { ... }' } "
              "[8.1.1.2]");
}

TEST_F(ExceptionRecordsTest, ADictionaryThatHoldsItselfByWayOfAnObjectComesToAnEnd) {
    SVException exception = makeException();
    exception.setObject(Dictionary{{"again", exception.object()}});

    log(exception);
    exception.setObject(nullptr);  // Nobody else takes the circle apart.

    EXPECT_EQ(logger_.lines()[2], "9 Object: [8.1.1.2]");
    EXPECT_THAT(logger_.lines()[3], StartsWith("9 again: <IO> cannot delete item { Object="));
    EXPECT_THAT(logger_.lines()[3], HasSubstr("<IO> cannot delete item { ... }"));
    EXPECT_EQ(logger_.lines().size(), 4U);
}

TEST_F(ExceptionRecordsTest, AnEnormousDetailIsCut) {
    const std::string enormous(2 * platform::kDescriptionBytesMax, 'a');
    log(makeException().setDetailKey(enormous, "large").setStrPath("/tmp/x"));

    EXPECT_LT(logger_.lines()[3].size(), 2 * platform::kDescriptionBytesMax);
    EXPECT_THAT(logger_.lines(), Contains(HasSubstr("aaa... [8.1.1.")));
    EXPECT_THAT(logger_.lines(), Contains(StartsWith("6 Path: /tmp/x ")));
}

TEST_F(ExceptionRecordsTest, AnEnormousReasonIsCut) {
    log(makeException(std::string(2 * platform::kDescriptionBytesMax, 'a')));

    EXPECT_LT(logger_.lines()[0].size(), 2 * platform::kDescriptionBytesMax);
    EXPECT_THAT(logger_.lines()[0], HasSubstr("aaa... ["));
}

TEST_F(ExceptionRecordsTest, DetailsThatUnfoldWithoutEndAreCutShort) {
    Value value = "x";
    for (int i = 0; i < 60; ++i)
        value = ValueArray{value, value};

    log(makeException().setDetailKey(value, "tree").setDetailKey("never shown", "zebra"));

    EXPECT_LT(logger_.lines().size(), 2 * kRecordLinesMax);
    EXPECT_THAT(logger_.lines(), Contains(StartsWith("7 ... [8.1.1")));
}

TEST_F(ExceptionRecordsTest, DetailsNestedWithoutEndAreWrittenToADepth) {
    Value value = "x";
    for (int i = 0; i < 200; ++i)
        value = ValueArray{value};

    log(makeException().setDetailKey(value, "deep"));

    EXPECT_LE(logger_.lines().size(), kRecordLevelsMax + 2U);
    EXPECT_THAT(logger_.lines().back(), StartsWith("7 [0]: ("));
}

TEST_F(ExceptionRecordsTest, TheNextRecordStartsAnew) {
    log(makeException().setDetailKey(ValueArray(2 * kRecordLinesMax, 1), "many"));
    log(makeException().setStrPath("/tmp/x"));

    EXPECT_THAT(logger_.lines().back(), StartsWith("6 Path: /tmp/x"));
}

// A logger that cannot write.
class BrokenLogger : public TestLogger {
public:
    void logMessage(const std::string&) override { throw std::bad_alloc(); }
};

TEST_F(ExceptionRecordsTest, LoggingAnExceptionThrowsNothing) {
    BrokenLogger logger;

    const auto head =
        logger.logMapInLineException(LogClassification::Failure, nullptr, line_, raised());

    EXPECT_NE(head, nullptr);
}

TEST_F(ExceptionRecordsTest, OnAConsoleOnlyWhatItShowsIsPutTogether) {
    class Console : public NSLogLogger {
    public:
        void logMessage(const std::string& text) override { lines.emplace_back(text); }
        std::vector<std::string> lines;
    } console;

    console.logMapInLineException(LogClassification::Failure,
                                  &SVException::userInfoLogClassifications(), line_,
                                  raised().setStrPath("/tmp/x").setAPI("unlink"));

    EXPECT_THAT(console.lines,
                ElementsAre("(Failure) cannot delete item", "(Minutia) Path: /tmp/x"));
}

// The entry points, through the default logger. Lines without their identifiers, for the root line
// is the whole process's.
class ExceptionEntryPointsTest : public ::testing::Test {
protected:
    std::vector<std::string> messages() const {
        std::vector<std::string> result = logger_->lines();
        for (std::string& line : result)
            line.resize(line.rfind(" ["));
        return result;
    }

    const std::shared_ptr<TestLogger> logger_ = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed_{logger_};
    const LogLineIdentifierPtr line_ = LogLineIdentifier::logLineIdentifierFromString("8.1");
};

TEST_F(ExceptionEntryPointsTest, DetailsAreLoggedByTheTable) {
    Logger::logException(makeException().setStrPath("/tmp/x"));
    Logger::logException(LogClassification::Curious, makeException().setAPI("unlink"));

    EXPECT_THAT(messages(),
                ElementsAre("5 cannot delete item", "8 .Exception: IO", "6 Path: /tmp/x",
                            "2 cannot delete item", "8 .Exception: IO", "9 API: unlink"));
}

TEST_F(ExceptionEntryPointsTest, ALineMayBeGiven) {
    const auto head =
        Logger::logInLineException(LogClassification::Caution, line_, makeException());

    EXPECT_EQ(head->description(), "8.1.1");
    EXPECT_EQ(logger_->lines()[0], "3 cannot delete item [8.1.1]");
}

TEST_F(ExceptionEntryPointsTest, TheSameExceptionIsLoggedOnceAsANewOne) {
    const SVException exception = makeException();

    EXPECT_NE(Logger::logNewException(exception), nullptr);
    EXPECT_EQ(Logger::logNewException(exception), nullptr);
    EXPECT_EQ(Logger::logNewException(LogClassification::Warning, exception), nullptr);
    EXPECT_NE(Logger::logNewException(LogClassification::Warning, makeException()), nullptr);

    EXPECT_THAT(messages(), ElementsAre("5 cannot delete item", "8 .Exception: IO",
                                        "4 cannot delete item", "8 .Exception: IO"));
}

TEST_F(ExceptionEntryPointsTest, AMessageHasItsExceptionBelow) {
    const SVException exception = makeException();
    const auto head = Logger::logInLineMessageExceptionDetails(LogClassification::Warning, line_,
                                                               "trying again", &exception);

    EXPECT_EQ(head->description(), "8.1.1");
    EXPECT_THAT(logger_->lines(),
                ElementsAre("4 trying again [8.1.1]", "7 cannot delete item [8.1.1.1]",
                            "8 .Exception: IO [8.1.1.1.1]"));
}

TEST_F(ExceptionEntryPointsTest, AMessageWithoutAnExceptionIsAlone) {
    Logger::logInLineMessageExceptionDetails(LogClassification::Warning, line_, "trying again",
                                             nullptr);

    EXPECT_THAT(messages(), ElementsAre("4 trying again"));
}

TEST_F(ExceptionEntryPointsTest, AnErrorIsLoggedAsAGeneralProblem) {
    const auto error = NSError::errorWithDomainCodeUserInfo(
        "test", 7, Dictionary{{platform::NSLocalizedDescriptionKey, "It is full."}});

    Logger::logMessageError(LogClassification::Warning, "cannot save", error);

    EXPECT_THAT(messages(),
                ElementsAre("4 cannot save", "7 general problem", "8 .Exception: IO",
                            "8 .Error: " + error->description(), "7 Description: It is full."));
}

TEST_F(ExceptionEntryPointsTest, WithoutAMessageTheErrorSpeaks) {
    Logger::logDebugError(NSError::errorWithDomainCodeUserInfo("test", 7));
    Logger::logMessageError(LogClassification::Failure, std::nullopt, nullptr);

    EXPECT_EQ(messages()[0], "9 test error 7");
    EXPECT_EQ(messages()[5], "5 Unexpected error");
    EXPECT_EQ(messages()[6], "7 general problem");
}

TEST_F(ExceptionEntryPointsTest, FailuresAreGroupedByTheirReason) {
    const auto record = [&](std::string_view reason) {
        const SVException exception = makeException(reason);
        return Logger::logInLinePlaceholderForKeyByException(LogClassification::Warning, line_,
                                                             "some failed", "grouped", &exception);
    };

    const auto first = record("one");
    const auto again = record("one");
    const auto other = record("two");

    EXPECT_EQ(first, again);
    EXPECT_NE(first, other);
    EXPECT_EQ(Logger::logLineForKey("groupedone"), first);
    EXPECT_THAT(messages(),
                ElementsAre("4 some failed", "0 one", "9 one", "8 .Exception: IO", "9 one",
                            "8 .Exception: IO", "0 two", "9 two", "8 .Exception: IO"));
}

TEST_F(ExceptionEntryPointsTest, TheHeadingOfAReasonIsTheReasonAsItIs) {
    const auto record = [&](const NSException& exception) {
        return Logger::logInLinePlaceholderForKeyByException(LogClassification::Warning, line_,
                                                             "some failed", "as it is", &exception);
    };

    const auto broken = record(makeException("one\ttwo"));
    const auto absent = record(NSException::exceptionWithNameReasonUserInfo("IO", std::nullopt));

    EXPECT_EQ(Logger::logLineForKey("as it isone\ttwo"), broken);
    EXPECT_EQ(Logger::logLineForKey("as it is(null)"), absent);
    EXPECT_THAT(messages(),
                ElementsAre("4 some failed", "0 one\ttwo", "9 one?two", "8 .Exception: IO",
                            "0 (null)", "9 (null)", "8 .Exception: IO"));
}

TEST_F(ExceptionEntryPointsTest, WithoutAnExceptionThereIsOnlyTheHeading) {
    const auto heading = Logger::logInLinePlaceholderForKeyByException(
        LogClassification::Warning, line_, "some failed", "heading only", nullptr);

    EXPECT_EQ(heading, Logger::logLineForKey("heading only"));
    EXPECT_THAT(messages(), ElementsAre("4 some failed"));
}

TEST_F(ExceptionEntryPointsTest, TheSixtyFirstFailureWithTheSameReasonIsNotWritten) {
    LogLineIdentifierPtr reasonLine;
    const SVException exception = makeException("flood");
    for (int i = 0; i < 70; ++i) {
        reasonLine = Logger::logInLinePlaceholderForKeyByException(
            LogClassification::Warning, line_, "some failed", "flooded", &exception);
    }

    EXPECT_EQ(reasonLine->count(), 60U);
    EXPECT_EQ(messages().size(), 2U + 60 * 2);
}

TEST_F(ExceptionEntryPointsTest, AStackTraceIsLabelled) {
    LogStackTrace("volumeRelativePath");

    EXPECT_THAT(messages()[0], "9 stack trace: volumeRelativePath");
    EXPECT_THAT(messages()[1], "8 .Exception: NSGenericException");
    EXPECT_THAT(messages()[2], StartsWith("9 backtrace "));
    EXPECT_GT(messages().size(), 3U);
}

}  // namespace
}  // namespace sevrin
