// Where UUIDs and labels come from when the driver does not tell.
#include "Platform/linux/VolumeIdentity.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "Platform/TestAttributes.h"
#include "Platform/TestMounts.h"

namespace sevrin::platform {
namespace {

constexpr const char* kUuid = "0fd9ce46-1ba7-4dd6-9a2e-4a06b1e1f2b3";

TEST(VolumeIdentityTest, AUuidIsReadInEitherCase) {
    const UuidBytes expected = {0x0F, 0xD9, 0xCE, 0x46, 0x1B, 0xA7, 0x4D, 0xD6,
                                0x9A, 0x2E, 0x4A, 0x06, 0xB1, 0xE1, 0xF2, 0xB3};

    EXPECT_EQ(parseUuid(kUuid), expected);
    EXPECT_EQ(parseUuid("0FD9CE46-1BA7-4DD6-9A2E-4A06B1E1F2B3"), expected);
}

TEST(VolumeIdentityTest, ShorterOrOtherIdentitiesAreNoUuid) {
    for (const char* text :
         {"", "1A2B-3C4D", "0fd9ce46-1ba7-4dd6-9a2e-4a06b1e1f2b",
          "0fd9ce46+1ba7-4dd6-9a2e-4a06b1e1f2b3", "0fd9ce46-1ba7-4dd6-9a2e-4a06b1e1f2bg",
          "0fd9ce46-1ba7-4dd6-9a2e-4a06b1e1f2b33"}) {
        EXPECT_EQ(parseUuid(text), std::nullopt) << text;
    }
}

TEST(VolumeIdentityTest, ALinkIsFoundByTheDeviceThatItLeadsTo) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a device node";
    const FileFolder folder;
    const FileFolder links;
    for (const unsigned minor : {1U, 2U}) {
        const std::string node = folder.at("disk" + std::to_string(minor));
        if (::mknod(node.c_str(), S_IFBLK | 0600, makedev(7, minor)) != 0) {
            GTEST_SKIP() << "device nodes are not permitted here";
        }
    }
    links.link("Time\\x20capsule", folder.at("disk2"));
    links.link("other", folder.at("disk1"));
    links.link("dangling", folder.at("disk3"));
    links.file("no link");

    EXPECT_EQ(linkToDevice(links.path().c_str(), 7, 2), "Time capsule");
    EXPECT_EQ(linkToDevice(links.path().c_str(), 7, 1), "other");
    EXPECT_EQ(linkToDevice(links.path().c_str(), 7, 3), std::nullopt);
    EXPECT_EQ(linkToDevice(links.at("missing").c_str(), 7, 1), std::nullopt);
}

TEST(VolumeIdentityTest, TheBytesOnADeviceTellUuidAndLabel) {
    const FileFolder folder;
    const std::string image = folder.at("image");
    const std::string missing =
        makeImage(image, std::string("ext4 -q -L archive -U ") + kUuid, "4M");
    if (!missing.empty()) GTEST_SKIP() << missing;

    EXPECT_EQ(fieldOnDevice(image.c_str(), "UUID"), kUuid);
    EXPECT_EQ(fieldOnDevice(image.c_str(), "LABEL"), "archive");
}

TEST(VolumeIdentityTest, BytesThatAreNoVolumeTellNothing) {
    const FileFolder folder;
    const std::string path = folder.file("noise", std::string(100000, 'n'));

    EXPECT_EQ(fieldOnDevice(path.c_str(), "UUID"), std::nullopt);
    EXPECT_EQ(fieldOnDevice(folder.at("missing").c_str(), "UUID"), std::nullopt);
}

}  // namespace
}  // namespace sevrin::platform
