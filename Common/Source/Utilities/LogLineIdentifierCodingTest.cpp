// Tests of archived log line identifiers, in the keyed and in the sequential form.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "Common/Source/Utilities/LogLineIdentifier.h"
#include "Platform/NSException.h"
#include "Platform/NSKeyedArchiver.h"
#include "Platform/NSKeyedUnarchiver.h"
#include "Platform/SequentialCoder.h"

namespace sevrin {
namespace {

using platform::Class;
using platform::NSCoder;
using platform::NSCodingClass;
using platform::ObjectPtr;
using platform::SequentialDecoder;
using platform::SequentialEncoder;
using platform::Value;

// The fields of one object by key; objects within it are kept as they are.
class KeyedCoder final : public NSCoder {
public:
    bool allowsKeyedCoding() const override { return true; }

    void encodeObjectForKey(const Value& object, std::string_view key) override {
        values.emplace(key, object);
    }
    void encodeInt32ForKey(std::int32_t number, std::string_view key) override {
        values.emplace(key, number);
        widths.emplace(key, 32);
    }
    void encodeInt64ForKey(std::int64_t number, std::string_view key) override {
        values.emplace(key, number);
        widths.emplace(key, 64);
    }
    ObjectPtr decodeObjectOfClassForKey(const Class& expected, std::string_view key) override {
        const ObjectPtr object = values[std::string(key)].object();
        if (object && !object->isa().isSubclassOf(expected)) throw std::runtime_error("class");
        return object;
    }
    std::int32_t decodeInt32ForKey(std::string_view key) override {
        return static_cast<std::int32_t>(decodeInt64ForKey(key));
    }
    std::int64_t decodeInt64ForKey(std::string_view key) override {
        const std::int64_t* number = values[std::string(key)].ifSigned();
        return number == nullptr ? 0 : *number;
    }

    std::map<std::string, Value> values;
    std::map<std::string, int> widths;
};

// 8.1.<sequence> with two children issued, of the classifications 5 and 9.
LogLineIdentifierPtr sampleLine(std::uint64_t sequence) {
    const auto line = LogLineIdentifier::initExtendingWithID(
        LogLineIdentifier::logLineIdentifierFromString("8.1"), sequence);
    static_cast<void>(LogLineIdentifier::next(line));
    static_cast<void>(LogLineIdentifier::next(line));
    line->addClassification(LogClassification::Failure);
    line->addClassification(LogClassification::Debug);
    return line;
}

constexpr int kSampleClassifications = 1 << 5 | 1 << 9;

TEST(LogLineIdentifierCodingTest, TheKeyedFormHasTheFourFields) {
    const auto line = sampleLine(3);
    KeyedCoder coder;

    line->encodeWithCoder(coder);

    const std::map<std::string, Value> expected = {{"parent", line->parent()},
                                                   {"classmap", kSampleClassifications},
                                                   {"seq", 3},
                                                   {"subseq", 2}};
    EXPECT_EQ(coder.values, expected);
    EXPECT_EQ(coder.widths,
              (std::map<std::string, int>{{"classmap", 32}, {"seq", 64}, {"subseq", 64}}));
}

TEST(LogLineIdentifierCodingTest, ATopIdentifierIsArchivedWithoutAParent) {
    KeyedCoder coder;

    LogLineIdentifier::initExtendingWithID(nullptr, 8)->encodeWithCoder(coder);

    EXPECT_TRUE(coder.values.at("parent").isNull());
    EXPECT_EQ(LogLineIdentifier::initWithCoder(coder)->description(), "8");
}

TEST(LogLineIdentifierCodingTest, TheKeyedFormGivesBackEveryField) {
    for (const std::uint64_t sequence : {std::uint64_t{3}, std::uint64_t{1} << 32, UINT64_MAX}) {
        KeyedCoder coder;
        const auto line = sampleLine(sequence);

        line->encodeWithCoder(coder);
        const auto decoded = LogLineIdentifier::initWithCoder(coder);

        EXPECT_TRUE(decoded->isEqual(*line));
        EXPECT_EQ(decoded->sequence(), sequence);
        EXPECT_EQ(decoded->count(), 2U);
        EXPECT_EQ(decoded->classifications(), kSampleClassifications);
    }
}

TEST(LogLineIdentifierCodingTest, ADecodedLineGoesOnCountingItsChildren) {
    KeyedCoder coder;
    sampleLine(3)->encodeWithCoder(coder);

    EXPECT_EQ(LogLineIdentifier::next(LogLineIdentifier::initWithCoder(coder))->description(),
              "8.1.3.3");
}

TEST(LogLineIdentifierCodingTest, AllSixteenBitsOfTheClassmapAreZeroExtended) {
    KeyedCoder coder;
    coder.encodeInt32ForKey(0xFFFF, "classmap");
    const auto line = LogLineIdentifier::initWithCoder(coder);
    KeyedCoder again;

    line->encodeWithCoder(again);

    EXPECT_EQ(line->classifications(), 0xFFFF);
    EXPECT_EQ(again.values.at("classmap"), Value(0xFFFF));
}

TEST(LogLineIdentifierCodingTest, AParentOfAnotherClassIsRefused) {
    KeyedCoder coder;
    coder.encodeObjectForKey(std::make_shared<platform::Object>(), "parent");

    EXPECT_THROW(static_cast<void>(LogLineIdentifier::initWithCoder(coder)), std::runtime_error);
}

TEST(LogLineIdentifierCodingTest, TheSequentialFormIsTheParentAndThreeNumbersInOrder) {
    SequentialEncoder encoder;

    encoder.encodeObject(sampleLine(3));

    const Value name = "LogLineIdentifier";
    EXPECT_EQ(encoder.values(), (std::vector<Value>{name, name, name, nullptr, 0, 8, 0,  // 8
                                                    0, 1, 0,                             // 8.1
                                                    kSampleClassifications, 3, 2}));
}

TEST(LogLineIdentifierCodingTest, TheSequentialFormGivesBackAnEqualLine) {
    SequentialEncoder encoder;
    encoder.encodeObject(sampleLine(3));

    SequentialDecoder decoder(encoder.values());
    const auto decoded = decoder.decodeObject().object<LogLineIdentifier>();

    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->description(), "8.1.3");
    EXPECT_EQ(decoded->count(), 2U);
    EXPECT_EQ(decoded->classifications(), kSampleClassifications);
}

TEST(LogLineIdentifierCodingTest, TheSequentialFormLosesTheHighBitsOfTheCounters) {
    KeyedCoder source;
    source.encodeInt64ForKey((std::int64_t{5} << 32) + 7, "seq");
    source.encodeInt64ForKey((std::int64_t{6} << 32) + 9, "subseq");
    SequentialEncoder encoder;
    encoder.encodeObject(LogLineIdentifier::initWithCoder(source));

    SequentialDecoder decoder(encoder.values());
    const auto decoded = decoder.decodeObject().object<LogLineIdentifier>();

    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->sequence(), 7U);
    EXPECT_EQ(decoded->count(), 9U);
}

