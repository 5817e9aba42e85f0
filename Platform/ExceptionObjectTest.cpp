// Tests of how exceptions and errors are read from coders: by key, in order, and from contents that
// no exception has.
#include "Platform/ExceptionObject.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/NSError.h"
#include "Platform/NSException.h"

namespace sevrin::platform {
namespace {

// A coder whose contents the test says.
class ListedCoder : public NSCoder {
public:
    bool allowsKeyedCoding() const override { return isKeyed; }
    bool containsValueForKey(std::string_view key) override {
        return keyed.contains(std::string(key));
    }
    Value decodeObjectForKey(std::string_view key) override { return keyed[std::string(key)]; }
    std::int64_t decodeInt64ForKey(std::string_view key) override {
        return *keyed[std::string(key)].ifSigned();
    }
    Value decodeObject() override { return next == sequence.size() ? Value() : sequence[next++]; }
    void failDecoding(std::string_view what) override {
        throw std::domain_error(std::string(what));
    }
    void encodeObject(const Value& value) override { sequence.push_back(value); }
    void encodeObjectForKey(const Value& value, std::string_view key) override {
        keyed[std::string(key)] = value;
    }
    void encodeInt64ForKey(std::int64_t number, std::string_view key) override {
        keyed[std::string(key)] = number;
    }

