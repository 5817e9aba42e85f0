// Tests of log line identifiers: issuing, text, order, hash.
#include "Common/Source/Utilities/LogLineIdentifier.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Class.h"

namespace sevrin {
namespace {

LogLineIdentifierPtr parse(std::string_view text) {
    return LogLineIdentifier::logLineIdentifierFromString(text);
}

std::string reprint(std::string_view text) {
    const LogLineIdentifierPtr parsed = parse(text);
    return parsed ? parsed->description() : "none";
}

int order(std::string_view left, std::string_view right) {
    return parse(left)->compare(parse(right));
}

bool contains(std::string_view outer, std::string_view inner) {
    return parse(outer)->containsIdentifier(parse(inner));
}

TEST(LogLineIdentifierTest, ANewIdentifierHasNoChildrenAndNoClassifications) {
    const auto identifier = LogLineIdentifier::initExtendingWithID(nullptr, 8);

    EXPECT_EQ(identifier->parent(), nullptr);
    EXPECT_EQ(identifier->sequence(), 8U);
    EXPECT_EQ(identifier->count(), 0U);
    EXPECT_EQ(identifier->classifications(), 0U);
    EXPECT_EQ(identifier->depth(), 0U);
}

TEST(LogLineIdentifierTest, ChildrenAreNumberedFromOne) {
    const auto application = LogLineIdentifier::initExtendingWithID(nullptr, 8);

    EXPECT_EQ(application->description(), "8");
    EXPECT_EQ(LogLineIdentifier::next(application)->description(), "8.1");
    EXPECT_EQ(LogLineIdentifier::next(application)->description(), "8.2");
    EXPECT_EQ(application->count(), 2U);
}

TEST(LogLineIdentifierTest, AChildOwnsItsParent) {
    auto parent = LogLineIdentifier::initExtendingWithID(nullptr, 8);
    const auto child = LogLineIdentifier::next(parent);
    const std::weak_ptr<LogLineIdentifier> watched = parent;

    EXPECT_EQ(child->parent(), parent);
    parent.reset();

    EXPECT_FALSE(watched.expired());
    EXPECT_EQ(child->description(), "8.1");
}

TEST(LogLineIdentifierTest, ThreadsThatAskAtOnceGetDifferentNumbers) {
    constexpr std::uint64_t kChildrenPerThread = 5'000;
    const auto line = parse("8.1");
    std::vector<std::vector<std::uint64_t>> numbers(4);
    std::vector<std::thread> threads;
    for (auto& mine : numbers) {
        threads.emplace_back([&line, &mine] {
            for (std::uint64_t i = 0; i < kChildrenPerThread; ++i) {
                const auto child = LogLineIdentifier::next(line);
                const std::string text = child->description();
                mine.push_back(std::stoull(text.substr(text.rfind('.') + 1)));
            }
        });
    }
    for (auto& thread : threads)
        thread.join();

    std::vector<std::uint64_t> all;
    for (const auto& mine : numbers)
        all.insert(all.end(), mine.begin(), mine.end());
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), 4 * kChildrenPerThread);
    for (std::uint64_t i = 0; i < all.size(); ++i)
        ASSERT_EQ(all[i], i + 1);
}

TEST(LogLineIdentifierTest, DepthCountsAncestors) {
    EXPECT_EQ(parse("8")->depth(), 0U);
    EXPECT_EQ(parse("8.1.2")->depth(), 2U);
}

TEST(LogLineIdentifierTest, TheApplicationIsTheTopmostNumber) {
    EXPECT_EQ(parse("8")->application(), 8);
    EXPECT_EQ(parse("8.1.2")->application(), 8);
}

TEST(LogLineIdentifierTest, TheApplicationIsSignedAnd32BitsWide) {
    EXPECT_EQ(parse("4294967295.1")->application(), -1);
    EXPECT_EQ(parse("4294967304.1")->application(), 8);
}

TEST(LogLineIdentifierTest, AnAncestorIsFoundByItsDepth) {
    const auto line = parse("8.1.2");

    EXPECT_EQ(LogLineIdentifier::parentIdentifierWithDepth(line, 0)->description(), "8");
    EXPECT_EQ(LogLineIdentifier::parentIdentifierWithDepth(line, 1), line->parent());
}

TEST(LogLineIdentifierTest, AtItsOwnDepthAndBelowAnIdentifierIsItsOwnAncestor) {
    const auto line = parse("8.1.2");

    EXPECT_EQ(LogLineIdentifier::parentIdentifierWithDepth(line, 2), line);
    EXPECT_EQ(LogLineIdentifier::parentIdentifierWithDepth(line, 5), line);
    EXPECT_EQ(LogLineIdentifier::parentIdentifierWithDepth(line, UINT64_MAX), line);
}

