// Tests of path objects: how they are made, what is derived from them, and how they compare. What
// they ask the file system is next door.
#include "Common/Source/Utilities/KTPath.h"

#include <gtest/gtest.h>

#include <string>

#include "Common/Source/Utilities/KTSubPath.h"
#include "Platform/NSException.h"
#include "Platform/SequentialCoder.h"
#include "Platform/TestFolder.h"

namespace sevrin {
namespace {

using platform::NSURL;
using platform::SequentialDecoder;
using platform::SequentialEncoder;
using platform::TestFolder;
using platform::Value;

KTSubPathPtr subPath(std::string_view name, const KTPathPtr& parent) {
    return KTSubPath::initAssumingCNameParentPath(makeCString(name), parent);
}

TEST(KTPathTest, APathOfBytesHasItsLastComponentForAName) {
    const auto path = KTPath::initWithCPath("/a/b.tar.gz");

    EXPECT_STREQ(path->cPath(), "/a/b.tar.gz");
    EXPECT_STREQ(path->cName(), "b.tar.gz");
    EXPECT_EQ(path->name(), "b.tar.gz");
    EXPECT_EQ(path->path(), "/a/b.tar.gz");
    EXPECT_EQ(path->extension(), "gz");
}

TEST(KTPathTest, SeparatorsAtTheEndAreNotPartOfTheName) {
    EXPECT_STREQ(KTPath::initWithPath("/a/b//")->cName(), "b");
}

TEST(KTPathTest, TheNameOfTheRootIsTheSeparator) {
    EXPECT_STREQ(KTPath::initWithCPath("/")->cName(), "/");
}

TEST(KTPathTest, TheNameOfAnEmptyPathIsThatOfTheCurrentFolder) {
    EXPECT_STREQ(KTPath::initWithCPath("")->cName(), ".");
    EXPECT_STREQ(KTPath::initWithCPath("")->cPath(), "");
}

TEST(KTPathTest, APathThatIsNoBytesAtAllIsRefused) {
    EXPECT_DEATH(static_cast<void>(KTPath::initWithCPath(nullptr)), "a path is made of bytes");
    EXPECT_DEATH(
        static_cast<void>(KTPath::initWithCNameParentPath(nullptr, *KTPath::initWithCPath("/a"))),
        "a name is made of bytes");
    EXPECT_DEATH(static_cast<void>(
                     KTPath::initWithCPathRelativeToPath(nullptr, KTPath::initWithCPath("/a"))),
                 "a relative path is relative to another");
    EXPECT_DEATH(static_cast<void>(KTPath::initAssumingNamePath(makeCString("a"), nullptr)),
                 "a path has a name and its bytes");
}

TEST(KTPathTest, TextEndsAtItsNul) {
    const auto path = KTPath::pathWithPath(std::string_view("/a\0b", 4));

    EXPECT_EQ(path->path(), "/a");
    EXPECT_EQ(path->pathOfChild(std::string_view("c\0d", 3))->path(), "/a/c");
}

TEST(KTPathTest, BytesThatAreNotTextSurviveEveryForm) {
    const auto path = KTPath::pathWithPath("/a/\xFF\n-");

    EXPECT_EQ(path->name(), "\xFF\n-");
    EXPECT_EQ(path->path(), "/a/\xFF\n-");
    EXPECT_EQ(path->url()->path(), "/a/\xFF\n-");
}

TEST(KTPathTest, ANameWithoutAPointHasNoExtension) {
    EXPECT_EQ(KTPath::initWithCPath("/a.b/c")->extension(), "");
}

TEST(KTPathTest, APointInFrontOfANameHidesItAndIsNoExtension) {
    EXPECT_EQ(KTPath::initWithCPath("/a/.profile")->extension(), "");
    EXPECT_EQ(KTPath::initWithCPath("/a/.profile.old")->extension(), "old");
    EXPECT_EQ(KTPath::initWithCPath("/a/b.")->extension(), "");
}

TEST(KTPathTest, AChildOfTheRootHasOneSeparator) {
    EXPECT_EQ(KTPath::initWithCPath("/")->pathOfChild("a")->path(), "/a");
}

TEST(KTPathTest, AChildOfAPathThatEndsWithASeparatorHasNoSecondOne) {
    EXPECT_EQ(KTPath::initWithCPath("/x/")->pathOfChild("a")->path(), "/x/a");
}

TEST(KTPathTest, AChildOfAnEmptyPathIsItsName) {
    EXPECT_EQ(KTPath::initWithCPath("")->pathOfChild("a")->path(), "a");
}

TEST(KTPathTest, AChildIsNotTakenApartWhenItsNameHasSeveralComponents) {
    const auto path = KTPath::initWithCNameParentPath("a/b", *KTPath::initWithCPath("/x"));

    EXPECT_STREQ(path->cName(), "a/b");
    EXPECT_STREQ(path->cPath(), "/x/a/b");
}

TEST(KTPathTest, AnAbsolutePathIsNotRelativeToAnything) {
    const auto base = KTPath::initWithCPath("/base");

    EXPECT_EQ(KTPath::initWithCPathRelativeToPath("/x/y", base)->path(), "/x/y");
}

TEST(KTPathTest, AnEmptyPathRelativeToABaseIsTheBaseItself) {
    const auto base = KTPath::initWithCPath("/base");

    EXPECT_EQ(KTPath::initWithCPathRelativeToPath("", base), base);
    EXPECT_EQ(base->relativePath(""), base);
}

TEST(KTPathTest, APathThatBeginsWithAPointIsResolved) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("x");
    const auto base = KTPath::realPath(folder / "a");

