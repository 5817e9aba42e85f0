// Tests of items that cannot be reached, whatever the reason, and of volumes whose server fails.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <future>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/DirectoryReader.h"
#include "Platform/TestFileServer.h"

namespace sevrin {
namespace {

using platform::DirectoryReader;
using platform::DirectoryReaderOverride;
using platform::TestFileServer;
using platform::TestFolder;
using platform::TestMounts;
using platform::Value;

Value detailOf(const SVException& exception, std::string_view key) {
    const Value* const value = exception.details().find(key);
    return value == nullptr ? Value() : *value;
}

// What `act` raises: of the name "IO", with the reason, the error and the path; else a failure.
template <typename Act>
SVException raisedBy(Act act, std::string_view reason, int error, const std::string& path) {
    try {
        act();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.name(), "IO");
        EXPECT_EQ(exception.reason(), reason);
        EXPECT_EQ(detailOf(exception, "POSIXErr"), Value(error));
        EXPECT_EQ(detailOf(exception, "Path"), Value(path));
        EXPECT_FALSE(detailOf(exception, "ErrDescription").isNull());
        return exception;
    }
    ADD_FAILURE() << "nothing was raised instead of \"" << reason << '"';
    return SVException::exceptionWithNameReason("IO", "nothing");
}

template <typename Act>
void expectRaises(Act act, std::string_view reason, int error, const std::string& path) {
    static_cast<void>(raisedBy(act, reason, error, path));
}

std::string textOf(const TestLogger& logger) {
    std::string all;
    for (const std::string& line : logger.lines())
        all += line + "\n";
    return all;
}

std::vector<std::string> namesIn(KTDirectory& directory) {
    std::vector<std::string> names;
    for (const KTFileInfoPtr& item : directory)
        names.push_back(item->name());
    std::sort(names.begin(), names.end());
    return names;
}

KTDirectoryPtr directoryAt(const std::string& path) {
    return KTFileInfo::initWithTypePathObject(2, KTPath::pathWithPath(path))->asDirectory();
}

// --- One item that cannot be reached, for each reason.

enum class Obstacle { Loop, LongName, OtherUser, ServerGone, ServerForgot, ServerFails };

struct UnreachablePlace {
    const char* name;
    Obstacle obstacle;
    int error;

    friend void PrintTo(const UnreachablePlace& place, std::ostream* out) { *out << place.name; }
};

class KTUnreachableItemTest : public testing::TestWithParam<UnreachablePlace> {
protected:
    void SetUp() override {
        switch (GetParam().obstacle) {
            case Obstacle::Loop:
                folder_.makeLink("b", "a");
                folder_.makeLink("a", "b");
                path_ = folder_ / "a/x";
                break;
            case Obstacle::LongName:
                path_ = folder_ / std::string(256, 'x');
                break;
            case Obstacle::OtherUser:
                if (::geteuid() != 0) GTEST_SKIP() << "only root becomes another user";
                folder_.makeFolder("closed");
                folder_.write("closed/x");
                ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
                ASSERT_EQ(::chmod((folder_ / "closed").c_str(), 0700), 0);
                path_ = folder_ / "closed/x";
                ASSERT_EQ(::seteuid(12345), 0);
                isOtherUser_ = true;
                break;
            default:
                server_.emplace(mounts_.emplace(), "served");
                SEVRIN_SKIP_WITHOUT(*mounts_);
                path_ = server_->path() + "/file";
                server_->fail(GetParam().error);
        }
    }
    void TearDown() override {
        if (!isOtherUser_) return;
        ASSERT_EQ(::seteuid(0), 0);
    }

    [[nodiscard]] KTFileInfoPtr itemOfType(std::uint8_t type) const {
        return KTFileInfo::initWithTypePathObject(type, KTPath::pathWithPath(path_));
    }
    [[nodiscard]] static int error() { return GetParam().error; }

