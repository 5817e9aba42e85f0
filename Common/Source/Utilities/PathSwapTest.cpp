// Tests of exchanging two items, by each of the ways.
#include "Common/Source/Utilities/PathSwap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTSubPath.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/TestFolder.h"

namespace sevrin {
namespace {

using platform::TestFolder;
using platform::Value;

class PathSwapTest : public testing::Test {
protected:
    PathSwapTest() {
        folder_.write("a", "a");
        folder_.write("b", "b");
    }

    // Ways without any volume's own: renames that are counted, and the given one of which fails.
    SwapMethods renames(int failing = 0) {
        SwapMethods methods;
        methods.rename = [this, failing](const char* from, const char* to) {
            if (++renamesMade_ == failing) {
                errno = EIO;
                return -1;
            }
            return std::rename(from, to);
        };
        methods.randomNumber = [this] { return random_++; };
        return methods;
    }

    static SwapMethods::Call failingWith(int error) {
        return [error](const char*, const char*) {
            errno = error;
            return -1;
        };
    }

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
            found.push_back(entry.path().filename());
        std::sort(found.begin(), found.end());
        return found;
    }

    void expectFailure(const SwapMethods& methods) {
        try {
            swapItems(*a_, *b_, methods);
            ADD_FAILURE() << "nothing was raised";
        } catch (const SVException& exception) {
            EXPECT_EQ(exception.name(), "IO");
            EXPECT_EQ(exception.reason(), "cannot exchange files");
            EXPECT_EQ(*exception.details().find("POSIXErr"), Value(EIO));
            EXPECT_EQ(*exception.details().find("API"), Value("rename"));
            EXPECT_EQ(*exception.details().find("Path"), Value(folder_ / "a"));
            EXPECT_EQ(*exception.details().find("with"), Value(folder_ / "b"));
        }
    }

    void expectSwapped() const {
        EXPECT_EQ(folder_.read("a"), "b");
        EXPECT_EQ(folder_.read("b"), "a");
        EXPECT_EQ(names(), (std::vector<std::string>{"a", "b"}));
    }

