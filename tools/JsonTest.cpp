// What values, names and times are in JSON.
#include "tools/Json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "Platform/TestTimeZone.h"

namespace sevrin {
namespace {

using platform::Data;
using platform::Dictionary;
using platform::NSDate;
using platform::Value;
using platform::ValueArray;

std::string jsonText(const Value& value) {
    return lineOf(jsonOf(value));
}

TEST(JsonTest, EveryRecordBeginsWithItsVersion) {
    Json record = newRecord();
    addText(record, "id", "a");

    EXPECT_EQ(lineOf(record), R"({"v":1,"id":"a"})");
}

TEST(JsonTest, ValuesKeepTheirKinds) {
    EXPECT_EQ(jsonText(nullptr), "null");
    EXPECT_EQ(jsonText(true), "true");
    EXPECT_EQ(jsonText(1), "1");
    EXPECT_EQ(jsonText(1.0), "1.0");
    EXPECT_EQ(jsonText("a\"b"), R"("a\"b")");
    EXPECT_EQ(jsonText(ValueArray{1, "b"}), R"([1,"b"])");
    EXPECT_EQ(jsonText(Dictionary{{"k", Dictionary{}}}), R"({"k":{}})");
}

TEST(JsonTest, IntegersBeyondWhatADoubleHoldsAreStrings) {
    EXPECT_EQ(jsonText(9007199254740992), "9007199254740992");
    EXPECT_EQ(jsonText(9007199254740993), R"("9007199254740993")");
    EXPECT_EQ(jsonText(-9007199254740992), "-9007199254740992");
    EXPECT_EQ(jsonText(-9007199254740993), R"("-9007199254740993")");
    EXPECT_EQ(jsonText(std::numeric_limits<std::uint64_t>::max()), R"("18446744073709551615")");
}

TEST(JsonTest, RealsThatAreNoNumbersAreNamed) {
    EXPECT_EQ(jsonText(std::nan("")), R"("nan")");
    EXPECT_EQ(jsonText(HUGE_VAL), R"("inf")");
    EXPECT_EQ(jsonText(-HUGE_VAL), R"("-inf")");
}

TEST(JsonTest, DataIsBase64) {
    EXPECT_EQ(jsonText(Data{""}), R"("")");
    EXPECT_EQ(jsonText(Data{"f"}), R"("Zg==")");
    EXPECT_EQ(jsonText(Data{"fo"}), R"("Zm8=")");
    EXPECT_EQ(jsonText(Data{"foo"}), R"("Zm9v")");
    EXPECT_EQ(jsonText(Data{"\xff\xfe\xfd\xfc"}), R"("//79/A==")");
}

TEST(JsonTest, DatesAreLocalTimeWithTheirOffset) {
    const platform::ScopedTimeZone zone("IST-5:30");

    EXPECT_EQ(jsonText(NSDate::dateWithTimeIntervalSince1970(1'700'000'000.25)),
              R"("2023-11-15T03:43:20.250+05:30")");
}

TEST(JsonTest, ANameThatIsNotUtf8AppearsAsTextAndAsBytes) {
    Json record;
    addText(record, "id", "a\xff");

    EXPECT_EQ(lineOf(record), "{\"id\":\"a\ufffd\",\"id_bytes\":\"Yf8=\"}");
}

TEST(JsonTest, AnObjectReadAndWrittenIsTheSame) {
    const std::string text = R"({"a":[1,-2,2.5,"s",true],"b":{"c":{}}})";

    EXPECT_EQ(jsonText(valueOf(Json::parse(text))), text);
}

TEST(JsonTest, NumbersThatAreReadKeepTheirKind) {
    EXPECT_EQ(valueOf(Json::parse("18446744073709551615")),
              Value(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(valueOf(Json::parse("-5")), Value(-5));
    EXPECT_EQ(valueOf(Json::parse("5.0")), Value(5.0));
}

TEST(JsonTest, NullIsNoValueThatCanBeSent) {
    EXPECT_THROW((void)valueOf(Json::parse(R"({"a":[null]})")), std::invalid_argument);
}

}  // namespace
}  // namespace sevrin