    const TestFolder folder_;
    std::optional<TestMounts> mounts_;
    std::optional<TestFileServer> server_;
    std::string path_;
    bool isOtherUser_ = false;
};

INSTANTIATE_TEST_SUITE_P(
    Reasons, KTUnreachableItemTest,
    testing::Values(UnreachablePlace{"Loop", Obstacle::Loop, ELOOP},
                    UnreachablePlace{"LongName", Obstacle::LongName, ENAMETOOLONG},
                    UnreachablePlace{"OtherUser", Obstacle::OtherUser, EACCES},
                    UnreachablePlace{"ServerGone", Obstacle::ServerGone, ENOTCONN},
                    UnreachablePlace{"ServerForgot", Obstacle::ServerForgot, ESTALE},
                    UnreachablePlace{"ServerFails", Obstacle::ServerFails, EIO}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(KTUnreachableItemTest, ProbingItRaises) {
    expectRaises([&] { static_cast<void>(KTFileInfo::infoForPath(path_)); },
                 "failed to probe object vtype", error(), path_);
}

TEST_P(KTUnreachableItemTest, ItIsNotReevaluatedToNothing) {
    const auto item = itemOfType(1);

    expectRaises([&] { static_cast<void>(item->reevaluateType()); }, "failed to probe object vtype",
                 error(), path_);
}

TEST_P(KTUnreachableItemTest, ItsAttributesRaise) {
    for (const auto type : std::initializer_list<std::uint8_t>{1, 2, 5, 6}) {
        const auto item = itemOfType(type);
        const SVException exception = raisedBy([&] { static_cast<void>(item->modifiedDate()); },
                                               "failed to get attributes", error(), path_);
        EXPECT_EQ(detailOf(exception, "Name"), Value(item->name()));
        EXPECT_FALSE(detailOf(exception, "Type").isNull());
    }
}

TEST_P(KTUnreachableItemTest, SettersRaiseAsNothingIsKeptYet) {
    const auto item = itemOfType(1);

    expectRaises([&] { item->setAccess(0600); }, "failed to get attributes", error(), path_);
    EXPECT_NO_THROW(item->setModifiedAttributes());
}

TEST_P(KTUnreachableItemTest, ItsAccessControlListIsNotToBeHadWithoutItsAttributes) {
    const auto item = itemOfType(1);

    expectRaises([&] { static_cast<void>(item->acl()); }, "failed to get attributes", error(),
                 path_);
}

TEST_P(KTUnreachableItemTest, ItListsAsEmptyWithEveryReader) {
    for (const auto reader :
         {DirectoryReader::Bulk, DirectoryReader::Attribute, DirectoryReader::Plain}) {
        const DirectoryReaderOverride best(reader);

        EXPECT_EQ(directoryAt(path_)->firstObject(), nullptr);
    }
}

TEST_P(KTUnreachableItemTest, ItsVolumeRaises) {
    expectRaises([&] { static_cast<void>(KTVolumeInfo::volumeInfoForPath(path_)); },
                 "problem getting volume statfs", error(), path_);
    expectRaises([&] { static_cast<void>(itemOfType(1)->volumeInfo()); },
                 "problem getting volume statfs", error(), path_);
    // A directory asks first whether it is a volume's root.
    expectRaises([&] { static_cast<void>(directoryAt(path_)->volumeInfo()); },
                 "failed to get attributes", error(), path_);
}

TEST_P(KTUnreachableItemTest, ItsPathOnTheVolumeIsTheFullOneAndLogged) {
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);

    EXPECT_EQ(itemOfType(1)->volumeRelativePath(), path_);

    EXPECT_TRUE(textOf(*logger).starts_with(
        "9 -[KTFileInfo volumeRelativePath] can't determine relative path for " + path_))
        << textOf(*logger);
}

TEST_P(KTUnreachableItemTest, NoSubdirectoryIsMadeInIt) {
    const auto directory = directoryAt(path_);

    const SVException exception =
        raisedBy([&] { directory->createSubdirectoryWithNameMode("new", 0750); },
                 "could not create directory", error(), path_ + "/new");

    EXPECT_EQ(detailOf(exception, "mode"), Value(0750));
}

TEST_P(KTUnreachableItemTest, TheTextOfALinkRaises) {
    const auto link = itemOfType(5)->asSymbolicLink();

    expectRaises([&] { static_cast<void>(link->contents()); },
                 "cannot read content of symbolic link", error(), path_);
    expectRaises([&] { static_cast<void>(link->dataLength()); },
                 "cannot read content of symbolic link", error(), path_);
}

TEST_P(KTUnreachableItemTest, ItIsNoFileThatSomebodyExpected) {
    expectRaises(
        [&] {
            static_cast<void>(KTRegularFile::regularInfoForPathObjectThrowingException(
                KTPath::pathWithPath(path_), std::nullopt));
        },
        "failed to probe object vtype", error(), path_);
}

// --- A volume whose server fails.

class KTServedVolumeTest : public testing::Test {
protected:
    void SetUp() override { SEVRIN_SKIP_WITHOUT(mounts_); }

    [[nodiscard]] std::string at(const char* name) const { return server_.path() + "/" + name; }

    TestMounts mounts_;
    TestFileServer server_{mounts_, "served"};
};

TEST_F(KTServedVolumeTest, IsAVolumeOfItsServer) {
    const auto volume = KTVolumeInfo::volumeInfoForPath(at("file"));

    EXPECT_EQ(volume->path(), server_.path());
    EXPECT_EQ(volume->displayName(), "served");
    EXPECT_STREQ(volume->cFilesystemType(), "fuse.sshfs");
    EXPECT_EQ(volume->deviceName(), "server:/served");
    EXPECT_FALSE(volume->isLocal());
    EXPECT_EQ(volume->totalBytes(), 1000 * 4096);
    EXPECT_EQ(volume->freeBytes(), 600 * 4096);
    EXPECT_EQ(volume->availableBytes(), 500 * 4096);
    EXPECT_EQ(volume->uuidCStr(), nullptr);
    EXPECT_FALSE(volume->hasJournal());
    EXPECT_EQ(namesIn(*volume->rootDirectory()),
              (std::vector<std::string>{"file", "folder", "link"}));
    const auto link = KTFileInfo::infoForPath(at("link"))->asSymbolicLink();
    EXPECT_STREQ(link->contents(), "file");
    EXPECT_EQ(link->volumeRelativePath(), "link");
}

TEST_F(KTServedVolumeTest, WhatWasFetchedStaysAndTheNextFetchTellsTheFailure) {
    const auto item = KTFileInfo::infoForPath(at("file"))->asRegularFile();
    EXPECT_EQ(item->logicalSize(), 5);
    server_.fail(ESTALE);

    EXPECT_EQ(item->logicalSize(), 5);
    item->flushAttributes();
    expectRaises([&] { static_cast<void>(item->logicalSize()); }, "failed to get attributes",
                 ESTALE, at("file"));
    server_.fail(0);
    EXPECT_EQ(item->logicalSize(), 5);
}

TEST_F(KTServedVolumeTest, AnAccessControlListThatCannotBeReadIsNone) {
    const auto item = KTFileInfo::infoForPath(at("file"));
    static_cast<void>(item->ownerID());
    server_.fail(EIO);

    EXPECT_EQ(item->acl(), nullptr);
}

TEST_F(KTServedVolumeTest, AttributesThatCannotBeWrittenStayChanged) {
    const auto item = KTFileInfo::infoForPath(at("file"));
    item->setAccess(0600);
    server_.fail(EIO);

    for (int attempt = 0; attempt < 2; ++attempt) {
        const SVException exception = raisedBy([&] { item->setModifiedAttributes(); },
                                               "unable to set attributes", EIO, at("file"));
        EXPECT_EQ(detailOf(exception, "attributeSet"), Value("0x00020000"));
    }
    EXPECT_EQ(item->access(), 0600U);
}

TEST_F(KTServedVolumeTest, AListingThatFailsMidwayRaisesAndIsReadAgain) {
    const std::vector<std::pair<DirectoryReader, const char*>> readers = {
        {DirectoryReader::Bulk, "getattrlistbulk"},
        {DirectoryReader::Attribute, "getdirentriesattr"},
        {DirectoryReader::Plain, "readdir"}};
    for (const auto& [reader, api] : readers) {
        const DirectoryReaderOverride best(reader);
        for (const int error : {ENOTCONN, ESTALE, EIO}) {
            const auto directory = KTDirectory::directoryWithPath(server_.path());
            server_.fail(error, TestFileServer::kReadDir);

            const SVException exception =
                raisedBy([&] { static_cast<void>(directory->firstObject()); },
                         "failed to read directory", error, server_.path());
            EXPECT_EQ(detailOf(exception, "API"), Value(api));

            server_.fail(0);
            EXPECT_EQ(namesIn(*directory), (std::vector<std::string>{"file", "folder", "link"}));
        }
    }
}

TEST_F(KTServedVolumeTest, EntriesWhoseAttributesFailAreListedAndSaySoWhenAsked) {
    const auto directory = KTDirectory::directoryWithPath(server_.path());
    static_cast<void>(directory->linkCount());
    server_.fail(EIO, TestFileServer::kLookup);

    EXPECT_EQ(namesIn(*directory), (std::vector<std::string>{"file", "folder", "link"}));
    const auto file = directory->objectMatchingCName("file");
    EXPECT_EQ(file->type(), 1U);
    expectRaises([&] { static_cast<void>(file->ownerID()); }, "failed to get attributes", EIO,
                 at("file"));
}

TEST_F(KTServedVolumeTest, ItsRecordAloneMakesNoVolume) {
    struct platform::statfs record {};
    ASSERT_EQ(platform::statfs(server_.path().c_str(), &record), 0);
    for (const int error : {ENOTCONN, ESTALE, EIO}) {
        server_.fail(error);

        expectRaises([&] { static_cast<void>(KTVolumeInfo::initWithPathOrStat(nullptr, &record)); },
                     "problem getting volume attributes", error, server_.path());
    }
}

TEST_F(KTServedVolumeTest, TheListOfVolumesLeavesOutOneThatFailsAndLogsIt) {
    const auto isServed = [&](const KTVolumeInfoPtr& volume) {
        return volume->path() == server_.path();
    };
    const auto before = KTVolumeInfo::allVolumes();
    ASSERT_EQ(std::count_if(before.begin(), before.end(), isServed), 1);
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);
    server_.fail(ESTALE);

    const auto after = KTVolumeInfo::allVolumes();

    EXPECT_EQ(after.size(), before.size() - 1);
    EXPECT_EQ(std::count_if(after.begin(), after.end(), isServed), 0);
    EXPECT_TRUE(textOf(*logger).starts_with("9 problem getting volume attributes"))
        << textOf(*logger);
}

TEST_F(KTServedVolumeTest, WhatCannotBeReloadedStaysAndIsLogged) {
    const auto volume = KTVolumeInfo::volumeInfoForPath(server_.path());
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);
    server_.fail(EIO);

