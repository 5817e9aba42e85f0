// All that is told about one thing, as lines and as JSON.
#include "tools/FactSheet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace sevrin {
namespace {

using testing::ElementsAre;

TEST(FactSheetTest, EveryFactIsALineAndAMember) {
    FactSheet sheet;
    sheet.addText("name", "a");
    sheet.addBoolean("is_there", true);
    sheet.addNumber("size", 5);
    sheet.addNothing("target");

    EXPECT_EQ(sheet.text(), "name      a\nis there  yes\nsize      5\ntarget    -\n");
    EXPECT_EQ(lineOf(sheet.record()),
              R"({"v":1,"name":"a","is_there":true,"size":5,"target":null})");
}

TEST(FactSheetTest, TextOfOthersStaysOnItsLineAndItsBytesAreKept) {
    FactSheet sheet;
    sheet.addText("name", "a\n\xff");
    sheet.addText("none", "");

    EXPECT_EQ(sheet.text(), "name  a\\u000a\\xff\nnone\n");
    EXPECT_EQ(sheet.record()["name"], "a\n\ufffd");
    EXPECT_EQ(sheet.record()["name_bytes"], "YQr/");
}

TEST(FactSheetTest, NumbersThatReadersWouldRoundAreStringsInJson) {
    FactSheet sheet;
    sheet.addNumber("small", std::uint64_t{1} << 53);
    sheet.addNumber("large", std::numeric_limits<std::uint64_t>::max());
    sheet.addNumber("none", nullptr);

    EXPECT_EQ(sheet.record()["small"], 9007199254740992);
    EXPECT_EQ(sheet.record()["large"], "18446744073709551615");
    EXPECT_EQ(sheet.record()["none"], nullptr);
    EXPECT_EQ(sheet.text(), "small  9007199254740992\nlarge  18446744073709551615\nnone   -\n");
}

TEST(FactSheetTest, ListsAreOneLineOrALineForEachEntry) {
    FactSheet sheet;
    sheet.addList("flags", {"a", "b"});
    sheet.addLines("acl", {"user::rw-", "other::---"});
    sheet.addList("empty", {});
    sheet.addLines("none", {});

    EXPECT_EQ(sheet.text(),
              "flags  a, b\nacl    user::rw-\n       other::---\nempty  -\nnone   -\n");
    EXPECT_EQ(lineOf(sheet.record()),
              R"({"v":1,"flags":["a","b"],"acl":["user::rw-","other::---"],"empty":[],"none":[]})");
}

TEST(FactSheetTest, ChoicesThatDoNotHoldAreInJsonOnly) {
    FactSheet sheet;
    sheet.addChoices("flags", {{"local", true}, {"exec", false}, {"suid", true}});

    EXPECT_EQ(sheet.text(), "flags  local, suid\n");
    EXPECT_EQ(lineOf(sheet.record()), R"({"v":1,"flags":{"local":true,"exec":false,"suid":true}})");
}

TEST(FactSheetTest, ATimeThatIsNotKeptIsNotThere) {
    FactSheet sheet;
    sheet.addTime("created", {});

    EXPECT_EQ(sheet.record()["created"], nullptr);
    EXPECT_THAT(sheet.cells(), ElementsAre("-"));
}

TEST(FactSheetTest, FactsAreColumnsOfATableToo) {
    FactSheet sheet;
    sheet.addText("name", "a");
    sheet.addLines("acl", {"user::rw-", "other::---"});

    const Columns columns(sheet.columns(), "acl,name");

    EXPECT_EQ(columns.line(sheet.cells()), "user::rw-, other::---  a\n");
}

}  // namespace
}  // namespace sevrin
