// Time spans as the command line writes them, and as people read them.
#include "tools/Duration.h"

#include <gtest/gtest.h>

#include "client/Deadline.h"

namespace sevrin {
namespace {

using namespace std::chrono_literals;

struct Spelling {
    const char* text;
    std::chrono::microseconds span;
};

class DurationSpellingTest : public testing::TestWithParam<Spelling> {};

TEST_P(DurationSpellingTest, MeansItsSpan) {
    EXPECT_EQ(durationFromText(GetParam().text), GetParam().span);
}

INSTANTIATE_TEST_SUITE_P(All, DurationSpellingTest,
                         testing::Values(Spelling{"500ms", 500ms}, Spelling{"30s", 30s},
                                         Spelling{"2m", 2min}, Spelling{"7", 7s}, Spelling{"0", 0s},
                                         Spelling{"0.25", 250ms}, Spelling{"1.5m", 90s},
                                         Spelling{".5s", 500ms}, Spelling{"0.0001ms", 1us}));

class NoDurationTest : public testing::TestWithParam<const char*> {};

TEST_P(NoDurationTest, IsRefused) {
    EXPECT_EQ(durationFromText(GetParam()), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(All, NoDurationTest,
                         testing::Values("", "s", "ms", ".", "-1", "+1", "1h", "1 s", " 1", "1e3",
                                         "1.2.3", "0x10", "inf", "nan", "1sm", "S", "1,5s"));

TEST(DurationTest, SpansBeyondACenturyAreACentury) {
    constexpr std::chrono::microseconds kMost = Deadline::kSpanMax;

    EXPECT_EQ(durationFromText("99999999999999999999999"), kMost);
    EXPECT_EQ(durationFromText(std::string(400, '9') + "m"), kMost);
    EXPECT_EQ(durationFromText("876000000"), 876'000'000s);
}

TEST(DurationTest, TimesAreShownInMillisecondsToTheMicrosecond) {
    EXPECT_EQ(millisecondsText(85'400ns), "0.085 ms");
    EXPECT_EQ(millisecondsText(12s), "12000.000 ms");
}

}  // namespace
}  // namespace sevrin