    volume->reloadStats();
    volume->reloadSizes();
    EXPECT_EQ(volume->nsAttributes(), std::nullopt);

    EXPECT_EQ(volume->stat().f_blocks, 1000U);
    EXPECT_EQ(volume->freeBytes(), 600 * 4096);
    const std::string all = textOf(*logger);
    for (const char* begin : {"9 -[KTVolumeInfo reloadStats] problem getting stats for device ",
                              "9 -[KTVolumeInfo reloadSizes] problem getting sizes for device "}) {
        EXPECT_NE(all.find(begin + server_.path() + ": 5(Input/output error)"), std::string::npos)
            << all;
    }
    EXPECT_NE(all.find("9 -[KTVolumeInfo nsAttributes] problem obtaining NSFileManager attributes "
                       "for filesystem at " +
                       server_.path() + ": "),
              std::string::npos)
        << all;
    server_.fail(0);
    EXPECT_NE(volume->nsAttributes(), std::nullopt);
}

TEST_F(KTServedVolumeTest, WhatIsAvailableIsWhatIsFreeWhereNothingIsSaidToBe) {
    const auto volume = KTVolumeInfo::volumeInfoForPath(server_.path());
    server_.makeAvailable(0);
    EXPECT_EQ(volume->availableBytes(), 500 * 4096);

    volume->reloadSizes();

    EXPECT_EQ(volume->availableBytes(), 600 * 4096);
    EXPECT_EQ(volume->freeBytes(), 600 * 4096);
}

