// Tests of reading keyed archives: what others write differently, and what is refused with which
// words.
#include "Platform/NSKeyedUnarchiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Platform/ArchivedURL.h"
#include "Platform/BinaryPropertyList.h"
#include "Platform/NSException.h"
#include "Platform/NSUUID.h"
#include "Platform/TestArchive.h"

namespace sevrin::platform {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

Value unarchived(const std::string& bytes) {
    return NSKeyedUnarchiver::unarchiveObjectWithData(bytes);
}

// Name and reason of the exception that refuses `bytes`; empty when they are taken.
struct Refusal {
    std::string name;
    std::string reason;
};

Refusal refusalOf(const std::string& bytes) {
    try {
        static_cast<void>(unarchived(bytes));
    } catch (const NSException& exception) {
        return {exception.name(), exception.reason().value()};
    }
    return {};
}

// Reads whatever a test wants from itself.
class Probe final : public Object {
public:
    static Class& classObject() {
        static NSCodingClass& theClass =
            *new NSCodingClass("UnarchiverTestProbe", &Object::classObject(), &initWithCoder);
        return theClass;
    }
    static ObjectPtr initWithCoder(NSCoder& coder) {
        auto probe = std::make_shared<Probe>();
        if (read) probe->value = read(coder);
        return probe;
    }
    const Class& isa() const override { return classObject(); }

    static inline std::function<Value(NSCoder&)> read;
    Value value;
};

class NSKeyedUnarchiverTest : public testing::Test {
protected:
    NSKeyedUnarchiverTest() { probeClass = archive.addClass(Probe::classObject().name()); }
    ~NSKeyedUnarchiverTest() override { Probe::read = nullptr; }

    // What a probe with these fields reads from itself.
    Value probed(TestArchive::Fields fields, std::function<Value(NSCoder&)> read) {
        Probe::read = std::move(read);
        const std::uint32_t root = archive.addObject(probeClass, std::move(fields));
        return unarchived(archive.bytes(root)).object<Probe>()->value;
    }
    Refusal probeRefusal(TestArchive::Fields fields, std::function<Value(NSCoder&)> read) {
        Probe::read = std::move(read);
        return refusalOf(archive.bytes(archive.addObject(probeClass, std::move(fields))));
    }

    // The refusal of an object of this class with these fields.
    Refusal objectRefusal(std::string_view className, TestArchive::Fields fields) {
        return refusalOf(archive.bytes(archive.addObject(archive.addClass(className), fields)));
    }

