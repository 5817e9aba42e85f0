// Tests of items that are made from the packed record of a directory's entry: every field in its
// place, the class by the type.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTFileAttributes.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSubPath.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"

namespace sevrin {
namespace {

using platform::attribute_set_t;

#pragma pack(push, 4)

// An entry as it lies in the buffer of a reader, behind its length and returned set.
template <typename Group>
struct Entry {
    KTBatchAttrsContent content;
    Group group;
    std::array<char, 8> name;
};

#pragma pack(pop)

// Of a type, with a different value in every field.
template <typename Group>
Entry<Group> entryOf(std::uint32_t type, const Group& group) {
    Entry<Group> entry{};
    entry.content.name.attr_dataoffset = offsetof(Entry<Group>, name);
    entry.content.name.attr_length = 5;
    entry.content.common = {.device = -7,
                            .objectType = type,
                            .script = 126,
                            .created = {1, 11},
                            .modified = {2, 22},
                            .attributeChanged = {3, 33},
                            .ownerID = 4'000'000'001,
                            .groupID = 4'000'000'002,
                            .accessMask = 0x0001'F9A5,
                            .flags = 0x0080'0003,
                            .userAccess = 0x0001'0005,
                            .fileID = 0x1234'5678'9ABC'DEF0};
    entry.group = group;
    std::memcpy(entry.name.data(), "name\0xx", 7);
    return entry;
}

template <typename Group>
KTFileInfoPtr itemOf(const Entry<Group>& entry, const attribute_set_t* returned = nullptr) {
    return KTFileInfo::initWithBatchAttrSetParentPath(reinterpret_cast<const std::byte*>(&entry),
                                                      returned, KTPath::pathWithPath("/nowhere"));
}

constexpr KTRegularFileAttrsBuffer kFile{3, 5'000'000'000, 4096, 5'000'000'001};
constexpr KTDirectoryAttrsBuffer kDirectory{4, 4'000'000'000, 1};

void expectCommonFields(const KTFileInfo& item) {
    EXPECT_EQ(item.deviceID(), -7);
    EXPECT_EQ(item.script(), 126U);
    EXPECT_EQ(item.createdTimeSpec().tv_sec, 1);
    EXPECT_EQ(item.createdTimeSpec().tv_nsec, 11);
    EXPECT_EQ(item.modifiedTimeSpec().tv_sec, 2);
    EXPECT_EQ(item.modifiedTimeSpec().tv_nsec, 22);
    EXPECT_EQ(item.attributeChangedTimeSpec().tv_sec, 3);
    EXPECT_EQ(item.attributeChangedTimeSpec().tv_nsec, 33);
    EXPECT_EQ(item.ownerID(), 4'000'000'001U);
    EXPECT_EQ(item.groupID(), 4'000'000'002U);
    EXPECT_EQ(item.access(), 0x9A5U);
    EXPECT_EQ(item.fileFlags(), 0x0080'0003U);
    EXPECT_EQ(item.effectiveAccess(), 5U);
    EXPECT_EQ(item.localIdentifier(), 0x1234'5678'9ABC'DEF0U);
}

TEST(KTFileInfoEntryTest, AFileIsTakenApartFieldByField) {
    const KTFileInfoPtr item = itemOf(entryOf(1, kFile));

    expectCommonFields(*item);
    const auto file = item->asRegularFile();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->linkCount(), 3U);
    EXPECT_TRUE(file->isHardLink());
    EXPECT_EQ(file->logicalSize(), 5'000'000'000);
    EXPECT_EQ(file->physicalSize(), 4096);
    EXPECT_EQ(file->dataLength(), 5'000'000'001);
}

TEST(KTFileInfoEntryTest, ALinkHasTheSizesOfAFile) {
    const auto link = itemOf(entryOf(5, kFile))->asSymbolicLink();

    ASSERT_NE(link, nullptr);
    expectCommonFields(*link);
    EXPECT_EQ(link->linkCount(), 3U);
    EXPECT_EQ(link->logicalSize(), 5'000'000'000);
    EXPECT_EQ(link->physicalSize(), 4096);
}

TEST(KTFileInfoEntryTest, ADirectoryIsTakenApartFieldByField) {
    const auto directory = itemOf(entryOf(2, kDirectory))->asDirectory();

    ASSERT_NE(directory, nullptr);
    expectCommonFields(*directory);
    EXPECT_EQ(directory->linkCount(), 4U);
    EXPECT_EQ(directory->count(), 4'000'000'000U);
    EXPECT_TRUE(directory->isMountPoint());
}

TEST(KTFileInfoEntryTest, ThingsOfOtherTypesHaveTheCommonFieldsAlone) {
    for (const std::uint32_t type : {3U, 4U, 6U, 7U, 9U, 200U}) {
        const KTFileInfoPtr item = itemOf(entryOf(type, kFile));

        ASSERT_NE(item, nullptr) << type;
        EXPECT_EQ(item->type(), type);
        expectCommonFields(*item);
        EXPECT_EQ(item->linkCount(), 1U);
        EXPECT_EQ(item->logTypeDescription(), "item");
    }
}

TEST(KTFileInfoEntryTest, WithoutATypeOrWithABadOneThereIsNoItem) {
    EXPECT_EQ(itemOf(entryOf(0, kFile)), nullptr);
    EXPECT_EQ(itemOf(entryOf(8, kFile)), nullptr);
}

TEST(KTFileInfoEntryTest, TheNameLiesWhereItsReferenceSaysAndMakesThePath) {
    const KTFileInfoPtr item = itemOf(entryOf(1, kFile));

    EXPECT_STREQ(item->cName(), "name");
    EXPECT_EQ(item->path(), "/nowhere/name");
    EXPECT_EQ(item->pathObject()->isa().name(), "KTSubPath");
}

// Nothing is at the path: whatever is asked comes from the entry.
TEST(KTFileInfoEntryTest, NothingIsAskedOfTheFileSystemForAttributesThatCameWithTheEntry) {
    const attribute_set_t all{0xFFFF'FFFF, 0, 7, 0x207, 0};
    const KTFileInfoPtr item = itemOf(entryOf(1, kFile), &all);

    expectCommonFields(*item);
    item->setModifiedAttributes();
}

TEST(KTFileInfoEntryTest, ChangesAreCountedFromTheEntryOn) {
    const KTFileInfoPtr item = itemOf(entryOf(1, kFile));

    item->setModifiedAttributes();
    item->flushAttributes();
    item->setModifiedAttributes();
    EXPECT_ANY_THROW(static_cast<void>(item->ownerID()));
}

}  // namespace
}  // namespace sevrin