TEST_F(KTServedVolumeTest, ItsLargestFileHasNoSizeWhileItCannotBeTold) {
    const auto volume = KTVolumeInfo::volumeInfoForPath(server_.path());
    EXPECT_EQ(volume->maxFileSize(), std::numeric_limits<std::int64_t>::max());

    server_.fail(ESTALE);
    EXPECT_EQ(volume->maxFileSize(), 0);

    server_.fail(0);
    EXPECT_EQ(volume->maxFileSize(), std::numeric_limits<std::int64_t>::max());
}

TEST_F(KTServedVolumeTest, ItsRootRaisesWhileItFailsAndIsFoundAfterwards) {
    const auto volume = KTVolumeInfo::volumeInfoForPath(server_.path());
    server_.fail(ESTALE);
    expectRaises([&] { static_cast<void>(volume->rootDirectory()); },
                 "failed to probe object vtype", ESTALE, server_.path());

    server_.fail(0);
    EXPECT_NE(volume->rootDirectory(), nullptr);
}

TEST_F(KTServedVolumeTest, AServerThatIsGoneIsSaidSoAndItsVolumeStillUnmounts) {
    const auto volume = KTVolumeInfo::volumeInfoForPath(server_.path());
    const auto item = KTFileInfo::infoForPath(at("file"));

    server_.stop();

    expectRaises([&] { static_cast<void>(item->ownerID()); }, "failed to get attributes", ENOTCONN,
                 at("file"));
    expectRaises([&] { static_cast<void>(KTVolumeInfo::volumeInfoForPath(server_.path())); },
                 "problem getting volume statfs", ENOTCONN, server_.path());
    EXPECT_EQ(directoryAt(server_.path())->firstObject(), nullptr);
    volume->unmount();
    EXPECT_NE(KTVolumeInfo::volumeInfoForPath(server_.path())->path(), server_.path());
}