TEST(LogLineIdentifierTest, ALineContainsWhatLiesBelowIt) {
    EXPECT_TRUE(contains("8.1", "8.1.2"));
    EXPECT_TRUE(contains("8.1", "8.1.2.7"));
    EXPECT_TRUE(contains("8", "8.1"));
}

TEST(LogLineIdentifierTest, ALineDoesNotContainItselfItsNeighboursOrItsParent) {
    EXPECT_FALSE(contains("8.1", "8.1"));
    EXPECT_FALSE(contains("8.1", "8.2.1"));
    EXPECT_FALSE(contains("8.1", "8"));
    EXPECT_FALSE(contains("8.1", "9.1.2"));
    EXPECT_FALSE(parse("8.1")->containsIdentifier(nullptr));
    const auto line = parse("8.1");
    EXPECT_FALSE(line->containsIdentifier(line));
}

TEST(LogLineIdentifierTest, LessDeepComesFirstWhateverTheNumbers) {
    EXPECT_EQ(order("8.5", "8.1.1"), -1);
    EXPECT_EQ(order("8.1.1", "8.5"), 1);
    EXPECT_EQ(order("9", "8.1"), -1);
}

TEST(LogLineIdentifierTest, AtEqualDepthTheTopmostDifferenceDecides) {
    EXPECT_EQ(order("8.1.2", "8.1.1"), 1);
    EXPECT_EQ(order("8.1.1", "8.1.2"), -1);
    EXPECT_EQ(order("8.2.1", "8.1.9"), 1);
    EXPECT_EQ(order("7.9.9", "8.1.1"), -1);
    EXPECT_EQ(order("8.1.2", "8.1.2"), 0);
}

TEST(LogLineIdentifierTest, NumbersCompareUnsigned) {
    EXPECT_EQ(order("18446744073709551615", "1"), 1);
}

TEST(LogLineIdentifierTest, NothingComesBeforeEverything) {
    EXPECT_EQ(parse("0")->compare(nullptr), 1);
}

TEST(LogLineIdentifierTest, SeparatelyBuiltIdentifiersAreEqualAndHashAlike) {
    const auto one = parse("8.1.2");
    const auto other = LogLineIdentifier::initExtendingWithID(parse("8.1"), 2);

    EXPECT_TRUE(one->isEqual(*other));
    EXPECT_EQ(one->hash(), other->hash());
}

TEST(LogLineIdentifierTest, ChildrenAndClassificationsDoNotChangeEquality) {
    const auto one = parse("8.1");
    const auto other = parse("8.1");

    static_cast<void>(LogLineIdentifier::next(other));
    other->addClassification(LogClassification::Failure);

    EXPECT_TRUE(one->isEqual(*other));
    EXPECT_EQ(one->hash(), other->hash());
}

TEST(LogLineIdentifierTest, IdentifiersThatDifferInANumberOrInDepthAreNotEqual) {
    for (const char* other : {"8.1.3", "8.2.2", "9.1.2", "8.1", "8.1.2.1"})
        EXPECT_FALSE(parse("8.1.2")->isEqual(*parse(other))) << other;
}

TEST(LogLineIdentifierTest, AnObjectOfAnotherClassIsNotEqual) {
    const platform::Object other;

    EXPECT_FALSE(parse("8")->isEqual(other));
}

