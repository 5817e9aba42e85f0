// Tests of writing keyed archives, and of reading back what was written.
#include "Platform/NSKeyedArchiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/ArchivedURL.h"
#include "Platform/BinaryPropertyList.h"
#include "Platform/NSError.h"
#include "Platform/NSException.h"
#include "Platform/NSKeyedUnarchiver.h"
#include "Platform/NSURL.h"
#include "Platform/NSUUID.h"

namespace sevrin::platform {
namespace {

using testing::HasSubstr;

std::string archived(const Value& root) {
    return NSKeyedArchiver::archivedDataWithRootObject(root);
}

Value readBack(const Value& root) {
    const std::string bytes = archived(root);
    return NSKeyedUnarchiver::unarchiveObjectWithData(bytes);
}

// What there is in $objects, one after the other: text and numbers as they are, of objects the
// class name in brackets, of classes the name with a colon.
std::string outline(const Value& root) {
    const std::string bytes = archived(root);
    const BinaryPropertyList list(bytes);
    const auto objects = *list.find(list.top(), "$objects");
    const auto describe = [&list, objects](std::uint32_t object) -> std::string {
        if (list.kind(object) != BinaryPropertyList::Kind::Dictionary) {
            return propertyListValue(list, object).description();
        }
        if (const auto name = list.find(object, "$classname")) return list.string(*name) + ":";
        const auto theClass = list.element(objects, list.uid(*list.find(object, "$class")));
        return "[" + list.string(*list.find(theClass, "$classname")) + "]";
    };
    std::string text;
    for (std::size_t place = 0; place < list.size(objects); ++place)
        text += (place == 0 ? "" : " ") + describe(list.element(objects, place));
    return text;
}

TEST(NSKeyedArchiverTest, TheOutermostDictionarySaysWhatItIs) {
    const std::string bytes = archived("x");
    const BinaryPropertyList list(bytes);
    const auto top = list.top();

    std::vector<std::string> keys;
    for (std::size_t place = 0; place < list.size(top); ++place)
        keys.push_back(list.string(list.key(top, place)));
    EXPECT_THAT(keys, testing::ElementsAre("$version", "$archiver", "$top", "$objects"));
    EXPECT_EQ(list.integer(*list.find(top, "$version")), Value(100'000));
    EXPECT_TRUE(list.stringEquals(*list.find(top, "$archiver"), "NSKeyedArchiver"));
    EXPECT_EQ(list.uid(*list.find(*list.find(top, "$top"), "root")), 1U);
}

TEST(NSKeyedArchiverTest, TextAndNumbersAreObjectsByThemselves) {
    EXPECT_EQ(outline("x"), "$null x");
    EXPECT_EQ(outline(7), "$null 7");
    EXPECT_EQ(outline(nullptr), "$null");
}

TEST(NSKeyedArchiverTest, AnObjectIsNumberedBeforeItsMembersItsClassAfterThem) {
    EXPECT_EQ(outline(ValueArray{"a", ValueArray{"b"}, "c"}),
              "$null [NSArray] a [NSArray] b NSArray: c");
}

TEST(NSKeyedArchiverTest, OfADictionaryAllKeysComeBeforeAllValues) {
    EXPECT_EQ(outline(Dictionary{{"a", 1}, {"b", 2}}),
              "$null [NSDictionary] a b 1 2 NSDictionary:");
}

TEST(NSKeyedArchiverTest, EqualTextAndNumbersAreOneObjectOthersAreNot) {
    EXPECT_EQ(outline(ValueArray{"a", "a", 1, 1, true, 1.0}), "$null [NSArray] a 1 1 1 NSArray:");
    EXPECT_EQ(outline(ValueArray{ValueArray{}, ValueArray{}}),
              "$null [NSArray] [NSArray] NSArray: [NSArray]");
}

TEST(NSKeyedArchiverTest, AContainerMetTwiceIsArchivedOnce) {
    const Value inner = ValueArray{"a"};
    const Value value = readBack(ValueArray{inner, inner});

    EXPECT_EQ(outline(ValueArray{inner, inner}), "$null [NSArray] [NSArray] a NSArray:");
    EXPECT_EQ(value.ifArray()->at(0).ifArray(), value.ifArray()->at(1).ifArray());
}

TEST(NSKeyedArchiverTest, AnObjectMetTwiceIsArchivedOnceAndReadBackAsOne) {
    const Value error = NSError::errorWithDomainCodeUserInfo("d", 1);
    const Value value = readBack(ValueArray{error, error});

    EXPECT_TRUE(value.ifArray()->at(0).object<NSError>());
    EXPECT_EQ(value.ifArray()->at(0).object(), value.ifArray()->at(1).object());
}

TEST(NSKeyedArchiverTest, EveryKindOfValueReadsBackEqual) {
    const Value value = Dictionary{
        {"text", ValueArray{"", "caf\u00e9 \U0001F600", std::string("a\0b", 3), "$null",
                            std::string(1'000, 'x')}},
        {"integers", ValueArray{0, -1, std::numeric_limits<std::int64_t>::min(),
                                std::numeric_limits<std::int64_t>::max(),
                                std::numeric_limits<std::uint64_t>::max()}},
        {"booleans", ValueArray{true, false}},
        {"reals", ValueArray{1.0, 0.0, -0.0, 1e300, -std::numeric_limits<double>::infinity()}},
        {"data", ValueArray{Data{}, Data{std::string("\0\xff", 2)}}},
        {"date", NSDate::dateWithTimeIntervalSinceReferenceDate(700'000'000.25)},
        {"null", nullptr},
        {"set", Set({1, "a", ValueArray{2}})},
        {1, "a number for a key"},
        {ValueArray{1, 2}, "an array for a key"},
        {"empty", ValueArray{ValueArray{}, Dictionary{}, Set()}},
        {"url", NSURL::URLWithString("file:///tmp/x%20y")},
        {"address", std::make_shared<ArchivedURL>("https://example.com/", nullptr)},
        {"relative", std::make_shared<ArchivedURL>(
                         "page", std::make_shared<ArchivedURL>("https://example.com/", nullptr))},
        {"uuid", NSUUID::initWithUUIDBytes("0123456789abcdef")},
        {"error", NSError::errorWithDomainCodeUserInfo("d", -5, Dictionary{{"k", ValueArray{1}}})}};

    EXPECT_EQ(readBack(value), value);
}

TEST(NSKeyedArchiverTest, NullAsTheRootReadsBackAsNull) {
    EXPECT_TRUE(readBack(nullptr).isNull());
}

TEST(NSKeyedArchiverTest, NullInAContainerIsAnObject) {
    EXPECT_EQ(outline(ValueArray{nullptr, nullptr}), "$null [NSArray] [NSNull] NSNull: NSArray:");
}

TEST(NSKeyedArchiverTest, TextThatIsNotUnicodeIsArchivedWithItsBytesSpelled) {
    EXPECT_EQ(readBack("a\xff"), Value("a\\xff"));
}

std::string refusalOf(const Value& value) {
    try {
        static_cast<void>(archived(value));
    } catch (const NSException& exception) {
        EXPECT_EQ(exception.name(), NSInvalidArgumentException);
        return exception.reason().value();
    }
    return "";
}

Value nested(std::size_t levels) {
    Value value = ValueArray();
    for (std::size_t level = 1; level < levels; ++level)
        value = ValueArray{value};
    return value;
}

TEST(NSKeyedArchiverTest, WhatNoReaderTakesIsRefused) {
    EXPECT_EQ(refusalOf(ValueArray{std::make_shared<Object>()}),
              "*** -[NSKeyedArchiver encodeObject:forKey:]: an object of class (Object) cannot be "
              "archived");
    EXPECT_THAT(refusalOf(NSDate::dateWithTimeIntervalSinceReferenceDate(std::nan(""))),
                HasSubstr("not a number"));
    EXPECT_THAT(refusalOf(nested(kPropertyListDepthMax + 1)), HasSubstr("too deep"));
}

TEST(NSKeyedArchiverTest, TheDeepestNestingAllowedReadsBack) {
    const Value deepest = nested(kPropertyListDepthMax);

    EXPECT_EQ(readBack(deepest), deepest);
}

// An object with a field for every call.
class Sample final : public Object, public NSCoding {
public:
    static Class& classObject() {
        static NSCodingClass& theClass =
            *new NSCodingClass("ArchiverTestSample", &Object::classObject(), &initWithCoder);
        return theClass;
    }
    static ObjectPtr initWithCoder(NSCoder& coder) {
        const auto sample = std::make_shared<Sample>();
        sample->object = coder.decodeObjectForKey("object");
        sample->mutableObject = coder.decodeObjectForKey("mutable");
        sample->dollar = coder.decodeObjectForKey("$dollar");
        sample->int32 = coder.decodeInt32ForKey("int32");
        sample->int64 = coder.decodeInt64ForKey("int64");
        sample->boolean = coder.decodeBoolForKey("bool");
        sample->real = coder.decodeDoubleForKey("double");
        sample->bytes = coder.decodeBytesForKey("bytes").value_or("absent");
        sample->nilIsThere = coder.containsValueForKey("nil");
        sample->next = std::dynamic_pointer_cast<Sample>(
            coder.decodeObjectOfClassForKey(classObject(), "next"));
        return sample;
    }

    // The next one, and the one after it, and so on: a chain of them ends without recursion.
    ~Sample() override {
        std::shared_ptr<Sample> rest = std::move(next);
        while (rest && rest.use_count() == 1)
            rest = std::move(rest->next);
    }

    const Class& isa() const override { return classObject(); }
    void encodeWithCoder(NSCoder& coder) const override {
        EXPECT_TRUE(coder.allowsKeyedCoding());
        coder.encodeObjectForKey(object, "object");
        coder.encodeMutableObjectForKey(mutableObject, "mutable");
        coder.encodeObjectForKey(dollar, "$dollar");
        coder.encodeInt32ForKey(int32, "int32");
        coder.encodeInt64ForKey(int64, "int64");
        coder.encodeBoolForKey(boolean, "bool");
        coder.encodeDoubleForKey(real, "double");
        coder.encodeBytesForKey(bytes, "bytes");
        coder.encodeObjectForKey(nullptr, "nil");
        coder.encodeObjectForKey(next, "next");
    }

    Value object;
    Value mutableObject;
    Value dollar;
    std::int32_t int32 = 0;
    std::int64_t int64 = 0;
    bool boolean = false;
    double real = 0;
    std::string bytes;
    bool nilIsThere = false;
    std::shared_ptr<Sample> next;
};

TEST(NSKeyedArchiverTest, WhatAnObjectEncodesItDecodes) {
    const auto sample = std::make_shared<Sample>();
    sample->object = ValueArray{"a", 1};
    sample->mutableObject = Dictionary{{"k", "v"}};
    sample->dollar = "d";
    sample->int32 = -7;
    sample->int64 = std::numeric_limits<std::int64_t>::min();
    sample->boolean = true;
    sample->real = -0.5;
    sample->bytes = std::string("\0\1", 2);

    const auto decoded = readBack(sample).object<Sample>();

    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->object, sample->object);
    EXPECT_EQ(decoded->mutableObject, sample->mutableObject);
    EXPECT_EQ(decoded->dollar, sample->dollar);
    EXPECT_EQ(decoded->int32, sample->int32);
    EXPECT_EQ(decoded->int64, sample->int64);
    EXPECT_TRUE(decoded->boolean);
    EXPECT_EQ(decoded->real, sample->real);
    EXPECT_EQ(decoded->bytes, sample->bytes);
    EXPECT_TRUE(decoded->nilIsThere);
    EXPECT_FALSE(decoded->next);
}

TEST(NSKeyedArchiverTest, WhatItsOwnerChangesIsOfTheMutableClass) {
    const auto sample = std::make_shared<Sample>();
    for (const auto& [value, name] :
         std::vector<std::pair<Value, std::string>>{{Dictionary(), "[NSMutableDictionary]"},
                                                    {ValueArray(), "[NSMutableArray]"},
                                                    {Set(), "[NSMutableSet]"},
                                                    {"text", "[NSMutableString]"},
                                                    {Data{"data"}, "[NSMutableData]"}}) {
        sample->mutableObject = value;
        EXPECT_THAT(outline(sample), HasSubstr(name));
        EXPECT_EQ(readBack(sample).object<Sample>()->mutableObject, value);
    }
}

TEST(NSKeyedArchiverTest, TheClassOfAnObjectIsArchivedWithAllAboveIt) {
    const std::string bytes = archived(std::make_shared<Sample>());
    const BinaryPropertyList list(bytes);
    const auto objects = *list.find(list.top(), "$objects");
    const auto theClass = list.element(objects, list.size(objects) - 1);

    EXPECT_EQ(propertyListValue(list, theClass),
              Value(Dictionary{{"$classname", "ArchiverTestSample"},
                               {"$classes", ValueArray{"ArchiverTestSample", "NSObject"}}}));
}

TEST(NSKeyedArchiverTest, AChainOfObjectsMayHaveAnyLength) {
    constexpr int kLength = 100'000;
    std::shared_ptr<Sample> chain;
    for (int i = 0; i < kLength; ++i) {
        auto link = std::make_shared<Sample>();
        link->int32 = i;
        link->next = std::move(chain);
        chain = std::move(link);
    }

    std::shared_ptr<Sample> decoded = readBack(chain).object<Sample>();

    int length = 0;
    for (const Sample* walk = decoded.get(); walk != nullptr; walk = walk->next.get())
        EXPECT_EQ(walk->int32, kLength - ++length);
    EXPECT_EQ(length, kLength);
}

TEST(NSKeyedArchiverTest, AnExceptionThatReachesItselfReadsBackAsSuch) {
    const auto exception =
        NSException::exceptionWithNameReasonUserInfo("IO", "no reason", Dictionary());
    exception.object()->setUserInfoValueForKey(exception.object(), "Cause");

    const auto decoded = NSException::exceptionInValue(readBack(exception.object()));

    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->name(), "IO");
    const Value* const cause = decoded->userInfo().find("Cause");
    ASSERT_TRUE(cause);
    EXPECT_TRUE(NSException::exceptionInValue(*cause)->isSame(*decoded));
}

}  // namespace
}  // namespace sevrin::platform