TEST_F(KTServedVolumeTest, EntriesOfNoTypeAreLeftOutByThePlainReaderAndNotCounted) {
    const DirectoryReaderOverride best(DirectoryReader::Plain);
    for (const unsigned char type : std::initializer_list<unsigned char>{0, 14}) {
        server_.listAs(type);
        const auto directory = KTDirectory::directoryWithPath(server_.path());

        EXPECT_EQ(directory->firstObject(), nullptr);
        EXPECT_EQ(directory->count(), 0U);
    }
}

TEST_F(KTServedVolumeTest, ReadersOfAttributesLearnTheTypeThatAnEntryDoesNotTell) {
    server_.listAs(0);
    for (const auto reader : {DirectoryReader::Bulk, DirectoryReader::Attribute}) {
        const DirectoryReaderOverride best(reader);
        const auto directory = KTDirectory::directoryWithPath(server_.path());

        EXPECT_EQ(namesIn(*directory), (std::vector<std::string>{"file", "folder", "link"}));
        EXPECT_NE(directory->subdirectoryMatchingCName("folder"), nullptr);
    }
}

TEST_F(KTServedVolumeTest, EntriesWhoseTypeNobodyKnowsAreLeftOutAndNotCounted) {
    const auto directory = KTDirectory::directoryWithPath(server_.path());
    EXPECT_EQ(directory->count(), 3U);
    server_.listAs(0);
    server_.fail(EIO, TestFileServer::kLookup);

    EXPECT_EQ(directory->firstObject(), nullptr);
    EXPECT_EQ(directory->count(), 0U);
}

// The server makes no directories at all, so that what is raised at last is another error.
TEST_F(KTServedVolumeTest, AUniqueNameIsTriedAnewAsLongAsItExists) {
    const auto directory = KTDirectory::directoryWithPath(server_.path());
    server_.fail(EEXIST, TestFileServer::kMakeDir, 5);

    try {
        directory->createUniqueSubdirectoryWithPrefixExtensionMode("tmp", "x", 0700);
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.reason(), "could not create directory");
        EXPECT_EQ(detailOf(exception, "POSIXErr"), Value(ENOSYS));
    }
    EXPECT_EQ(server_.failuresLeft(), 0);
}

TEST_F(KTServedVolumeTest, WhatFailsWhileItIsTakenAwayStaysAndLeavesNothingAtTheTarget) {
    const auto item = KTFileInfo::infoForPath(at("file"));
    const std::string target = mounts_ / "target";
    server_.fail(EIO);

    const SVException copying =
        raisedBy([&] { static_cast<void>(item->copyToOverwriting(target, false)); },
                 "cannot copy item", EIO, at("file"));
    const SVException moving = raisedBy([&] { item->moveToOverwriting(target, false); },
                                        "cannot move item", EIO, at("file"));

    EXPECT_EQ(detailOf(copying, "target"), Value(target));
    EXPECT_EQ(detailOf(moving, "target"), Value(target));
    EXPECT_FALSE(mounts_.has("target"));
    EXPECT_EQ(item->path(), at("file"));
    server_.fail(0);
    EXPECT_EQ(item->reevaluateType(), item);
}

// Whoever waits for a server that does not answer waits until it goes away, and is told then.
TEST_F(KTServedVolumeTest, WhoWaitsForAnAnswerIsToldWhenTheServerGoesAway) {
    const auto item = KTFileInfo::infoForPath(at("file"));
    server_.fail(TestFileServer::kNever);
    auto asked = std::async(std::launch::async, [&] { return item->ownerID(); });
    server_.waitForUnanswered();

    server_.stop();

    try {
        static_cast<void>(asked.get());
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.reason(), "failed to get attributes");
        EXPECT_TRUE(detailOf(exception, "POSIXErr") == Value(ECONNABORTED) ||
                    detailOf(exception, "POSIXErr") == Value(ENOTCONN))
            << detailOf(exception, "POSIXErr").description();
    }
}

}  // namespace
}  // namespace sevrin