    TestArchive archive;
    std::uint32_t probeClass;
};

TEST_F(NSKeyedUnarchiverTest, WhatIsNoArchiveIsNamedByItsFirstBytes) {
    const Refusal refusal = refusalOf("bp\xff and more");

    EXPECT_EQ(refusal.name, NSInvalidArgumentException);
    EXPECT_THAT(refusal.reason,
                StartsWith("*** -[NSKeyedUnarchiver initForReadingWithData:]: incomprehensible "
                           "archive (0x62, 0x70, 0xffffffff, 0x20, 0x61, 0x6e, 0x64, 0x20)"));
    EXPECT_THAT(refusal.reason, HasSubstr("no binary property list at byte 0"));
}

TEST_F(NSKeyedUnarchiverTest, APropertyListThatIsNoArchiveIsRefused) {
    EXPECT_THAT(refusalOf(dataFromPropertyList(Dictionary{{"$version", 100'000}})).reason,
                HasSubstr("$archiver is not NSKeyedArchiver"));
    EXPECT_THAT(refusalOf(dataFromPropertyList(ValueArray())).reason,
                EndsWith(": the top object is no dictionary"));
}

TEST_F(NSKeyedUnarchiverTest, AnOuterDictionaryWithPartsOfAnotherKindIsRefused) {
    Dictionary outer = {{"$version", 100'000},
                        {"$archiver", "NSKeyedArchiver"},
                        {"$top", Dictionary()},
                        {"$objects", ValueArray{"$null"}}};
    const auto refusalWith = [&outer](std::string_view key, Value value) {
        Dictionary changed = outer;
        changed.set(key, std::move(value));
        return refusalOf(dataFromPropertyList(changed)).reason;
    };

    EXPECT_EQ(refusalWith("$version", 100'000), "");
    EXPECT_THAT(refusalWith("$version", "100000"), EndsWith(": $version is not 100000"));
    EXPECT_THAT(refusalWith("$archiver", 7), EndsWith(": $archiver is not NSKeyedArchiver"));
    EXPECT_THAT(refusalWith("$top", 7), EndsWith(": $top is no dictionary"));
    EXPECT_THAT(refusalWith("$objects", 7), EndsWith(": $objects is no array"));
    EXPECT_THAT(refusalWith("$objects", ValueArray()), EndsWith(": $objects is empty"));
    EXPECT_THAT(refusalWith("$objects", ValueArray{7}),
                EndsWith(": $objects does not begin with $null"));
}

TEST_F(NSKeyedUnarchiverTest, ARootThatIsNoReferenceIsRefused) {
    const Refusal refusal =
        refusalOf(archive.bytes({{"$objects", archive.objects()},
                                 {"$top", archive.dictionary({{"root", archive.text("x")}})},
                                 {"$archiver", archive.text("NSKeyedArchiver")},
                                 {"$version", archive.number(100'000)}}));

    EXPECT_EQ(refusal.name, NSInvalidUnarchiveOperationException);
    EXPECT_THAT(refusal.reason, HasSubstr("no reference to an object for key (root) in $top"));
}

TEST_F(NSKeyedUnarchiverTest, WhatIsNeitherAnObjectNorAValueIsRefused) {
    for (const auto node : {archive.uids({}), archive.uid(1)}) {
        TestArchive other = archive;
        const Refusal refusal = refusalOf(other.bytes(other.add(node)));

        EXPECT_EQ(refusal.name, NSInvalidUnarchiveOperationException);
        EXPECT_THAT(refusal.reason, HasSubstr("neither an object nor a value in object 2"));
    }
}

TEST_F(NSKeyedUnarchiverTest, AnObjectWhoseClassIsNoneIsRefused) {
    const std::vector<TestArchive::Fields> objects = {
        {},
        {{"$class", archive.text("NSArray")}},
        {{"$class", archive.uid(0)}},
        {{"$class", archive.uid(1'000)}},
        {{"$class", archive.uid(archive.add(archive.text("NSArray")))}},
        {{"$class", archive.uid(archive.add(archive.dictionary({})))}},
        {{"$class",
          archive.uid(archive.add(archive.dictionary({{"$classname", archive.number(1)}})))}}};
    for (const TestArchive::Fields& fields : objects) {
        TestArchive other = archive;
        const Refusal refusal = refusalOf(other.bytes(other.add(other.dictionary(fields))));

        EXPECT_EQ(refusal.name, NSInvalidUnarchiveOperationException);
        EXPECT_THAT(refusal.reason,
                    HasSubstr("missing class information for object for key ($class)"));
    }
}

TEST_F(NSKeyedUnarchiverTest, NothingGivesNullAndAMessageOnTheConsole) {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(NSKeyedUnarchiver::unarchiveObjectWithData({}).isNull());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("data is NULL"));

    testing::internal::CaptureStderr();
    EXPECT_TRUE(NSKeyedUnarchiver::unarchiveObjectWithData("").isNull());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("data is empty; did you forget to send -finishEncoding"));
}

TEST_F(NSKeyedUnarchiverTest, WithoutARootThereIsNothing) {
    const std::string bytes = archive.bytes({{"$objects", archive.objects()},
                                             {"$top", archive.dictionary({})},
                                             {"$archiver", archive.text("NSKeyedArchiver")},
                                             {"$version", archive.number(100'000)}});

    EXPECT_TRUE(unarchived(bytes).isNull());
}

TEST_F(NSKeyedUnarchiverTest, AClassThatNobodyKnowsIsRefusedWithItsKey) {
    const auto unknown = archive.addObject(archive.addClass("NoSuchClass"), {});
    const Refusal refusal = probeRefusal({{"field", archive.uid(unknown)}}, [](NSCoder& coder) {
        return coder.decodeObjectForKey("field");
    });

    EXPECT_EQ(refusal.name, NSInvalidUnarchiveOperationException);
    EXPECT_EQ(refusal.reason,
              "*** -[NSKeyedUnarchiver decodeObjectForKey:]: cannot decode object of class "
              "(NoSuchClass) for key (field); the class may be defined in source code or a library "
              "that is not linked");
}

TEST_F(NSKeyedUnarchiverTest, TheRootsKeyIsRoot) {
    EXPECT_THAT(objectRefusal("NoSuchClass", {}).reason, HasSubstr("for key (root)"));
}

TEST_F(NSKeyedUnarchiverTest, AnUnknownClassGivesWayToTheFirstKnownSubstitute) {
    const auto theClass = archive.addClass("NoSuchClass", {"NorThisOne", "NSArray", "NSSet"});
    const auto root = archive.addObject(theClass, {{"NS.objects", archive.uids({})}});

    EXPECT_TRUE(unarchived(archive.bytes(root)).ifArray());
}

TEST_F(NSKeyedUnarchiverTest, WhatNobodyAsksForDoesNoHarm) {
    const auto unknown = archive.addObject(archive.addClass("NoSuchClass"), {});
    const TestArchive::Fields fields = {{"unknown", archive.uid(unknown)},
                                        {"nowhere", archive.uid(1'000)},
                                        {"known", archive.uid(archive.add(archive.text("x")))}};

    EXPECT_EQ(probed(fields, [](NSCoder& coder) { return coder.decodeObjectForKey("known"); }),
              Value("x"));
}

TEST_F(NSKeyedUnarchiverTest, AReferenceThatLeadsNowhereIsRefused) {
    const Refusal refusal = probeRefusal({{"field", archive.uid(1'000)}}, [](NSCoder& coder) {
        return coder.decodeObjectForKey("field");
    });

    EXPECT_EQ(refusal.name, NSInvalidUnarchiveOperationException);
    EXPECT_THAT(refusal.reason, HasSubstr("object 1000, which there is not for key (field) in "
                                          "object 2 of class (UnarchiverTestProbe)"));
}

TEST_F(NSKeyedUnarchiverTest, AReferenceBeyondTheLastObjectIsRefused) {
    const Refusal refusal = probeRefusal({{"field", archive.uid(3)}}, [](NSCoder& coder) {
        return coder.decodeObjectForKey("field");
    });

    EXPECT_THAT(refusal.reason, HasSubstr("object 3, which there is not"));
}

TEST_F(NSKeyedUnarchiverTest, AnAbsentKeyGivesNothing) {
    const Value value = probed({}, [](NSCoder& coder) -> Value {
        EXPECT_FALSE(coder.containsValueForKey("k"));
        EXPECT_TRUE(coder.decodeObjectForKey("k").isNull());
        EXPECT_EQ(coder.decodeObjectOfClassForKey(Object::classObject(), "k"), nullptr);
        EXPECT_EQ(coder.decodeInt32ForKey("k"), 0);
        EXPECT_EQ(coder.decodeInt64ForKey("k"), 0);
        EXPECT_FALSE(coder.decodeBoolForKey("k"));
        EXPECT_EQ(coder.decodeDoubleForKey("k"), 0.0);
        EXPECT_EQ(coder.decodeBytesForKey("k"), std::nullopt);
        EXPECT_TRUE(coder.decodeObject().isNull());
        return "done";
    });

    EXPECT_EQ(value, Value("done"));
}

TEST_F(NSKeyedUnarchiverTest, AValueOfTheWrongKindIsRefusedByEveryCall) {
    using Call = std::function<Value(NSCoder&)>;
    const std::vector<Call> calls = {
        [](NSCoder& coder) { return coder.decodeObjectForKey("k"); },
        [](NSCoder& coder) { return coder.decodeInt64ForKey("k"); },
        [](NSCoder& coder) { return coder.decodeBoolForKey("k"); },
        [](NSCoder& coder) { return coder.decodeDoubleForKey("k"); },
        [](NSCoder& coder) { return Data{std::string(*coder.decodeBytesForKey("k"))}; }};
    for (const Call& call : calls) {
        TestArchive text;
        Probe::read = call;
        const auto root =
            text.addObject(text.addClass(Probe::classObject().name()), {{"k", text.text("7")}});

        const Refusal refusal = refusalOf(text.bytes(root));
        EXPECT_EQ(refusal.name, NSInvalidUnarchiveOperationException);
        EXPECT_THAT(refusal.reason, HasSubstr("wrong kind for key (k)"));
    }
}

TEST_F(NSKeyedUnarchiverTest, AnIntegerTooWideForTheCallIsARangeException) {
    const Refusal refusal =
        probeRefusal({{"k", archive.number(std::int64_t{1} << 31)}},
                     [](NSCoder& coder) { return coder.decodeInt32ForKey("k"); });

    EXPECT_EQ(refusal.name, NSRangeException);
    EXPECT_EQ(refusal.reason,
              "*** -[NSKeyedUnarchiver decodeInt32ForKey:]: value (2147483648) for key (k) too "
              "large to fit in 32-bit integer");
}

TEST_F(NSKeyedUnarchiverTest, AnUnsignedIntegerAboveTheSignedRangeIsARangeException) {
    const Refusal refusal =
        probeRefusal({{"k", archive.list.addUnsigned(UINT64_MAX)}},
                     [](NSCoder& coder) { return coder.decodeInt64ForKey("k"); });

    EXPECT_EQ(refusal.name, NSRangeException);
    EXPECT_EQ(refusal.reason,
              "*** -[NSKeyedUnarchiver decodeInt64ForKey:]: value (18446744073709551615) for key "
              "(k) too large to fit in 64-bit integer");
}

TEST_F(NSKeyedUnarchiverTest, AnObjectOfAnotherClassIsRefusedWhereOneIsExpected) {
    const TestArchive::Fields fields = {{"k", archive.uid(archive.add(archive.text("x")))}};
    const Refusal refusal = probeRefusal(fields, [](NSCoder& coder) {
        return coder.decodeObjectOfClassForKey(Probe::classObject(), "k");
    });

    EXPECT_EQ(refusal.name, NSInvalidUnarchiveOperationException);
    EXPECT_THAT(refusal.reason, HasSubstr("object of class (UnarchiverTestProbe) for key (k)"));
}

TEST_F(NSKeyedUnarchiverTest, KeysWithADollarSignHaveTwoInTheArchive) {
    const TestArchive::Fields fields = {{"$$k", archive.number(7)}, {"$k", archive.number(8)}};

    EXPECT_EQ(probed(fields, [](NSCoder& coder) { return coder.decodeInt64ForKey("$k"); }),
              Value(7));
}

TEST_F(NSKeyedUnarchiverTest, ObjectsWithoutKeysComeInOrder) {
    const TestArchive::Fields fields = {{"$1", archive.uid(archive.add(archive.text("b")))},
                                        {"$0", archive.uid(archive.add(archive.text("a")))}};
    const Value value = probed(fields, [](NSCoder& coder) {
        Value first = coder.decodeObject();
        Value second = coder.decodeObject();
        Value third = coder.decodeObject();
        return ValueArray{first, second, third};
    });

    EXPECT_EQ(value, Value(ValueArray{"a", "b", nullptr}));
}

TEST_F(NSKeyedUnarchiverTest, APropertyListMayStandWithinTheObjectWhereThatIsAskedFor) {
    const TestArchive::Fields fields = {{"k", archive.dictionary({{"a", archive.number(1)}})}};

    EXPECT_EQ(probed(fields, [](NSCoder& coder) { return coder.decodePropertyListForKey("k"); }),
              Value(Dictionary{{"a", 1}}));
}

TEST_F(NSKeyedUnarchiverTest, WhereAPropertyListIsAskedForAnObjectOrNothingMayStand) {
    const TestArchive::Fields fields = {{"k", archive.uid(archive.add(archive.text("x")))}};
    const Value both = probed(fields, [](NSCoder& coder) {
        const Value first = coder.decodePropertyListForKey("k");
        return ValueArray{first, coder.decodePropertyListForKey("absent")};
    });

    EXPECT_EQ(both, Value(ValueArray{"x", nullptr}));
}

TEST_F(NSKeyedUnarchiverTest, AReferenceWithinAPropertyListIsRefused) {
    const TestArchive::Fields fields = {{"k", archive.dictionary({{"a", archive.uid(1)}})}};
    const Refusal refusal =
        probeRefusal(fields, [](NSCoder& coder) { return coder.decodePropertyListForKey("k"); });

    EXPECT_EQ(refusal.name, NSInvalidUnarchiveOperationException);
    EXPECT_THAT(refusal.reason, HasSubstr("a UID, which only archives hold at byte "));
    EXPECT_THAT(refusal.reason, HasSubstr(" for key (k) in object 2"));
}

TEST_F(NSKeyedUnarchiverTest, APropertyListWithinTheObjectIsMadeOnce) {
    const TestArchive::Fields fields = {{"k", archive.dictionary({{"a", archive.number(1)}})}};
    const Value both = probed(fields, [](NSCoder& coder) {
        const Value first = coder.decodePropertyListForKey("k");
        return ValueArray{first, coder.decodePropertyListForKey("k")};
    });

    EXPECT_EQ(both.ifArray()->at(0).ifDictionary(), both.ifArray()->at(1).ifDictionary());
}

TEST_F(NSKeyedUnarchiverTest, WhatAClassRefusesIsTheUnarchiversException) {
    const Refusal ours = probeRefusal({}, [](NSCoder& coder) -> Value {
        coder.failDecoding("the wheel has no spokes");
        return {};  // Not reached; not every compiler sees that through a virtual call.
    });
    EXPECT_EQ(ours.name, NSInvalidUnarchiveOperationException);
    EXPECT_THAT(ours.reason, HasSubstr("the wheel has no spokes in object 2 of class"));
}

TEST_F(NSKeyedUnarchiverTest, WhatAClassThrowsIsTheUnarchiversException) {
    const Refusal other =
        probeRefusal({}, [](NSCoder&) -> Value { throw std::runtime_error("out of spokes"); });
    EXPECT_EQ(other.name, NSInvalidUnarchiveOperationException);
    EXPECT_THAT(other.reason, HasSubstr("out of spokes"));
}

TEST_F(NSKeyedUnarchiverTest, ABareDateIsADate) {
    EXPECT_EQ(unarchived(archive.bytes(archive.add(archive.list.addDate(1.5)))),
              Value(NSDate::dateWithTimeIntervalSinceReferenceDate(1.5)));
}

TEST_F(NSKeyedUnarchiverTest, MutableTextAndDataAreReadAsTextAndData) {
    const auto text =
        archive.addObject(archive.addClass("NSMutableString"), {{"NS.string", archive.text("x")}});
    const auto data = archive.addObject(archive.addClass("NSMutableData"),
                                        {{"NS.data", archive.list.addData("y")}});
    const auto root = archive.addObject(archive.addClass("NSMutableArray"),
                                        {{"NS.objects", archive.uids({text, data})}});

    EXPECT_EQ(unarchived(archive.bytes(root)), Value(ValueArray{"x", Data{"y"}}));
}

TEST_F(NSKeyedUnarchiverTest, AUUIDHasSixteenBytesUnderEitherKey) {
    for (const std::string_view key : {"NS.uuidbytes", "uuid"}) {
        TestArchive one;
        const auto root =
            one.addObject(one.addClass("NSUUID"), {{key, one.list.addData("0123456789abcdef")}});
        const auto uuid = unarchived(one.bytes(root)).object<NSUUID>();
        ASSERT_TRUE(uuid);
        EXPECT_EQ(uuid->UUIDString(), "30313233-3435-3637-3839-616263646566");
    }
    EXPECT_THAT(objectRefusal("NSUUID", {{"uuid", archive.list.addData("short")}}).reason,
                HasSubstr("sixteen bytes"));
}

TEST_F(NSKeyedUnarchiverTest, AURLThatIsNoFilesKeepsItsText) {
    const auto text = archive.add(archive.text("https://example.com/x y"));
    const auto root =
        archive.addObject(archive.addClass("NSURL"),
                          {{"NS.base", archive.uid(0)}, {"NS.relative", archive.uid(text)}});
    const auto url = unarchived(archive.bytes(root)).object<ArchivedURL>();

    ASSERT_TRUE(url);
    EXPECT_EQ(url->relativeString(), "https://example.com/x y");
    EXPECT_EQ(url->description(), "https://example.com/x y");
}

// An archive of a URL relative to one that is relative to the others, which come before it.
std::string relativeURLs(const std::vector<std::string_view>& texts) {
    TestArchive archive;
    const auto theClass = archive.addClass("NSURL");
    std::uint32_t last = 0;
    for (const std::string_view text : texts) {
        const auto relative = archive.add(archive.text(text));
        last = archive.addObject(
            theClass, {{"NS.base", archive.uid(last)}, {"NS.relative", archive.uid(relative)}});
    }
    return archive.bytes(last);
}

TEST_F(NSKeyedUnarchiverTest, TheBaseOfAURLIsAbsolute) {
    const Value value = unarchived(relativeURLs({"https://example.com/", "page"}));
    const Value same = unarchived(relativeURLs({"https://example.com/", "page"}));
    const Value other = unarchived(relativeURLs({"https://example.org/", "page"}));

    EXPECT_EQ(value.description(), "page -- https://example.com/");
    EXPECT_EQ(value.object()->isa().name(), "ArchivedURL");
    EXPECT_EQ(value, same);
    EXPECT_EQ(value.object()->hash(), same.object()->hash());
    EXPECT_NE(value, other);
    EXPECT_TRUE(unarchived(relativeURLs({"file:///tmp/", "x"})).object<ArchivedURL>());
    EXPECT_THAT(refusalOf(relativeURLs({"https://example.com/", "page", "part"})).reason,
                HasSubstr("no absolute URL for key (NS.base)"));
}

struct WrongContent {
    std::string_view className;
    TestArchive::Fields fields;
    const char* reason;
};

TEST_F(NSKeyedUnarchiverTest, ContentsOfTheWrongFormAreRefused) {
    const auto text = archive.uid(archive.add(archive.text("x")));
    const auto nan = archive.list.addReal(std::nan(""));
    const auto one = archive.number(1);
    const auto inlineOne = archive.list.addArray({&one, 1});
    const std::vector<WrongContent> contents = {
        {"NSArray", {}, "no array of references for key (NS.objects)"},
        {"NSArray", {{"NS.objects", text}}, "of the wrong kind for key (NS.objects)"},
        {"NSArray", {{"NS.objects", archive.uids({0})}}, "a nil member for key (NS.objects)"},
        {"NSArray", {{"NS.objects", inlineOne}}, "a member that is no reference for key"},
        {"NSSet", {{"NS.objects", one}}, "of the wrong kind for key (NS.objects)"},
        {"NSDictionary", {{"NS.keys", archive.uids({})}}, "no array of references for key (NS.obj"},
        {"NSDictionary",
         {{"NS.objects", archive.uids({})}},
         "no array of references for key (NS.k"},
        {"NSDictionary",
         {{"NS.keys", archive.uids({1})}, {"NS.objects", archive.uids({})}},
         "1 keys and 0 values for key (NS.objects)"},
        {"NSDate", {}, "no number of seconds for key (NS.time)"},
        {"NSDate", {{"NS.time", archive.text("now")}}, "of the wrong kind for key (NS.time)"},
        {"NSDate", {{"NS.time", nan}}, "a date that is not a number for key (NS.time)"},
        {"NSMutableString", {}, "no text for key (NS.string)"},
        {"NSMutableString", {{"NS.string", one}}, "of the wrong kind for key (NS.string)"},
        {"NSMutableData", {}, "no data for key (NS.data)"},
        {"NSURL", {}, "no text for key (NS.relative)"},
        {"NSUUID", {}, "no sixteen bytes for key (NS.uuidbytes)"}};
    for (const WrongContent& content : contents) {
        TestArchive whole = archive;
        const auto root = whole.addObject(whole.addClass(content.className), content.fields);
        const Refusal refusal = refusalOf(whole.bytes(root));

        EXPECT_EQ(refusal.name, NSInvalidUnarchiveOperationException) << content.reason;
        EXPECT_THAT(refusal.reason, HasSubstr(content.reason));
    }
}

TEST_F(NSKeyedUnarchiverTest, AFieldTooManyIsNotLookedAt) {
    const auto root =
        archive.addObject(archive.addClass("NSArray"),
                          {{"NS.objects", archive.uids({})}, {"NS.keys", archive.text("x")}});

    EXPECT_EQ(unarchived(archive.bytes(root)), Value(ValueArray()));
}

TEST_F(NSKeyedUnarchiverTest, ADictionaryWithAKeyTwiceIsRefused) {
    const auto key = archive.add(archive.text("k"));
    const auto same = archive.add(archive.text("k"));
    const Refusal refusal = objectRefusal(
        "NSDictionary",
        {{"NS.keys", archive.uids({key, same})}, {"NS.objects", archive.uids({key, key})}});

    EXPECT_THAT(refusal.reason, HasSubstr("stands twice for key (NS.keys)"));
}

TEST_F(NSKeyedUnarchiverTest, ContainersThatHoldThemselvesAreRefused) {
    const auto theClass = archive.addClass("NSArray");
    const std::uint32_t self = theClass + 1;
    archive.addObject(theClass, {{"NS.objects", archive.uids({self})}});

    EXPECT_THAT(refusalOf(archive.bytes(self)).reason, HasSubstr("holds itself"));
}

// Arrays in a row, each of which holds the next one `times`.
std::string arrays(std::size_t levels, std::size_t times) {
    TestArchive archive;
    const auto theClass = archive.addClass("NSArray");
    const std::uint32_t first = theClass + 1;
    for (std::size_t level = 1; level <= levels; ++level) {
        const std::uint32_t next = theClass + 1 + static_cast<std::uint32_t>(level);
        const std::vector<std::uint32_t> members(level == levels ? 0 : times, next);
        archive.addObject(theClass, {{"NS.objects", archive.uids(members)}});
    }
    return archive.bytes(first);
}

TEST_F(NSKeyedUnarchiverTest, ContainersAreReadToTheDeepestNestingAllowed) {
    EXPECT_TRUE(unarchived(arrays(kPropertyListDepthMax, 1)).ifArray());
    EXPECT_THAT(refusalOf(arrays(kPropertyListDepthMax + 1, 1)).reason, HasSubstr("too deep"));
    EXPECT_THAT(refusalOf(arrays(100'000, 1)).reason, HasSubstr("too deep"));
}

TEST_F(NSKeyedUnarchiverTest, ContainersOfEveryKindCountAsNesting) {
    const auto nestedIn = [](std::string_view className) {
        TestArchive nested;
        const auto theClass = nested.addClass(className);
        std::uint32_t last = nested.add(nested.text("x"));
        for (std::size_t level = 0; level <= kPropertyListDepthMax; ++level) {
            TestArchive::Fields fields = {{"NS.objects", nested.uids({last})}};
            if (className == "NSDictionary") fields.emplace_back("NS.keys", nested.uids({2}));
            last = nested.addObject(theClass, std::move(fields));
        }
        return nested.bytes(last);
    };

    for (const std::string_view className : {"NSArray", "NSSet", "NSDictionary"})
        EXPECT_THAT(refusalOf(nestedIn(className)).reason, HasSubstr("too deep")) << className;
}

// Comparing goes into objects, where a walk does not.
TEST_F(NSKeyedUnarchiverTest, ObjectsThatNobodyCouldCompareAreNoMembersOfASetNorKeys) {
    const auto error = archive.addClass("NSError");
    const auto dictionary = archive.addClass("NSDictionary");
    const auto one = archive.add(archive.text("a"));
    const auto two = archive.add(archive.text("b"));
    std::uint32_t last = one;
    for (int level = 0; level < 40; ++level) {
        const auto info = archive.addObject(
            dictionary,
            {{"NS.keys", archive.uids({one, two})}, {"NS.objects", archive.uids({last, last})}});
        last = archive.addObject(error, {{"NSDomain", archive.uid(one)},
                                         {"NSCode", archive.number(1)},
                                         {"NSUserInfo", archive.uid(info)}});
    }
    const auto rootOf = [&](std::string_view className) {
        TestArchive whole = archive;
        TestArchive::Fields fields = {{"NS.objects", whole.uids({last})}};
        if (className == "NSDictionary") fields.emplace_back("NS.keys", whole.uids({last}));
        return whole.bytes(whole.addObject(whole.addClass(className), std::move(fields)));
    };

    EXPECT_TRUE(unarchived(rootOf("NSArray")).ifArray());
    EXPECT_THAT(refusalOf(rootOf("NSSet")).reason, HasSubstr("grow beyond any use"));
    EXPECT_THAT(refusalOf(rootOf("NSDictionary")).reason, HasSubstr("grow beyond any use"));
}

TEST_F(NSKeyedUnarchiverTest, ContainersThatWouldGrowBeyondAnyUseWhenWalkedAreRefused) {
    EXPECT_TRUE(unarchived(arrays(20, 2)).ifArray());
    EXPECT_THAT(refusalOf(arrays(60, 2)).reason, HasSubstr("grow beyond any use"));
}

TEST_F(NSKeyedUnarchiverTest, ObjectsThatShareTheirManyMembersAreRefused) {
    std::vector<std::uint32_t> numbers;
    const auto theClass = archive.addClass("NSArray");
    const auto text = archive.add(archive.text("x"));
    const auto shared = archive.uids(std::vector<std::uint32_t>(2'000, text));
    for (int i = 0; i < 2'000; ++i)
        numbers.push_back(archive.addObject(theClass, {{"NS.objects", shared}}));
    const auto root = archive.addObject(theClass, {{"NS.objects", archive.uids(numbers)}});

    EXPECT_THAT(refusalOf(archive.bytes(root)).reason, HasSubstr("grow beyond any use"));
}

TEST_F(NSKeyedUnarchiverTest, ObjectsThatShareWhatNobodyAsksForAreRefused) {
    const auto theClass = archive.addClass("NSArray");
    const auto text = archive.add(archive.text("x"));
    const auto shared = archive.uids(std::vector<std::uint32_t>(800, text));
    std::vector<std::uint32_t> numbers;
    for (int i = 0; i < 100; ++i)
        numbers.push_back(archive.addObject(probeClass, {{"ignored", shared}}));
    const auto root = archive.addObject(theClass, {{"NS.objects", archive.uids(numbers)}});

    EXPECT_THAT(refusalOf(archive.bytes(root)).reason, HasSubstr("grow beyond any use"));
}

TEST_F(NSKeyedUnarchiverTest, LongTextIsSharedByAllWhoHaveIt) {
    const auto theClass = archive.addClass("NSArray");
    const auto text = archive.text(std::string(100, 'x'));
    const auto one = archive.add(text);
    const auto other = archive.add(text);
    const auto root =
        archive.addObject(theClass, {{"NS.objects", archive.uids({one, one, other})}});
    const Value value = unarchived(archive.bytes(root));

    const ValueArray& members = *value.ifArray();
    EXPECT_EQ(members[0].ifString(), members[1].ifString());
    EXPECT_EQ(members[0].ifString(), members[2].ifString());
}

TEST_F(NSKeyedUnarchiverTest, LongTextThatWasMadeBeforeIsNoClass) {
    const auto theClass = archive.addClass("NSArray");
    const auto text = archive.add(archive.text(std::string(100, 'x')));
    const auto first = archive.addObject(theClass, {{"NS.objects", archive.uids({text})}});
    const auto second = archive.addObject(text, {});
    const auto root = archive.addObject(theClass, {{"NS.objects", archive.uids({first, second})}});

    EXPECT_THAT(refusalOf(archive.bytes(root)).reason, HasSubstr("missing class information"));
}

TEST_F(NSKeyedUnarchiverTest, ExceptionsThatShareTheirDetailsInTheArchiveChangeApart) {
    const auto theClass = archive.addClass("NSException");
    const auto key = archive.add(archive.text("Key"));
    const auto info =
        archive.addObject(archive.addClass("NSDictionary"),
                          {{"NS.keys", archive.uids({key})}, {"NS.objects", archive.uids({key})}});
    const TestArchive::Fields fields = {{"NS.name", archive.uid(key)},
                                        {"NS.userinfo", archive.uid(info)}};
    const auto one = archive.addObject(theClass, fields);
    const auto other = archive.addObject(theClass, fields);
    const auto root = archive.addObject(archive.addClass("NSArray"),
                                        {{"NS.objects", archive.uids({one, other, info})}});
    const Value value = unarchived(archive.bytes(root));

    const ValueArray& members = *value.ifArray();
    members[0].object<ExceptionObject>()->setUserInfoValueForKey(1, "Another");

    const Dictionary before = {{"Key", "Key"}};
    EXPECT_EQ(members[0].object<ExceptionObject>()->userInfo(),
              (Dictionary{{"Another", 1}, {"Key", "Key"}}));
    EXPECT_EQ(members[1].object<ExceptionObject>()->userInfo(), before);
    EXPECT_EQ(members[2], Value(before));
}

TEST_F(NSKeyedUnarchiverTest, ManyBrokenObjectsThatNobodyAsksForAreRefusedInTheEnd) {
    const auto unknown = archive.addClass("NoSuchClass");
    std::vector<std::uint32_t> numbers;
    for (int i = 0; i < 1'000; ++i)
        numbers.push_back(archive.addObject(unknown, {}));
    const auto ignored = archive.uids(numbers);

    EXPECT_THAT(probeRefusal({{"ignored", ignored}}, [](NSCoder&) { return Value(); }).reason,
                HasSubstr("NoSuchClass"));
}

TEST_F(NSKeyedUnarchiverTest, TwoExceptionsThatReachEachOtherAreReadAndEndWithTheirOwner) {
    const auto theClass = archive.addClass("NSException");
    const auto dictionary = archive.addClass("NSDictionary");
    const auto name = archive.add(archive.text("IO"));
    const auto cause = archive.add(archive.text("Cause"));
    const std::uint32_t first = cause + 1;
    const std::uint32_t second = cause + 3;
    for (const std::uint32_t other : {second, first}) {
        const auto number = other == second ? first : second;
        archive.addObject(theClass, {{"NS.name", archive.uid(name)},
                                     {"NS.reason", archive.uid(0)},
                                     {"NS.userinfo", archive.uid(number + 1)}});
        archive.addObject(dictionary, {{"NS.keys", archive.uids({cause})},
                                       {"NS.objects", archive.uids({other})}});
    }
    std::weak_ptr<ExceptionObject> watched;
    {
        const Value value = unarchived(archive.bytes(first));
        const ExceptionObjectPtr outer = exceptionObjectOf(value);
        ASSERT_TRUE(outer);
        watched = outer;
        const ExceptionObjectPtr inner = exceptionObjectOf(*outer->userInfo().find("Cause"));
        ASSERT_TRUE(inner);
        EXPECT_NE(inner, outer);
        EXPECT_EQ(exceptionObjectOf(*inner->userInfo().find("Cause")), outer);
    }
    EXPECT_TRUE(watched.expired());
}

// Within the exception it is held otherwise than outside, which must not make two keys of one.
TEST_F(NSKeyedUnarchiverTest, AnExceptionIsTheSameKeyFromWithinAndFromOutside) {
    const auto theClass = archive.addClass("NSException");
    const auto dictionary = archive.addClass("NSDictionary");
    const auto name = archive.add(archive.text("IO"));
    const std::uint32_t exception = name + 1;
    const std::uint32_t within = name + 2;
    const std::uint32_t outside = name + 3;
    archive.addObject(theClass, {{"NS.name", archive.uid(name)},
                                 {"NS.reason", archive.uid(0)},
                                 {"NS.userinfo", archive.uid(within)}});
    for (int i = 0; i < 2; ++i) {
        archive.addObject(dictionary, {{"NS.keys", archive.uids({name})},
                                       {"NS.objects", archive.uids({exception})}});
    }
    const Refusal refusal =
        objectRefusal("NSDictionary", {{"NS.keys", archive.uids({exception, within, outside})},
                                       {"NS.objects", archive.uids({name, name, name})}});

    EXPECT_THAT(refusal.reason, HasSubstr("stands twice for key (NS.keys)"));
}

}  // namespace
}  // namespace sevrin::platform