TEST(LogLineIdentifierTest, TheHashOfATopIdentifierIsItsNumberInTwoPlaces) {
    EXPECT_EQ(parse("8")->hash(), (std::uint64_t{8} << 48) ^ (8U << 2));
    EXPECT_EQ(parse("65536")->hash(), 65'536U << 2);  // The upper place has 16 bits.
}

TEST(LogLineIdentifierTest, AncestorsHashInStepsOfThreeFromThe45thBit) {
    const std::uint64_t expected = (std::uint64_t{2} << 48) ^ (2U << 2) ^  //
                                   (std::uint64_t{1} << 45) ^ (std::uint64_t{8} << 42);

    EXPECT_EQ(parse("8.1.2")->hash(), expected);
}

TEST(LogLineIdentifierTest, TheSixteenthAncestorHashesUnshiftedAndTheNextBeginsAgainAt48) {
    // Only two numbers above are not zero: the 17th ancestor (3) and the 16th (5).
    const auto line = parse("3.5.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0");
    ASSERT_EQ(line->depth(), 17U);

    EXPECT_EQ(line->hash(), (std::uint64_t{3} << 48) ^ 5U);
}

TEST(LogLineIdentifierTest, TheSecondRoundOfShiftsGoesOnAt45) {
    const auto line = parse("7.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0");
    ASSERT_EQ(line->depth(), 18U);

    EXPECT_EQ(line->hash(), std::uint64_t{7} << 45);
}

TEST(LogLineIdentifierTest, ParsedTextPrintsAsItWas) {
    EXPECT_EQ(reprint("12.0.3"), "12.0.3");
    EXPECT_EQ(reprint("8.73957130.412.5.2"), "8.73957130.412.5.2");
    EXPECT_EQ(reprint("8.9.10.11.99.100.101.1000"), "8.9.10.11.99.100.101.1000");
    EXPECT_EQ(reprint("18446744073709551615.1"), "18446744073709551615.1");
}

TEST(LogLineIdentifierTest, EmptyTextIsNoIdentifier) {
    EXPECT_EQ(parse(""), nullptr);
}

TEST(LogLineIdentifierTest, AFinalPointAddsNothing) {
    EXPECT_EQ(reprint("8.5."), "8.5");
}

TEST(LogLineIdentifierTest, APointWithoutANumberBeforeItIsAZero) {
    EXPECT_EQ(reprint("8..5"), "8.0.5");
    EXPECT_EQ(reprint(".5"), "0.5");
    EXPECT_EQ(reprint("."), "0");
    EXPECT_EQ(reprint("8.."), "8.0");
}

TEST(LogLineIdentifierTest, LeadingZerosAreNotKept) {
    EXPECT_EQ(reprint("08.005"), "8.5");
}

TEST(LogLineIdentifierTest, AnyCharacterCountsAsADigitByItsCode) {
    EXPECT_EQ(parse("a")->sequence(), 49U);
    EXPECT_EQ(parse("1:")->sequence(), 20U);
    EXPECT_EQ(parse("/")->sequence(), UINT64_MAX);
    EXPECT_EQ(parse("\xC3\xA4")->sequence(), 0xE4U - 48);
    EXPECT_EQ(parse("\xFF")->sequence(), 0xFFU - 48);
    EXPECT_EQ(parse("\xEF\xBF\xBF")->sequence(), 0xFFFFU - 48);
}

TEST(LogLineIdentifierTest, ACharacterBeyondSixteenBitsCountsAsTwo) {
    EXPECT_EQ(parse("\xF0\x9F\x98\x80")->sequence(), (0xD83DU - 48) * 10 + (0xDE00U - 48));
}

TEST(LogLineIdentifierTest, ANumberTooLongWrapsAround) {
    EXPECT_EQ(parse("18446744073709551617")->sequence(), 1U);
}

TEST(LogLineIdentifierTest, TextIsAppended) {
    std::string text = "[";

    parse("8.1.2")->appendIdentifierToString(text);

    EXPECT_EQ(text, "[8.1.2");
}

TEST(LogLineIdentifierTest, TextIsTheSameBeforeAndAfterTheParentKeepsItsOwn) {
    const auto root = parse("8.73957130.412");
    const auto first = LogLineIdentifier::next(root);
    const auto grandchild = LogLineIdentifier::next(first);
    EXPECT_EQ(first->description(), "8.73957130.412.1");

    const auto second = LogLineIdentifier::next(root);

    EXPECT_EQ(second->description(), "8.73957130.412.2");
    EXPECT_EQ(first->description(), "8.73957130.412.1");
    EXPECT_EQ(grandchild->description(), "8.73957130.412.1.1");
    EXPECT_EQ(root->description(), "8.73957130.412");
}

TEST(LogLineIdentifierTest, EachClassificationHasItsBit) {
    const auto line = parse("8.1");

    line->addClassification(LogClassification::Plain);
    line->addClassification(LogClassification::Failure);
    line->addClassification(LogClassification::Debug);
    line->addClassification(LogClassification::Debug);

    EXPECT_EQ(line->classifications(), 1U << 0 | 1U << 5 | 1U << 9);
}

TEST(LogLineIdentifierTest, ANegativeClassificationSetsNoBit) {
    const auto line = parse("8.1");

    line->addClassification(LogClassification::Preferred);

    EXPECT_EQ(line->classifications(), 0U);
}

TEST(LogLineIdentifierTest, TheClassIsKnownByName) {
    EXPECT_EQ(platform::NSCodingClass::named("LogLineIdentifier"),
              &LogLineIdentifier::classObject());
    EXPECT_EQ(parse("8")->isa().name(), "LogLineIdentifier");
    EXPECT_TRUE(LogLineIdentifier::supportsSecureCoding());
}

}  // namespace
}  // namespace sevrin