TEST(LogLineIdentifierCodingTest, AnArchiveGivesBackAnEqualLine) {
    const auto line = sampleLine(UINT64_MAX);
    const std::string archive = platform::NSKeyedArchiver::archivedDataWithRootObject(line);

    const auto decoded =
        platform::NSKeyedUnarchiver::unarchiveObjectWithData(archive).object<LogLineIdentifier>();

    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->isEqual(*line));
    EXPECT_EQ(decoded->count(), 2U);
    EXPECT_EQ(decoded->classifications(), kSampleClassifications);
}

TEST(LogLineIdentifierCodingTest, AVeryDeepLineIsArchivedAndReadBack) {
    LogLineIdentifierPtr line;
    for (std::uint64_t depth = 0; depth < 50'000; ++depth)
        line = LogLineIdentifier::initExtendingWithID(line, depth);
    const std::string archive = platform::NSKeyedArchiver::archivedDataWithRootObject(line);

    const auto decoded =
        platform::NSKeyedUnarchiver::unarchiveObjectWithData(archive).object<LogLineIdentifier>();

    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->isEqual(*line));
}

// A class that archives can name but that no line can lie in.
class Stranger final : public platform::Object {
public:
    static Class& classObject() {
        static NSCodingClass& theClass =
            *new NSCodingClass("LogLineIdentifierCodingTestStranger", &Object::classObject(),
                               [](NSCoder&) -> ObjectPtr { return std::make_shared<Stranger>(); });
        return theClass;
    }
};

TEST(LogLineIdentifierCodingTest, ASequenceWithAnotherObjectForAParentIsRefused) {
    SequentialDecoder decoder({"LogLineIdentifier", Stranger::classObject().name(), 0, 1, 0});

    try {
        static_cast<void>(decoder.decodeObject());
        FAIL() << "a line lies in a stranger";
    } catch (const platform::NSException& refusal) {
        EXPECT_EQ(refusal.name(), platform::NSInvalidUnarchiveOperationException);
        EXPECT_EQ(refusal.reason(),
                  "*** -[NSCoder decodeObject]: a log line lies in something else at value 5 of "
                  "the sequence");
    }
}

TEST(LogLineIdentifierCodingTest, ASequenceThatEndsEarlyIsRefused) {
    SequentialDecoder decoder({"LogLineIdentifier", nullptr, 0, 1});

    EXPECT_THROW(static_cast<void>(decoder.decodeObject()), platform::NSException);
}

}  // namespace
}  // namespace sevrin
