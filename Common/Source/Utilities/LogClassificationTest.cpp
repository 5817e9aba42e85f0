// Tests of the table of classifications.
#include "Common/Source/Utilities/LogClassification.h"

#include <gtest/gtest.h>

namespace sevrin {
namespace {

TEST(LogClassificationTest, EachNumberHasItsWord) {
    const char* const words[] = {"       ", "-------", "Curious", "Caution", "Warning",
                                 "Failure", "Minutia", "Details", "Subrosa", "#debug#"};

    for (int number = 0; number < kLogClassificationCount; ++number) {
        EXPECT_EQ(nameOfClassification(LogClassification{number}), words[number]);
    }
}

TEST(LogClassificationTest, EveryWordHasSevenCharacters) {
    for (int number = 0; number < kLogClassificationCount; ++number) {
        EXPECT_EQ(nameOfClassification(LogClassification{number}).size(), 7U) << number;
    }
}

TEST(LogClassificationTest, EveryWordNamesItsNumber) {
    for (int number = 0; number < kLogClassificationCount; ++number) {
        const LogClassification classification{number};
        EXPECT_EQ(classificationFromName(nameOfClassification(classification)), classification);
    }
}

TEST(LogClassificationTest, AWordInAnotherCaseOrWithoutItsBlanksIsUnknown) {
    EXPECT_EQ(classificationFromName("details"), LogClassification{-1});
    EXPECT_EQ(classificationFromName("Details "), LogClassification{-1});
    EXPECT_EQ(classificationFromName("      "), LogClassification{-1});
    EXPECT_EQ(classificationFromName(""), LogClassification{-1});
}

TEST(LogClassificationTest, ANumberOutsideTheTableReadsNoForeignMemory) {
    for (const int number : {-2'147'483'647 - 1, -1, 10, 15, 16, 2'147'483'647}) {
        EXPECT_EQ(nameOfClassification(LogClassification{number}).size(), 7U) << number;
    }
}

}  // namespace
}  // namespace sevrin
