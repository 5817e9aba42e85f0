// Tests of where the standard folders are.
#include "Platform/SearchPath.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/TestPlaces.h"

namespace sevrin::platform {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(SearchPathTest, TheUsersFoldersLieInTheHomeFolder) {
    const TestPlaces places;

    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(5, 1, true),
                ElementsAre(places.home() + "/Library"));
    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(14, 1, true),
                ElementsAre(places.home() + "/Library/Application Support"));
    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(1, 1, true),
                ElementsAre(places.home() + "/Applications"));
}

TEST(SearchPathTest, TheMachinesFoldersLieUnderItsRoot) {
    const TestPlaces places;

    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(5, 2, true),
                ElementsAre(places.machine() + "/Library"));
    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(14, 2, true),
                ElementsAre(places.machine() + "/Library/Application Support"));
    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(1, 2, true),
                ElementsAre(places.machine() + "/Applications"));
}

TEST(SearchPathTest, TheTildeStaysWhenItIsNotToBeExpanded) {
    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(5, 1, false), ElementsAre("~/Library"));
}

TEST(SearchPathTest, OfSeveralDomainsTheUsersComesFirst) {
    const TestPlaces places;

    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(5, 3, false),
                ElementsAre("~/Library", places.machine() + "/Library"));
}

TEST(SearchPathTest, OtherNumbersNameNothing) {
    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(2, 1, true), IsEmpty());
    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(5, 4, true), IsEmpty());
    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(5, 0, true), IsEmpty());
}

TEST(SearchPathTest, WithoutTheVariableTheMachinesRootIsThatOfTheFileSystem) {
    const ScopedVariable unset("SEVRIN_LOCAL_ROOT", std::nullopt);

    EXPECT_EQ(localRoot(), "");
    EXPECT_THAT(NSSearchPathForDirectoriesInDomains(5, 2, true), ElementsAre("/Library"));
}

TEST(SearchPathTest, ARelativeRootIsAsNone) {
    const ScopedVariable relative("SEVRIN_LOCAL_ROOT", "somewhere");

    EXPECT_EQ(localRoot(), "");
}

TEST(SearchPathTest, SeparatorsAtTheEndOfTheRootDoNotCount) {
    const ScopedVariable root("SEVRIN_LOCAL_ROOT", "/srv/root//");

    EXPECT_EQ(localRoot(), "/srv/root");
}

}  // namespace
}  // namespace sevrin::platform
