// Tests of the sequential coder, with a class whose instances are chains of numbers.
#include "Platform/SequentialCoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/NSException.h"

namespace sevrin::platform {
namespace {

class Link final : public Object, public NSCoding {
public:
    Link(std::shared_ptr<Link> before, std::uint32_t number)
        : before_(std::move(before)), number_(number) {}

    static Class& classObject() {
        static NSCodingClass& theClass =
            *new NSCodingClass("SequentialCoderTestLink", &Object::classObject(), &initWithCoder);
        return theClass;
    }
    static ObjectPtr initWithCoder(NSCoder& coder) {
        std::shared_ptr<Link> before = coder.decodeObject().object<Link>();
        return std::make_shared<Link>(std::move(before), coder.decodeUnsignedInt32());
    }

    const Class& isa() const override { return classObject(); }
    void encodeWithCoder(NSCoder& coder) const override {
        coder.encodeObject(before_);
        coder.encodeUnsignedInt32(number_);
    }

    const std::shared_ptr<Link>& before() const { return before_; }
    std::uint32_t number() const { return number_; }

private:
    const std::shared_ptr<Link> before_;
    const std::uint32_t number_;
};

std::shared_ptr<Link> chainOf(std::size_t length) {
    std::shared_ptr<Link> chain;
    for (std::size_t i = 0; i < length; ++i) {
        chain = std::make_shared<Link>(std::move(chain), static_cast<std::uint32_t>(i));
    }
    return chain;
}

const std::string kLinkName = Link::classObject().name();

TEST(SequentialCoderTest, AnObjectIsItsClassNameFollowedByItsFields) {
    SequentialEncoder encoder;

    encoder.encodeObject(chainOf(2));
    encoder.encodeUnsignedInt32(4'294'967'295);

    EXPECT_EQ(encoder.values(), (std::vector<Value>{kLinkName, kLinkName, nullptr, 0, 1,
                                                    std::uint32_t{4'294'967'295}}));
}

TEST(SequentialCoderTest, ADecoderGivesBackWhatWasEncoded) {
    SequentialEncoder encoder;
    encoder.encodeUnsignedInt32(7);
    encoder.encodeObject(chainOf(2));

    SequentialDecoder decoder(encoder.values());

    EXPECT_EQ(decoder.decodeUnsignedInt32(), 7U);
    const auto decoded = decoder.decodeObject().object<Link>();
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->number(), 1U);
    ASSERT_TRUE(decoded->before());
    EXPECT_EQ(decoded->before()->number(), 0U);
    EXPECT_FALSE(decoded->before()->before());
}

TEST(SequentialCoderTest, BytesAreGivenBackAsTheyWere) {
    const std::string_view bytes("a\0b\xFF", 4);
    SequentialEncoder encoder;

    encoder.encodeBytes(bytes);

    SequentialDecoder decoder(encoder.values());
    EXPECT_EQ(decoder.decodeBytes(), bytes);
}

TEST(SequentialCoderTest, TheDeepestChainAllowedIsCoded) {
    SequentialEncoder encoder;
    encoder.encodeObject(chainOf(kSequentialDepthMax));

    SequentialDecoder decoder(encoder.values());

    EXPECT_TRUE(decoder.decodeObject().object<Link>());
}

TEST(SequentialCoderTest, AChainOneDeeperIsRefusedByTheEncoder) {
    SequentialEncoder encoder;

    EXPECT_THROW(encoder.encodeObject(chainOf(kSequentialDepthMax + 1)), NSException);
}

TEST(SequentialCoderTest, AChainOneDeeperIsRefusedByTheDecoder) {
    SequentialDecoder decoder(std::vector<Value>(kSequentialDepthMax + 1, kLinkName));

    EXPECT_THROW(static_cast<void>(decoder.decodeObject()), NSException);
}

TEST(SequentialCoderTest, ReadingBeyondTheEndThrows) {
    SequentialDecoder decoder({});

    EXPECT_THROW(static_cast<void>(decoder.decodeObject()), NSException);
    EXPECT_THROW(static_cast<void>(decoder.decodeUnsignedInt32()), NSException);
}

TEST(SequentialCoderTest, AClassThatNobodyRegisteredThrows) {
    SequentialDecoder decoder({"NoSuchClass"});

    EXPECT_THROW(static_cast<void>(decoder.decodeObject()), NSException);
}

TEST(SequentialCoderTest, AClassThatCannotBeArchivedThrows) {
    SequentialDecoder decoder({Object::classObject().name()});

    EXPECT_THROW(static_cast<void>(decoder.decodeObject()), NSException);
}

TEST(SequentialCoderTest, AValueOfAnotherKindThrows) {
    SequentialDecoder numberForObject({1});
    EXPECT_THROW(static_cast<void>(numberForObject.decodeObject()), NSException);

    SequentialDecoder objectForNumber({nullptr});
    EXPECT_THROW(static_cast<void>(objectForNumber.decodeUnsignedInt32()), NSException);

    SequentialDecoder tooLarge({std::uint64_t{1} << 32});
    EXPECT_THROW(static_cast<void>(tooLarge.decodeUnsignedInt32()), NSException);
}

TEST(SequentialCoderTest, ValuesOfEveryKindAreObjectsToo) {
    const auto line = chainOf(1);
    const Value value = Dictionary{{"numbers", ValueArray{1, true, 0.5, UINT64_MAX, -1}},
                                   {7, Set({"a", "b"})},
                                   {"data", Data{"x"}},
                                   {"date", NSDate::dateWithTimeIntervalSinceReferenceDate(1.5)},
                                   {"nothing", nullptr},
                                   {"object", line}};
    SequentialEncoder encoder;
    encoder.encodeObject(value);
    encoder.encodeBytes("behind");

    SequentialDecoder decoder(encoder.values());
    const Value decoded = decoder.decodeObject();

    ASSERT_TRUE(decoded.ifDictionary());
    ASSERT_TRUE(decoded.ifDictionary()->find("object"));
    EXPECT_TRUE(decoded.ifDictionary()->find("object")->object<Link>());
    Dictionary expected = *value.ifDictionary();
    expected.set("object", *decoded.ifDictionary()->find("object"));
    EXPECT_EQ(decoded, Value(expected));
    EXPECT_EQ(decoder.decodeBytes(), "behind");
}

TEST(SequentialCoderTest, MembersThatAreNotThereAreRefusedBeforeAnyIsRead) {
    SequentialDecoder array({"NSArray", 4'294'967'295});
    EXPECT_THROW(static_cast<void>(array.decodeObject()), NSException);

    SequentialDecoder dictionary({"NSDictionary", 2, nullptr, nullptr, nullptr});
    EXPECT_THROW(static_cast<void>(dictionary.decodeObject()), NSException);
}

// What a decoder says of these values when asked for the object that they should be.
std::string refusalOf(std::vector<Value> values) {
    SequentialDecoder decoder(std::move(values));
    try {
        static_cast<void>(decoder.decodeObject());
    } catch (const NSException& exception) {
        EXPECT_EQ(exception.name(), NSInvalidUnarchiveOperationException);
        return exception.reason().value();
    }
    return "";
}

TEST(SequentialCoderTest, EveryRefusalHasItsReason) {
    const Value k = "NSString";
    const std::vector<std::pair<std::vector<Value>, std::string>> refusals = {
        {{}, "the sequence ends too early at value 0"},
        {{1}, "expected an object at value 1"},
        {{"NSNumber", "7"}, "expected a number at value 2"},
        {{"NSString", 7}, "a value of the wrong kind at value 2"},
        {{"NSArray", "x"}, "expected an unsigned 32-bit number at value 2"},
        {{"NSArray", 1}, "more members than values at value 2"},
        {{"NSDictionary", 1, k, "a"}, "the sequence ends too early at value 4"},
        {{"NSDictionary", 2, k, "a", nullptr, k, "a", nullptr},
         "a key that stands twice at value 8"},
        {{"NSUUID", "x"}, "cannot decode an object of this class in sequence at value 1"},
        {std::vector<Value>(kSequentialDepthMax + 1, kLinkName),
         "objects nested too deep at value"}};
    for (const auto& [values, reason] : refusals)
        EXPECT_THAT(refusalOf(values), testing::HasSubstr(": " + reason));
}

TEST(SequentialCoderTest, TextIsNotTakenForBytes) {
    SequentialDecoder text({"text"});
    try {
        static_cast<void>(text.decodeBytes());
        FAIL() << "text was taken for bytes";
    } catch (const NSException& exception) {
        EXPECT_THAT(exception.reason().value(), testing::HasSubstr(": expected bytes at value 1"));
    }
}

TEST(SequentialCoderTest, ARefusalIsTheUnarchiversAndNamesThePlace) {
    SequentialDecoder decoder({nullptr, "NoSuchClass"});
    static_cast<void>(decoder.decodeObject());

    try {
        static_cast<void>(decoder.decodeObject());
        FAIL() << "an unknown class was decoded";
    } catch (const NSException& exception) {
        EXPECT_EQ(exception.name(), NSInvalidUnarchiveOperationException);
        EXPECT_EQ(exception.reason(),
                  "*** -[NSCoder decodeObject]: cannot decode object of class (NoSuchClass) at "
                  "value 2 of the sequence");
    }
}

TEST(SequentialCoderTest, AClassWithoutASequentialFormIsRefused) {
    for (const char* name : {"NSURL", "NSUUID", "NSNull"}) {
        SequentialDecoder decoder({name, "x"});
        EXPECT_THROW(static_cast<void>(decoder.decodeObject()), NSException) << name;
    }
}

TEST(SequentialCoderTest, WhatStandsForAnObjectIsWrittenAsThatObject) {
    const auto exception = std::make_shared<ExceptionObject>("IO", "no reason", std::nullopt);
    SequentialEncoder direct;
    SequentialEncoder byReference;

    direct.encodeObject(exception);
    byReference.encodeObject(std::make_shared<ExceptionReference>(exception));

    EXPECT_EQ(byReference.values(), direct.values());
}

TEST(SequentialCoderTest, AnExceptionThatReachesItselfHasNoSequence) {
    const auto exception = NSException::exceptionWithNameReasonUserInfo("IO", "no reason");
    exception.object()->setUserInfoValueForKey(exception.object(), "Cause");
    SequentialEncoder encoder;

    EXPECT_THROW(encoder.encodeObject(exception.object()), NSException);
}

TEST(SequentialCoderDeathTest, TheKeyedCallsAreRefusedAsABug) {
    SequentialEncoder encoder;

    EXPECT_FALSE(encoder.allowsKeyedCoding());
    EXPECT_DEATH(encoder.encodeInt32ForKey(1, "key"), "does not encode under keys");
}

TEST(SequentialCoderDeathTest, AnEncoderDoesNotDecode) {
    SequentialEncoder encoder;

    EXPECT_DEATH(static_cast<void>(encoder.decodeObject()), "does not decode in sequence");
}

TEST(SequentialCoderDeathTest, AnObjectThatCannotBeArchivedIsRefusedAsABug) {
    SequentialEncoder encoder;

    EXPECT_DEATH(encoder.encodeObject(std::make_shared<Object>()), "can be archived");
}

}  // namespace
}  // namespace sevrin::platform
