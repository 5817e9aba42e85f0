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

TEST_F(PathSwapTest, WhenTheThirdRenameFailsBothContentsAreStillThere) {
    expectFailure(renames(3));

    EXPECT_EQ(folder_.read("b"), "a");
    EXPECT_EQ(folder_.read("_xchng_000012ab_a"), "b");
    EXPECT_EQ(names(), (std::vector<std::string>{"_xchng_000012ab_a", "b"}));
}

TEST_F(PathSwapTest, SwappingWithNothingIsRaisedAndChangesNothing) {
    const KTPathPtr none = KTPath::pathWithPath(folder_ / "none");

    EXPECT_THROW(a_->swapWith(*none), SVException);

    EXPECT_EQ(folder_.read("a"), "a");
    EXPECT_EQ(names(), (std::vector<std::string>{"a", "b"}));
}

}  // namespace
}  // namespace sevrin