    const auto path = base->relativePath("../x");

    EXPECT_EQ(path->path(), KTPath::realPath(folder.path())->path() + "/x");
    EXPECT_EQ(path->name(), "x");
}

TEST(KTPathTest, APathThatBeginsWithAPointAndCannotBeResolvedIsJoined) {
    const auto base = KTPath::initWithCPath("/nowhere/at/all");

    EXPECT_EQ(base->relativePath("../x")->path(), "/nowhere/at/all/../x");
}

TEST(KTPathTest, AHiddenNameBeginsWithAPointTooAndIsResolved) {
    const TestFolder folder;
    folder.write("target");
    folder.makeLink("target", ".link");
    const auto base = KTPath::realPath(folder.path());

    EXPECT_EQ(base->relativePath(".link")->path(), base->path() + "/target");
    EXPECT_EQ(base->relativePath(".")->path(), base->path());
}

TEST(KTPathTest, AnyOtherRelativePathIsJoinedUnresolved) {
    const TestFolder folder;
    folder.makeFolder("a");
    const auto base = KTPath::pathWithPath(folder.path());

    const auto path = base->relativePath("a/../a");

    EXPECT_EQ(path->path(), folder / "a/../a");
    EXPECT_EQ(path->name(), "a");
}

TEST(KTPathTest, APathOfAURLKeepsTheURL) {
    const auto url = NSURL::fileURLWithPath("/a/b");

    const auto path = KTPath::pathWithURL(url);

    EXPECT_EQ(path->url(), url);
    EXPECT_STREQ(path->cName(), "b");
    EXPECT_STREQ(path->cPath(), "/a/b");
}

TEST(KTPathTest, TheURLIsMadeOnce) {
    const auto path = KTPath::pathWithPath("/a");

    EXPECT_EQ(path->url(), path->url());
}

TEST(KTPathTest, FlushingDropsTheURL) {
    const auto path = KTPath::pathWithPath("/a");
    const auto before = path->url();

    path->flushInfo();

    EXPECT_NE(path->url(), before);
    EXPECT_TRUE(path->url()->isEqual(*before));
}

TEST(KTPathTest, ACopySharesTheURLThatIsMadeAlready) {
    const auto path = KTPath::pathWithPath("/a");
    const auto early = path->copy();
    const auto url = path->url();

    EXPECT_EQ(path->copy()->url(), url);
    EXPECT_NE(early->url(), url);
    EXPECT_NE(path->copy(), path);
    EXPECT_TRUE(path->copy()->isEqual(*path));
}

TEST(KTPathTest, APathOfAnotherOneHasItsNameAndBytesAndNotItsParent) {
    const auto url = NSURL::fileURLWithPath("/a/b");
    const auto sub = subPath("b", KTPath::initWithCPath("/a/../a"));

    const auto path = KTPath::initWithPathObject(*sub);
    const auto ofURL = KTPath::initWithPathObject(*KTPath::initWithURL(url));

    EXPECT_EQ(path->isa().name(), "KTPath");
    EXPECT_EQ(path->path(), "/a/../a/b");
    EXPECT_EQ(path->name(), "b");
    EXPECT_NE(path->parent(), sub->parent());
    EXPECT_EQ(ofURL->url(), url);
}

TEST(KTPathTest, ANameThatWasTakenOverStaysThatOfACopy) {
    const auto path = KTPath::initAssumingNamePath(makeCString("Volume"), makeCString("/mnt/x"));

    EXPECT_EQ(path->copy()->name(), "Volume");
    EXPECT_EQ(path->copy()->path(), "/mnt/x");
}

TEST(KTPathTest, TextsThatAreTakenOverAreNotCopied) {
    CStringPtr name = makeCString("Volume");
    CStringPtr bytes = makeCString("/mnt/x");
    const char* const nameBlock = name.get();
    const char* const pathBlock = bytes.get();

    const auto path = KTPath::initAssumingNamePath(std::move(name), std::move(bytes));

    EXPECT_EQ(path->cName(), nameBlock);
    EXPECT_EQ(path->cPath(), pathBlock);
    EXPECT_EQ(path->name(), "Volume");
}

TEST(KTPathTest, AnArrayIsMadeOfTheTextsAndURLsAlone) {
    const std::vector<Value> elements = {"/a", 1, NSURL::fileURLWithPath("/b"), nullptr,
                                         KTPath::pathWithPath("/c")};

    const auto paths = KTPath::arrayFromPathsOrURLs(elements);

    ASSERT_EQ(paths.size(), 2U);
    EXPECT_EQ(paths[0]->path(), "/a");
    EXPECT_EQ(paths[1]->path(), "/b");
}

TEST(KTPathTest, TheParentOfTheRootIsTheRoot) {
    EXPECT_EQ(KTPath::initWithCPath("/")->parent()->path(), "/");
}

TEST(KTPathTest, TheParentOfOneRelativeComponentIsTheCurrentFolder) {
    EXPECT_EQ(KTPath::initWithCPath("a")->parent()->path(), ".");
}

TEST(KTPathTest, TheParentIsWhatStandsBeforeTheLastComponent) {
    EXPECT_EQ(KTPath::initWithCPath("/a/b/")->parent()->path(), "/a");
}

TEST(KTPathTest, APathRelativeToItselfIsEmpty) {
    EXPECT_EQ(KTPath::initWithCPath("/a")->pathRelativeToPath(*KTPath::initWithCPath("/a")), "");
}

TEST(KTPathTest, APathRelativeToAnAncestorIsWhatFollows) {
    const auto path = KTPath::initWithCPath("/a/b/c");

    EXPECT_EQ(path->pathRelativeToPath(*KTPath::initWithCPath("/a/b")), "c");
    EXPECT_EQ(path->pathRelativeToPath(*KTPath::initWithCPath("/a/b/")), "c");
    EXPECT_EQ(path->pathRelativeToPath(*KTPath::initWithCPath("/")), "a/b/c");
}

TEST(KTPathTest, APathRelativeToATextualPrefixIsUnchanged) {
    EXPECT_EQ(KTPath::initWithCPath("/a/bc")->pathRelativeToPath(*KTPath::initWithCPath("/a/b")),
              "/a/bc");
}

TEST(KTPathTest, APathRelativeToAnEmptyOrALongerOneIsUnchanged) {
    const auto path = KTPath::initWithCPath("/a");

    EXPECT_EQ(path->pathRelativeToPath(*KTPath::initWithCPath("")), "/a");
    EXPECT_EQ(path->pathRelativeToPath(*KTPath::initWithCPath("/a/b")), "/a");
    EXPECT_EQ(path->pathRelativeToPath(*KTPath::initWithCPath("/b")), "/a");
}

TEST(KTPathTest, TheRootRelativeToAnythingIsUnchanged) {
    const auto root = KTPath::initWithCPath("/");

    EXPECT_EQ(root->pathRelativeToPath(*KTPath::initWithCPath("/a")), "/");
    EXPECT_EQ(root->pathRelativeToPath(*root), "");
}

TEST(KTPathTest, OfTheSeparatorsBehindTheBaseOneIsTaken) {
    EXPECT_EQ(KTPath::initWithCPath("/a/")->pathRelativeToPath(*KTPath::initWithCPath("/a")), "");
    EXPECT_EQ(KTPath::initWithCPath("/a//b")->pathRelativeToPath(*KTPath::initWithCPath("/a")),
              "/b");
}

TEST(KTPathTest, APathEqualsTheTextOfItself) {
    const auto path = KTPath::initWithCPath("/a/b");

    EXPECT_TRUE(path->isEqual("/a/b"));
    EXPECT_FALSE(path->isEqual("/a/b/"));
}

TEST(KTPathTest, PathsThatDifferInNormalisationOnlyAreNotEqual) {
    const auto composed = KTPath::initWithCPath("/\u00E9");
    const auto decomposed = KTPath::initWithCPath("/e\u0301");

    EXPECT_FALSE(composed->isEqual(*decomposed));
}

TEST(KTPathTest, EqualPathsHaveEqualHashesWhateverTheirClass) {
    const auto path = KTPath::initWithCPath("/a/b");
    const auto sub = subPath("b", KTPath::initWithCPath("/a"));

    EXPECT_TRUE(path->isEqual(*sub));
    EXPECT_TRUE(sub->isEqual(*path));
    EXPECT_EQ(path->hash(), sub->hash());
}

TEST(KTPathTest, ThingsThatAreNoPathsAreNotEqual) {
    EXPECT_FALSE(KTPath::initWithCPath("/a")->isEqual(*NSURL::fileURLWithPath("/a")));
}

TEST(KTPathTest, PathsAreOrderedByTheirBytes) {
    const auto path = KTPath::initWithCPath("/b");

    EXPECT_EQ(path->compare(*KTPath::initWithCPath("/a")), 1);
    EXPECT_EQ(path->compare(*KTPath::initWithCPath("/b")), 0);
    EXPECT_EQ(path->compare(*KTPath::initWithCPath("/c")), -1);
    EXPECT_EQ(path->compare(*KTPath::initWithCPath("/B")), 1);
}

TEST(KTPathTest, WhatIsNoPathStandsBehindAllPaths) {
    EXPECT_EQ(KTPath::initWithCPath("/b")->compare(*NSURL::fileURLWithPath("/a")), -1);
}

TEST(KTPathTest, TheDescriptionEndsWithThePath) {
    const std::string text = KTPath::initWithCPath("/a/b")->description();

    EXPECT_TRUE(text.starts_with("<KTPath: 0x")) << text;
    EXPECT_TRUE(text.ends_with("(/a/b)")) << text;
}

TEST(KTSubPathTest, ANameWithinAParentHasTheJoinedPath) {
    const auto parent = KTPath::initWithCPath("/a");
    const auto path = subPath("b", subPath("c", parent));

    EXPECT_STREQ(path->cPath(), "/a/c/b");
    EXPECT_EQ(path->cPath(), path->cPath());
    EXPECT_EQ(path->path(), "/a/c/b");
    EXPECT_EQ(path->url()->path(), "/a/c/b");
}

TEST(KTSubPathTest, KeepsItsParent) {
    const auto parent = KTPath::initWithCPath("/a");

    EXPECT_EQ(subPath("b", parent)->parent(), parent);
}

TEST(KTSubPathTest, ACopyIsOneTooAndHasTheSameParent) {
    const auto parent = KTPath::initWithCPath("/a");
    const auto copy = subPath("b", parent)->copy();

    EXPECT_EQ(copy->isa().name(), "KTSubPath");
    EXPECT_EQ(copy->parent(), parent);
    EXPECT_EQ(copy->path(), "/a/b");
}

TEST(KTPathCodingTest, TheSequentialFormIsTheBytesWithTheirNul) {
    SequentialEncoder encoder;

    encoder.encodeObject(KTPath::initWithCPath("/a\xFF"));

    EXPECT_EQ(encoder.values(),
              (std::vector<Value>{"KTPath", platform::Data{std::string("/a\xFF\0", 4)}}));
}

TEST(KTPathCodingTest, APathIsGivenBack) {
    SequentialEncoder encoder;
    encoder.encodeObject(KTPath::initWithCPath("/a\xFF/b"));

    SequentialDecoder decoder(encoder.values());
    const auto path = decoder.decodeObject().object<KTPath>();

    ASSERT_TRUE(path);
    EXPECT_EQ(path->isa().name(), "KTPath");
    EXPECT_EQ(path->path(), "/a\xFF/b");
    EXPECT_EQ(path->name(), "b");
}

TEST(KTPathCodingTest, APathWithinAnotherIsGivenBackWholeAndWithoutAParent) {
    SequentialEncoder encoder;
    encoder.encodeObject(subPath("b", KTPath::initWithCPath("/a")));

    SequentialDecoder decoder(encoder.values());
    const auto path = decoder.decodeObject().object<KTPath>();

    ASSERT_TRUE(path);
    EXPECT_EQ(path->isa().name(), "KTSubPath");
    EXPECT_EQ(path->path(), "/a/b");
    EXPECT_EQ(path->name(), "b");
    EXPECT_EQ(path->parent(), nullptr);
}

TEST(KTPathCodingTest, BytesWithoutTheirNulOrWithASecondOneAreRefused) {
    for (const std::string& bytes : {std::string("/a"), std::string("/a\0b\0", 5), std::string()}) {
        SequentialDecoder decoder({"KTPath", platform::Data{bytes}});

        EXPECT_THROW(static_cast<void>(decoder.decodeObject()), platform::NSException);
    }
}

// One keyed field.
class KeyedCoder final : public platform::NSCoder {
public:
    bool allowsKeyedCoding() const override { return true; }
    void encodeBytesForKey(std::string_view written, std::string_view under) override {
        key = under;
        bytes = written;
    }
    std::optional<std::string_view> decodeBytesForKey(std::string_view wanted) override {
        if (wanted != key) return std::nullopt;
        return bytes;
    }

    std::string key;
    std::string bytes;
};

TEST(KTPathCodingTest, TheKeyedFormIsTheBytesUnderPath) {
    KeyedCoder coder;

    KTPath::initWithCPath("/a/b")->encodeWithCoder(coder);

    EXPECT_EQ(coder.key, "path");
    EXPECT_EQ(coder.bytes, std::string("/a/b\0", 5));
    EXPECT_EQ(KTPath::initWithCoder(coder)->path(), "/a/b");
}

TEST(KTPathCodingTest, AnArchiveWithoutThePathIsRefused) {
    KeyedCoder coder;

    EXPECT_THROW(static_cast<void>(KTPath::initWithCoder(coder)), platform::NSException);
    EXPECT_THROW(static_cast<void>(KTSubPath::initWithCoder(coder)), platform::NSException);
}

}  // namespace
}  // namespace sevrin
