// Tests of locations: their paths, what lies in them, making their folders.
#include "Common/Source/Utilities/SVPath.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/SVStandardPath.h"
#include "Common/Source/Utilities/SVSubPath.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/NSFileManager.h"
#include "Platform/TestPlaces.h"

namespace sevrin {
namespace {

using platform::Dictionary;
using platform::TestPlaces;
using platform::Value;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

mode_t modeOf(const std::string& path) {
    struct stat found {};
    return ::stat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : 0;
}

Dictionary permissions(int mode) {
    return {{platform::NSFilePosixPermissions, mode}};
}

class SVPathTest : public testing::Test {
protected:
    SVPathPtr library() const { return SVPath::userLibraryPath(); }

    // Fails the creation and gives the exception's "Folder".
    static Value folderOfFailure(SVPath& location) {
        try {
            location.create();
        } catch (const SVException& exception) {
            EXPECT_EQ(exception.name(), "IO");
            EXPECT_EQ(exception.reason(), "Cannot create support folder");
            const Value* const folder = exception.details().find("Folder");
            return folder ? *folder : Value();
        }
        ADD_FAILURE() << "nothing was raised";
        return {};
    }

    const TestPlaces places_;
    const std::shared_ptr<TestLogger> logger_ = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed_{logger_};
};

TEST_F(SVPathTest, ALocationByItselfNamesNoFolder) {
    const SVPathPtr nowhere = SVPath::initWithAttributes(permissions(0700));

    EXPECT_EQ(nowhere->path(), std::nullopt);
    EXPECT_EQ(nowhere->url(), nullptr);
    EXPECT_EQ(nowhere->urlToFile("f"), nullptr);
    EXPECT_EQ(nowhere->pathToFile("f"), std::nullopt);
    EXPECT_FALSE(nowhere->exists());
    EXPECT_FALSE(nowhere->containsFile("f"));
    EXPECT_EQ(nowhere->createAttributes(), permissions(0700));
}

TEST_F(SVPathTest, AStandardLocationIsLookedUp) {
    const auto location = SVStandardPath::initWithStandardDirectory(5);

    EXPECT_EQ(location->path(), places_.home() + "/Library");
    EXPECT_EQ(location->standardDirectory(), 5U);
    EXPECT_EQ(location->domainMask(), 1U);
    EXPECT_EQ(location->createAttributes(), std::nullopt);
}

TEST_F(SVPathTest, AnUnknownDirectoryHasNoPath) {
    EXPECT_EQ(SVStandardPath::initWithStandardDirectory(99)->path(), std::nullopt);
}

TEST_F(SVPathTest, ASubfolderLiesInItsEnclosingLocation) {
    const auto location = SVSubPath::initWithNameInPath("Sub", library());

    EXPECT_EQ(location->path(), places_.home() + "/Library/Sub");
    EXPECT_EQ(location->folderName(), "Sub");
    EXPECT_EQ(location->createAttributes(), std::nullopt);
}

TEST_F(SVPathTest, ASubfolderOfNowhereIsNowhere) {
    const auto location =
        SVSubPath::initWithNameInPath("Sub", SVPath::initWithAttributes(std::nullopt));

    EXPECT_EQ(location->path(), std::nullopt);
}

TEST_F(SVPathTest, ThePathIsWorkedOutOnce) {
    const SVPathPtr location = library();
    const auto before = location->path();
    const platform::ScopedVariable elsewhere("CFFIXED_USER_HOME", "/elsewhere");

    EXPECT_EQ(location->path(), before);
    EXPECT_EQ(SVPath::userLibraryPath()->path(), "/elsewhere/Library");
}

TEST_F(SVPathTest, FilesAndUrlsLieInTheFolder) {
    const SVPathPtr location = library();

    EXPECT_EQ(location->pathToFile("a b"), places_.home() + "/Library/a b");
    EXPECT_EQ(location->urlToFile("a b")->path(), places_.home() + "/Library/a b");
    EXPECT_EQ(location->url()->path(), places_.home() + "/Library");
}

TEST_F(SVPathTest, TheFolderIsAnItemOnceItIsThere) {
    const SVPathPtr location = library();
    EXPECT_EQ(location->directory(), nullptr);
    EXPECT_EQ(location->infoForFile("file"), nullptr);

    std::filesystem::create_directory(places_.home() + "/Library");
    std::ofstream(places_.home() + "/Library/file") << "";

    ASSERT_NE(location->directory(), nullptr);
    EXPECT_EQ(location->directory(), location->directory());
    EXPECT_EQ(location->directory()->path(), places_.home() + "/Library");
    EXPECT_EQ(location->url(), location->directory()->url());
    ASSERT_NE(location->infoForFile("file"), nullptr);
    EXPECT_TRUE(location->infoForFile("file")->isRegularFile());
    EXPECT_FALSE(location->infoForFile("missing")->exists());
}

TEST_F(SVPathTest, OnlyAFolderExistsAsALocation) {
    std::filesystem::create_directory(places_.home() + "/real");
    std::ofstream(places_.home() + "/Library") << "a file";
    EXPECT_FALSE(library()->exists());

    std::filesystem::remove(places_.home() + "/Library");
    EXPECT_FALSE(library()->exists());

    std::filesystem::create_directory_symlink("real", places_.home() + "/Library");
    EXPECT_TRUE(library()->exists());
}

TEST_F(SVPathTest, ItContainsWhatIsThereLinksFollowed) {
    std::filesystem::create_directory(places_.home() + "/Library");
    std::ofstream(places_.home() + "/Library/file") << "";
    std::filesystem::create_symlink("nothing", places_.home() + "/Library/dangling");

    EXPECT_TRUE(library()->containsFile("file"));
    EXPECT_FALSE(library()->containsFile("missing"));
    EXPECT_FALSE(library()->containsFile("dangling"));
}

TEST_F(SVPathTest, CreatingWhatExistsDoesAndSaysNothing) {
    std::filesystem::create_directory(places_.home() + "/Library");

    library()->create();

    EXPECT_THAT(logger_->lines(), IsEmpty());
}

TEST_F(SVPathTest, CreatedFoldersAreLogged) {
    library()->create();

    EXPECT_TRUE(std::filesystem::is_directory(places_.home() + "/Library"));
    EXPECT_THAT(logger_->lines(),
                ElementsAre(StartsWith("6 Created folder " + places_.home() + "/Library [")));
}

TEST_F(SVPathTest, BothLevelsAreCreatedTheOuterFirstEachWithItsOwnAttributes) {
    const auto outer =
        SVSubPath::initWithNameInPathWithAttributes("Outer", library(), permissions(0750));
    const auto inner =
        SVSubPath::initWithNameInPathWithAttributes("Inner", outer, permissions(0700));
    std::filesystem::create_directory(places_.home() + "/Library");

    inner->create();

    EXPECT_EQ(modeOf(places_.home() + "/Library/Outer"), 0750U);
    EXPECT_EQ(modeOf(places_.home() + "/Library/Outer/Inner"), 0700U);
    EXPECT_THAT(logger_->lines(), ElementsAre(HasSubstr("Created folder " + *outer->path() + " "),
                                              HasSubstr("Created folder " + *inner->path() + " ")));
}

TEST_F(SVPathTest, AttributesMayBeChangedBeforeTheFolderIsMade) {
    const auto location = library();
    location->setCreateAttributes(permissions(0711));

    location->create();

    EXPECT_EQ(modeOf(*location->path()), 0711U);
}

TEST_F(SVPathTest, AFileInTheWayIsDescribedAndRaised) {
    std::ofstream(places_.home() + "/Library") << "a file";

    const Value folder = folderOfFailure(*library());

    EXPECT_EQ(folder, Value(places_.home() + "/Library"));
    const auto lines = logger_->lines();
    EXPECT_THAT(lines[0], StartsWith("5 Cannot create support folder ["));
    EXPECT_THAT(lines, Contains(AllOf(StartsWith("7 Folder: "), HasSubstr("/Library"))));
    EXPECT_THAT(
        lines,
        Contains(StartsWith("0 Item already exists; probably a file where a folder should be [")));
    EXPECT_THAT(lines, Contains(StartsWith("7 NSFileType: NSFileTypeRegular [")));
}

TEST_F(SVPathTest, TheEnclosingFolderIsDescribedWhenNothingIsInTheWay) {
    const TestPlaces& places = places_;
    const platform::ScopedVariable missing("CFFIXED_USER_HOME", places.home() + "/missing");

    const Value folder = folderOfFailure(*library());

    EXPECT_EQ(folder, Value(places.home() + "/missing/Library"));
    const auto lines = logger_->lines();
    EXPECT_THAT(lines, Contains(AllOf(StartsWith("7 Enclosing folder: "),
                                      HasSubstr(places.home() + "/missing"))));
    EXPECT_THAT(lines, Contains(StartsWith("5 Enclosing folder does not exist [")));
}

TEST_F(SVPathTest, AnEnclosingFolderThatRefusesIsDescribed) {
    if (::access("/proc", F_OK) != 0) GTEST_SKIP() << "needs /proc, where nothing can be made";
    const platform::ScopedVariable refusing("CFFIXED_USER_HOME", "/proc");

    EXPECT_EQ(folderOfFailure(*library()), Value("/proc/Library"));

    EXPECT_THAT(logger_->lines(), Contains(StartsWith("7 Enclosing folder: ")));
    EXPECT_THAT(logger_->lines(), Contains(StartsWith("7 NSFileType: NSFileTypeDirectory [")));
}

TEST_F(SVPathTest, AFolderThatCannotHaveItsAttributesIsNotLeftBehind) {
    const auto location = library();
    location->setCreateAttributes(Dictionary{{platform::NSFileOwnerAccountName, "no such user"}});

    folderOfFailure(*location);

    EXPECT_FALSE(std::filesystem::exists(*location->path()));
}

TEST_F(SVPathTest, TheDescriptionShowsClassIdentityAndPath) {
    const auto location = SVSubPath::initWithNameInPath("Sub", library());

    EXPECT_THAT(
        location->description(),
        MatchesRegex("SVSubPath\\.0x[0-9a-f]+ \\{ path=" + places_.home() + "/Library/Sub \\}"));
    EXPECT_THAT(SVPath::initWithAttributes(std::nullopt)->description(),
                MatchesRegex("SVPath\\.0x[0-9a-f]+ \\{ path=\\(null\\) \\}"));
}

TEST_F(SVPathTest, AnAbsurdDepthTakesNoStack) {
    SVPathPtr location = SVPath::initWithAttributes(std::nullopt);
    for (int depth = 0; depth < 200'000; ++depth)
        location = SVSubPath::initWithNameInPath("a", location);

    EXPECT_EQ(location->path(), std::nullopt);
    location.reset();
}

}  // namespace
}  // namespace sevrin
