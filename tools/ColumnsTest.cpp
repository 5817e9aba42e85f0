// Which columns are printed, and how they line up.
#include "tools/Columns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/Failure.h"

namespace sevrin {
namespace {

using testing::HasSubstr;

Columns columns(const std::string& wanted = "") {
    return Columns({{"id", true, 4}, {"pid", false}, {"user", true, 6}}, wanted);
}

TEST(ColumnsTest, WithoutAWishTheDefaultOnesArePrinted) {
    EXPECT_EQ(columns().line({"a", "1", "root"}), "a     root\n");
}

TEST(ColumnsTest, TheWishSaysWhichOnesInWhichOrder) {
    EXPECT_EQ(columns("user,pid,user").line({"a", "1", "root"}), "root    1  root\n");
}

TEST(ColumnsTest, CellsOfColumnsThatAreNotPrintedMayBeLeftOut) {
    const Columns some = columns("user");

    EXPECT_FALSE(some.isChosen(0));
    EXPECT_TRUE(some.isChosen(2));
    EXPECT_EQ(some.chosenCount(), 1u);
    EXPECT_EQ(some.line({"", "", "root"}), "root\n");
}

TEST(ColumnsTest, TheHeaderNamesTheChosenOnesInUpperCase) {
    EXPECT_EQ(columns("pid,id").header(), "PID  ID\n");
}

TEST(ColumnsTest, TheLastOneIsNotPadded) {
    EXPECT_EQ(columns("id").line({"a", "1", "root"}), "a\n");
}

TEST(ColumnsTest, LongCellsPushTheRestOfTheirLineAside) {
    EXPECT_EQ(columns().line({"a long id", "1", "root"}), "a long id  root\n");
}

TEST(ColumnsTest, FittingWidensForARowAndForTheNames) {
    Columns fitted = columns("id,pid,user");

    fitted.fit({"\u00e4\u00e4\u00e4\u00e4\u00e4", "1", "root"});

    EXPECT_EQ(fitted.header(), "ID     PID  USER\n");
    EXPECT_EQ(fitted.line({"a", "1", "root"}), "a      1    root\n");
}

TEST(ColumnsTest, ACellCannotBreakItsLine) {
    EXPECT_EQ(columns("id").line({"a\nb", "", ""}), "a\\u000ab\n");
}

TEST(ColumnsTest, AnUnknownNameIsAUsageErrorThatTellsTheKnownOnes) {
    try {
        const Columns refused = columns("id,pd");
        FAIL() << "accepted: " << refused.header();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.status, ExitStatus::Usage);
        EXPECT_THAT(failure.reason, HasSubstr("'pd'"));
        EXPECT_EQ(failure.advice, "id,pid,user");
    }
}

TEST(ColumnsTest, NamesAreLowerCaseAndNotEmpty) {
    EXPECT_THROW(columns("PID"), Failure);
    EXPECT_THROW(columns("id,,pid"), Failure);
    EXPECT_THROW(columns(","), Failure);
}

}  // namespace
}  // namespace sevrin
