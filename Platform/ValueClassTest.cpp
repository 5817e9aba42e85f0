// Tests of what the platform calls the class of a value.
#include "Platform/ValueClass.h"

#include <gtest/gtest.h>

#include "Platform/NSError.h"

namespace sevrin::platform {
namespace {

TEST(ValueClassTest, AValueIsNamedByItsKind) {
    EXPECT_EQ(classNameOf("text"), "NSString");
    EXPECT_EQ(classNameOf(Data{"x"}), "NSData");
    EXPECT_EQ(classNameOf(NSDate::date()), "NSDate");
    EXPECT_EQ(classNameOf(ValueArray{}), "NSArray");
    EXPECT_EQ(classNameOf(Dictionary{}), "NSDictionary");
    EXPECT_EQ(classNameOf(Set(ValueArray{})), "NSSet");
    EXPECT_EQ(classNameOf(Value()), "(null)");
}

TEST(ValueClassTest, EveryNumberIsANumber) {
    EXPECT_EQ(classNameOf(true), "NSNumber");
    EXPECT_EQ(classNameOf(-1), "NSNumber");
    EXPECT_EQ(classNameOf(UINT64_MAX), "NSNumber");
    EXPECT_EQ(classNameOf(1.5), "NSNumber");
}

TEST(ValueClassTest, AnObjectIsNamedByItsClass) {
    EXPECT_EQ(classNameOf(NSError::errorWithDomainCodeUserInfo("test", 1)), "NSError");
}

}  // namespace
}  // namespace sevrin::platform
