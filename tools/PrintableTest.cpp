// What words of others look like once they are fit for a terminal.
#include "tools/Printable.h"

#include <gtest/gtest.h>

namespace sevrin {
namespace {

TEST(PrintableTest, OrdinaryTextStaysAsItIs) {
    EXPECT_EQ(printable("com.example.clock \u00e4\u20ac\U0001f600\\"),
              "com.example.clock \u00e4\u20ac\U0001f600\\");
}

TEST(PrintableTest, NothingCanMoveTheCursorOrBeginALine) {
    EXPECT_EQ(printable("a\x1b[2Jb\r\n\tc"), "a\\u001b[2Jb\\u000d\\u000a\\u0009c");
    EXPECT_EQ(printable("\u0085\u009b"), "\\u0085\\u009b");
    EXPECT_EQ(printable(std::string_view("\0", 1)), "\\u0000");
}

TEST(PrintableTest, NothingCanReorderWhatStandsBesideIt) {
    EXPECT_EQ(printable("\u202egnp\u2066"), "\\u202egnp\\u2066");
    EXPECT_EQ(printable("\U000e0001"), "\\U000e0001");
}

TEST(PrintableTest, StrayBytesShowTheirNumbers) {
    EXPECT_EQ(printable("a\xff\xc3z"), "a\\xff\\xc3z");
}

TEST(PrintableTest, ColumnsCountCharactersAndNotBytes) {
    EXPECT_EQ(columnsOf(""), 0u);
    EXPECT_EQ(columnsOf("\u00e4\u20ac"), 2u);
}

}  // namespace
}  // namespace sevrin