    bool isKeyed = true;
    std::map<std::string, Value> keyed;
    std::vector<Value> sequence;
    std::size_t next = 0;
};

// What the coder was told when it refused; empty when it did not.
template <typename Decode>
std::string whatIsThrown(Decode decode) {
    try {
        decode();
    } catch (const std::domain_error& refusal) {
        return refusal.what();
    }
    return "";
}

std::shared_ptr<ExceptionObject> decoded(ListedCoder& coder) {
    return std::dynamic_pointer_cast<ExceptionObject>(
        NSCodingClass::named("NSException")->initWithCoder(coder));
}

TEST(ExceptionObjectTest, IsWrittenUnderThreeKeys) {
    ListedCoder coder;
    ExceptionObject("IO", std::nullopt, std::nullopt).encodeWithCoder(coder);

    EXPECT_EQ(coder.keyed,
              (std::map<std::string, Value>{
                  {"NS.name", "IO"}, {"NS.reason", Value()}, {"NS.userinfo", Value()}}));
}

TEST(ExceptionObjectTest, IsReadByItsKeys) {
    ListedCoder coder;
    coder.keyed = {{"NS.name", "IO"}, {"NS.reason", "why"}, {"NS.userinfo", Dictionary{{"a", 1}}}};

    const auto exception = decoded(coder);

    EXPECT_EQ(exception->name(), "IO");
    EXPECT_EQ(exception->reason(), "why");
    EXPECT_EQ(exception->userInfo(), (Dictionary{{"a", 1}}));
}

TEST(ExceptionObjectTest, IsReadInOrderFromAWriterWithoutKeys) {
    ListedCoder coder;
    coder.sequence = {"IO", "why", Dictionary{{"a", 1}}};

    const auto exception = decoded(coder);

    EXPECT_EQ(exception->name(), "IO");
    EXPECT_EQ(exception->reason(), "why");
    EXPECT_EQ(exception->userInfo(), (Dictionary{{"a", 1}}));
}

TEST(ExceptionObjectTest, ASequentialCoderHasNameReasonUserInfo) {
    ListedCoder coder;
    coder.isKeyed = false;
    ExceptionObject("IO", "why", Dictionary{{"a", 1}}).encodeWithCoder(coder);

    EXPECT_EQ(coder.sequence, (std::vector<Value>{"IO", "why", Dictionary{{"a", 1}}}));
    EXPECT_EQ(decoded(coder)->reason(), "why");
}

TEST(ExceptionObjectTest, WithoutANameItIsAGenericOne) {
    ListedCoder coder;

    const auto exception = decoded(coder);

    EXPECT_EQ(exception->name(), NSGenericException);
    EXPECT_EQ(exception->reason(), std::nullopt);
    EXPECT_FALSE(exception->hasUserInfo());
}

TEST(ExceptionObjectTest, PartsOfAnotherKindAreRefused) {
    const auto refusalOf = [](std::string_view key) {
        ListedCoder coder;
        coder.keyed = {{std::string(key), 5}};
        return whatIsThrown([&] { static_cast<void>(decoded(coder)); });
    };

    EXPECT_EQ(refusalOf("NS.name"), "the name of an exception is no text");
    EXPECT_EQ(refusalOf("NS.reason"), "the reason of an exception is no text");
    EXPECT_EQ(refusalOf("NS.userinfo"), "the user info of an exception is no dictionary");
}

TEST(ExceptionObjectTest, ABackReferenceStandsForTheExceptionWithoutOwningIt) {
    const auto* const steps = NSCodingClass::named("NSException")->twoSteps();
    ASSERT_NE(steps, nullptr);
    ObjectPtr exception = steps->allocate();
    const std::weak_ptr<Object> watched = exception;
    ListedCoder coder;
    const auto reference =
        std::dynamic_pointer_cast<ExceptionReference>(steps->backReference(exception));
    coder.keyed = {{"NS.userinfo", Dictionary{{"Cause", reference}}}};

    steps->fill(*exception, coder);

    EXPECT_EQ(reference->replacementObjectForCoder(coder), Value(exception));
    exception.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(reference->replacementObjectForCoder(coder), Value());
}

TEST(ExceptionObjectTest, ABackReferenceEqualsItsExceptionAndItsLike) {
    auto exception = std::make_shared<ExceptionObject>();
    const auto other = std::make_shared<ExceptionObject>();
    const ExceptionReference reference(exception);
    const ExceptionReference second(exception);

    EXPECT_TRUE(reference.isEqual(*exception));
    EXPECT_TRUE(exception->isEqual(reference));
    EXPECT_EQ(reference.hash(), exception->hash());
    EXPECT_FALSE(reference.isEqual(*other));
    EXPECT_FALSE(other->isEqual(reference));
    EXPECT_FALSE(exception->isEqual(*other));

    const std::size_t hash = reference.hash();
    exception.reset();
    EXPECT_TRUE(reference.isEqual(second));
    EXPECT_EQ(reference.hash(), hash);
    EXPECT_FALSE(reference.isEqual(ExceptionReference(other)));
}

TEST(ExceptionObjectTest, AnErrorIsReadAsItWasWritten) {
    for (const bool isKeyed : {true, false}) {
        ListedCoder coder;
        coder.isKeyed = isKeyed;
        const auto error = NSError::errorWithDomainCodeUserInfo("test", -7, Dictionary{{"a", 1}});
        error->encodeWithCoder(coder);

        EXPECT_TRUE(NSError::initWithCoder(coder)->isEqual(*error)) << isKeyed;
    }
}

TEST(ExceptionObjectTest, AnErrorWithoutADomainIsRefused) {
    ListedCoder coder;
    coder.keyed = {{"NSCode", 1}};

    EXPECT_EQ(whatIsThrown([&] { static_cast<void>(NSError::initWithCoder(coder)); }),
              "the domain of an error is no text");
}

TEST(ExceptionObjectTest, AnErrorWithPartsOfAnotherKindIsRefused) {
    ListedCoder info;
    info.keyed = {{"NSDomain", "test"}, {"NSCode", 1}, {"NSUserInfo", ValueArray()}};
    EXPECT_EQ(whatIsThrown([&] { static_cast<void>(NSError::initWithCoder(info)); }),
              "the user info of an error is no dictionary");

    ListedCoder code;
    code.isKeyed = false;
    code.sequence = {"test", "1", nullptr};
    EXPECT_EQ(whatIsThrown([&] { static_cast<void>(NSError::initWithCoder(code)); }),
              "the code of an error is no number");
}

}  // namespace
}  // namespace sevrin::platform