    const TestFolder folder_;
    const KTPathPtr a_ = KTPath::pathWithPath(folder_ / "a");
    const KTPathPtr b_ = KTPath::pathWithPath(folder_ / "b");
    const std::shared_ptr<TestLogger> logger_ = std::make_shared<TestLogger>();
    const ScopedDefaultLogger scope_{logger_};
    int renamesMade_ = 0;
    std::uint32_t random_ = 0x12ab;
};

TEST_F(PathSwapTest, ItemsChangePlacesOnARealVolumeAndNothingIsLogged) {
    a_->swapWith(*b_);

    expectSwapped();
    EXPECT_TRUE(logger_->lines().empty());
}

TEST_F(PathSwapTest, AFileAndAFolderChangePlaces) {
    folder_.makeFolder("folder");
    folder_.write("folder/inside", "inside");

    a_->swapWith(*KTPath::pathWithPath(folder_ / "folder"));

    EXPECT_EQ(folder_.read("folder"), "a");
    EXPECT_EQ(folder_.read("a/inside"), "inside");
}

TEST_F(PathSwapTest, AVolumeThatSwapsIsNotAskedForMore) {
    SwapMethods methods = renames();
    methods.swapNames = [](const char*, const char*) { return 0; };
    methods.exchangeData = failingWith(EIO);

    swapItems(*a_, *b_, methods);

    EXPECT_EQ(renamesMade_, 0);
    EXPECT_TRUE(logger_->lines().empty());
}

TEST_F(PathSwapTest, AVolumeWithoutEitherGoesStraightToTheThreeRenames) {
    swapItems(*a_, *b_, renames());

    expectSwapped();
    EXPECT_EQ(renamesMade_, 3);
    EXPECT_TRUE(logger_->lines().empty());
}

TEST_F(PathSwapTest, AFailedSwapIsLoggedOnceAndTheExchangeSucceedsByTheNextWay) {
    SwapMethods methods = renames();
    methods.swapNames = failingWith(ENOTSUP);

    swapItems(*a_, *b_, methods);

    expectSwapped();
    const std::vector<std::string> lines = logger_->lines();
    ASSERT_EQ(lines.size(), 1U);
    const std::string expected = "9 -[KTPath swapWith:] renamex_np('" + folder_ / "a" + "','" +
                                 folder_ / "b" + "') failed; errno=" + std::to_string(ENOTSUP) +
                                 " (Operation not supported) [";
    EXPECT_EQ(lines[0].substr(0, expected.size()), expected);
}

TEST_F(PathSwapTest, AFailedExchangeOfDataIsLoggedOnceAndTheRenamesSucceed) {
    SwapMethods methods = renames();
    methods.exchangeData = failingWith(EACCES);

    swapItems(*a_, *b_, methods);

    expectSwapped();
    const std::vector<std::string> lines = logger_->lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(lines[0].starts_with("9 -[KTPath swapWith:] exchangedata('" + folder_ / "a"));
}

TEST_F(PathSwapTest, TheTemporaryNameLiesBesideTheItemAndIsNeverOneInUse) {
    folder_.write("_xchng_000012ab_a", "taken");
    folder_.makeLink("nowhere", "_xchng_000012ac_a");
    std::vector<std::string> passed;
    SwapMethods methods = renames();
    methods.rename = [&](const char* from, const char* to) {
        passed.emplace_back(to);
        return std::rename(from, to);
    };

    swapItems(*a_, *b_, methods);

    EXPECT_EQ(passed, (std::vector<std::string>{folder_ / "_xchng_000012ad_a", folder_ / "b",
                                                folder_ / "a"}));
    EXPECT_EQ(folder_.read("_xchng_000012ab_a"), "taken");
    EXPECT_TRUE(folder_.has("_xchng_000012ac_a"));
}

TEST_F(PathSwapTest, TheTemporaryNameLiesInTheParentThatAPathKeeps) {
    folder_.makeFolder("sub");
    folder_.write("sub/c", "c");
    const KTPathPtr item = KTSubPath::initAssumingCNameParentPath(
        makeCString("sub/c"), KTPath::pathWithPath(folder_.path()));
    std::string temporary;
    SwapMethods methods = renames();
    methods.rename = [&](const char*, const char* to) {
        temporary = to;
        errno = EIO;
        return -1;
    };

    EXPECT_THROW(swapItems(*item, *b_, methods), SVException);

    EXPECT_EQ(temporary, folder_ / "_xchng_000012ab_sub/c");
}

TEST_F(PathSwapTest, ATemporaryNameIsCutToWhatADirectoryTakes) {
    const std::string name(255, 'n');
    folder_.write(name, "long");

    swapItems(*KTPath::pathWithPath(folder_ / name), *b_, renames());

    EXPECT_EQ(folder_.read("b"), "long");
    EXPECT_EQ(folder_.read(name), "b");
}

TEST_F(PathSwapTest, WhenTheFirstRenameFailsNothingHasMoved) {
    expectFailure(renames(1));

    EXPECT_EQ(folder_.read("a"), "a");
    EXPECT_EQ(folder_.read("b"), "b");
    EXPECT_EQ(names(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(PathSwapTest, WhenTheSecondRenameFailsTheFirstIsUndone) {
    expectFailure(renames(2));

    EXPECT_EQ(folder_.read("a"), "a");
    EXPECT_EQ(folder_.read("b"), "b");
    EXPECT_EQ(names(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(PathSwapTest, WhenTheUndoingFailsTooItsErrorIsToldAndBothContentsAreStillThere) {
    SwapMethods methods = renames();
    methods.rename = [this](const char* from, const char* to) {
        constexpr int kErrors[] = {0, EXDEV, EIO};
        errno = kErrors[renamesMade_++];
        return errno == 0 ? std::rename(from, to) : -1;
    };

    expectFailure(methods);

    EXPECT_EQ(renamesMade_, 3);
    EXPECT_EQ(folder_.read("a"), "a");
    EXPECT_EQ(folder_.read("_xchng_000012ab_a"), "b");
}

TEST_F(PathSwapTest, WhenTheThirdRenameFailsBothContentsAreStillThere) {
    expectFailure(renames(3));

    EXPECT_EQ(folder_.read("b"), "a");
    EXPECT_EQ(folder_.read("_xchng_000012ab_a"), "b");
    EXPECT_EQ(names(), (std::vector<std::string>{"_xchng_000012ab_a", "b"}));
}

TEST_F(PathSwapTest, BothWaysAreTriedInTheirOrderBeforeTheRenames) {
    SwapMethods methods = renames();
    methods.swapNames = failingWith(EINVAL);
    methods.exchangeData = failingWith(ENOTSUP);

    swapItems(*a_, *b_, methods);

    expectSwapped();
    const std::vector<std::string> lines = logger_->lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[0].starts_with("9 -[KTPath swapWith:] renamex_np('")) << lines[0];
    const std::string expected = "9 -[KTPath swapWith:] exchangedata('" + folder_ / "a" + "','" +
                                 folder_ / "b" + "') failed; errno=" + std::to_string(ENOTSUP) +
                                 " (Operation not supported) [";
    EXPECT_EQ(lines[1].substr(0, expected.size()), expected);
}

TEST_F(PathSwapTest, TheWaysAreThoseThatTheVolumeReports) {
    const auto expectWays = [](const std::string& path) {
        const auto volume = KTVolumeInfo::volumeInfoForPath(path);
        const SwapMethods methods = SwapMethods::forItem(*KTPath::pathWithPath(path));
        EXPECT_EQ(static_cast<bool>(methods.swapNames), volume->hasSwapping()) << path;
        EXPECT_EQ(static_cast<bool>(methods.exchangeData), volume->hasExchangeData()) << path;
        EXPECT_TRUE(methods.rename && methods.randomNumber) << path;
    };

    expectWays(folder_ / "a");
    expectWays(folder_.path());
    expectWays("/proc/self/status");
}

TEST_F(PathSwapTest, AVolumeThatReportsNothingOffersTheRenamesAlone) {
    const SwapMethods methods = SwapMethods::forItem(*KTPath::pathWithPath("/proc/self/status"));

    EXPECT_FALSE(methods.swapNames);
    EXPECT_FALSE(methods.exchangeData);
}

TEST_F(PathSwapTest, TheVolumeOfALinkIsAskedThatHoldsTheLink) {
    const auto hasSwapping = [this](const std::string& name) {
        return static_cast<bool>(
            SwapMethods::forItem(*KTPath::pathWithPath(folder_ / name)).swapNames);
    };
    folder_.makeLink("/proc/self/status", "link");
    folder_.makeLink("nowhere", "dangling");

    EXPECT_EQ(hasSwapping("link"), hasSwapping("a"));
    EXPECT_EQ(hasSwapping("dangling"), hasSwapping("a"));
}

TEST_F(PathSwapTest, LinksThemselvesChangePlaces) {
    folder_.makeLink("nowhere", "link");

    a_->swapWith(*KTPath::pathWithPath(folder_ / "link"));

    EXPECT_EQ(std::filesystem::read_symlink(folder_ / "a"), "nowhere");
    EXPECT_EQ(folder_.read("link"), "a");
}

TEST_F(PathSwapTest, TheVolumeThatADirectoryItemKnowsIsNotAskedAgain) {
    const KTPathPtr path = KTPath::pathWithPath(folder_.path());
    const auto directory = path->directory();
    const auto kept = KTVolumeInfo::volumeInfoForPath("/proc");
    directory->setVolumeInfo(kept);

    EXPECT_FALSE(SwapMethods::forItem(*path).swapNames);
}

TEST_F(PathSwapTest, SwappingNothingIsRaisedAndChangesNothing) {
    EXPECT_THROW(KTPath::pathWithPath(folder_ / "none")->swapWith(*b_), SVException);

    EXPECT_EQ(folder_.read("b"), "b");
    EXPECT_EQ(names(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(PathSwapTest, SwappingWithNothingIsRaisedAndChangesNothing) {
    const KTPathPtr none = KTPath::pathWithPath(folder_ / "none");

    EXPECT_THROW(a_->swapWith(*none), SVException);

    EXPECT_EQ(folder_.read("a"), "a");
    EXPECT_EQ(names(), (std::vector<std::string>{"a", "b"}));
}

}  // namespace
}  // namespace sevrin
