// Tests of locations in archives.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Common/Source/Utilities/SVPath.h"
#include "Common/Source/Utilities/SVStandardPath.h"
#include "Common/Source/Utilities/SVSubPath.h"
#include "Platform/NSException.h"
#include "Platform/NSKeyedArchiver.h"
#include "Platform/NSKeyedUnarchiver.h"
#include "Platform/SequentialCoder.h"
#include "Platform/TestPlaces.h"

namespace sevrin {
namespace {

using platform::Dictionary;
using platform::NSKeyedArchiver;
using platform::NSKeyedUnarchiver;
using platform::ScopedVariable;
using platform::TestPlaces;
using platform::Value;

class SVPathCodingTest : public testing::Test {
protected:
    template <typename Type>
    static std::shared_ptr<Type> passedOn(const SVPathPtr& location) {
        const std::string archive = NSKeyedArchiver::archivedDataWithRootObject(location);
        return NSKeyedUnarchiver::unarchiveObjectWithData(archive).object<Type>();
    }

    const TestPlaces places_;
};

TEST_F(SVPathCodingTest, ALocationWithoutAFolderKeepsItsAttributes) {
    const Dictionary attributes{{"NSFilePosixPermissions", 0700}};

    EXPECT_EQ(passedOn<SVPath>(SVPath::initWithAttributes(attributes))->createAttributes(),
              attributes);
    EXPECT_EQ(passedOn<SVPath>(SVPath::initWithAttributes(std::nullopt))->createAttributes(),
              std::nullopt);
}

TEST_F(SVPathCodingTest, AStandardLocationKeepsItsNumberItsDomainsAndItsAttributes) {
    const Dictionary attributes{{"NSFileGroupOwnerAccountName", "admin"}};

    const auto restored = passedOn<SVStandardPath>(
        SVStandardPath::initWithStandardDirectoryInDomainsWithAttributes(14, 2, attributes));

    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->standardDirectory(), 14U);
    EXPECT_EQ(restored->domainMask(), 2U);
    EXPECT_EQ(restored->createAttributes(), attributes);
}

TEST_F(SVPathCodingTest, ASubfolderKeepsItsNameAndItsEnclosingLocation) {
    const auto restored = passedOn<SVSubPath>(SVPath::userSVPreferencesPathToGroup("G\u00e4ste"));

    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->folderName(), "G\u00e4ste");
    EXPECT_EQ(restored->path(), places_.home() + "/Library/Preferences/Sevrin/G\u00e4ste");
    EXPECT_NE(std::dynamic_pointer_cast<SVSubPath>(restored->enclosingPath()), nullptr);
}

TEST_F(SVPathCodingTest, WhoRestoresALocationResolvesItForItself) {
    const SVPathPtr location = SVPath::userLogsPath();
    ASSERT_EQ(location->path(), places_.home() + "/Library/Logs");
    const std::string archive = NSKeyedArchiver::archivedDataWithRootObject(location);
    const ScopedVariable anotherHome("CFFIXED_USER_HOME", "/another");

    const auto restored = NSKeyedUnarchiver::unarchiveObjectWithData(archive).object<SVPath>();

    EXPECT_EQ(restored->path(), "/another/Library/Logs");
    EXPECT_EQ(location->path(), places_.home() + "/Library/Logs");
}

TEST_F(SVPathCodingTest, ASequenceWithoutKeysHoldsNoLocation) {
    for (const char* name : {"SVPath", "SVSubPath", "SVStandardPath"}) {
        platform::SequentialDecoder decoder({name, platform::Dictionary(), "folder", 1, 1});
        EXPECT_THROW(static_cast<void>(decoder.decodeObject()), platform::NSException) << name;
    }
}

TEST_F(SVPathCodingTest, AllThreeClassesMayBeDecodedSecurely) {
    EXPECT_TRUE(SVPath::supportsSecureCoding());
    EXPECT_TRUE(SVSubPath::supportsSecureCoding());
    EXPECT_TRUE(SVStandardPath::supportsSecureCoding());
}

}  // namespace
}  // namespace sevrin
