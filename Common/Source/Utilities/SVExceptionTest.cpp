// Tests of the rich exception: constructors, tables, setters and their quirks.
#include "Common/Source/Utilities/SVException.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace sevrin {
namespace {

using platform::Dictionary;
using platform::NSError;
using platform::NSException;
using platform::Value;
using testing::IsEmpty;

SVException makeException(std::string_view name = "IO") {
    return SVException::exceptionWithNameReason(name, "no reason");
}

// The detail under a key; null when there is none.
Value detail(const SVException& exception, std::string_view key) {
    const Value* found = exception.details().find(key);
    return found != nullptr ? *found : Value();
}

TEST(SVExceptionTest, ANewOneHasNoDetails) {
    const SVException exception = SVException::exceptionWithNameReason("IO", "cannot delete item");

    EXPECT_EQ(exception.name(), "IO");
    EXPECT_EQ(exception.reason(), "cannot delete item");
    EXPECT_TRUE(exception.details().empty());
    EXPECT_TRUE(exception.object()->hasUserInfo());
    EXPECT_EQ(exception.isa().name(), "SVException");
}

TEST(SVExceptionTest, DetailsAreTheUserInfo) {
    SVException exception = makeException();
    const NSException& base = exception;

    exception.setStrPath("/tmp/x");

    EXPECT_EQ(base.userInfo(), (Dictionary{{"Path", "/tmp/x"}}));
}

TEST(SVExceptionTest, IsCaughtAsWhatItIsWhateverHandleRaisedIt) {
    const NSException handle = makeException();

    EXPECT_THROW(handle.raise(), SVException);
}

TEST(SVExceptionTest, DetailsAreChainedAndTheResultRaised) {
    try {
        SVException::exceptionWithNameReason("IO", "cannot delete item")
            .setStrPath("/tmp/x")
            .setAPI("unlink")
            .raise();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.details(), (Dictionary{{"API", "unlink"}, {"Path", "/tmp/x"}}));
        EXPECT_THAT(exception.callStackReturnAddresses(), testing::Not(IsEmpty()));
    }
}

TEST(SVExceptionTest, WhatACatcherAddsIsSeenByTheNext) {
    const SVException thrown = makeException();
    try {
        try {
            thrown.raise();
        } catch (SVException& exception) {
            exception.setStrPath("/tmp/x");
            throw;
        }
    } catch (const SVException& exception) {
        EXPECT_TRUE(exception.isSame(thrown));
        EXPECT_EQ(detail(thrown, "Path"), Value("/tmp/x"));
    }
}

TEST(SVExceptionTest, TheErrorNumberIsThatOfTheThread) {
    errno = EACCES;
    const SVException exception = SVException::errnoWithNameReason("Security", "no access");
    errno = ENOENT;
    const SVException io = SVException::ioErrnoWithReason("not there");

    EXPECT_EQ(exception.name(), "Security");
    EXPECT_EQ(detail(exception, "POSIXErr"), Value(EACCES));
    EXPECT_EQ(detail(exception, "ErrDescription"), Value(std::strerror(EACCES)));
    EXPECT_EQ(io.name(), "IO");
    EXPECT_EQ(io.reason(), "not there");
    EXPECT_EQ(detail(io, "POSIXErr"), Value(ENOENT));
}

TEST(SVExceptionTest, TheNameDecidesTheClassification) {
    const auto number = [](std::string_view name) {
        return static_cast<int>(SVException::preferredLogClassForName(name));
    };

    EXPECT_EQ(number("IO"), 5);
    EXPECT_EQ(number("Info"), 0);
    EXPECT_EQ(number("Cancel"), 3);
    EXPECT_EQ(number("Security"), 4);
    EXPECT_EQ(number("Bug"), 9);
    EXPECT_EQ(number("bug"), 5);
    EXPECT_EQ(number(""), 5);
}

TEST(SVExceptionTest, AClassificationOfItsOwnWins) {
    SVException exception = makeException("Bug");
    EXPECT_EQ(exception.preferredLogClass(), LogClassification::Debug);

    exception.setPreferredLogClass(LogClassification::Curious);

    EXPECT_EQ(detail(exception, ".LogClass"), Value(2));
    EXPECT_EQ(exception.preferredLogClass(), LogClassification::Curious);
    EXPECT_EQ(SVException::preferredLogClassForException(exception), LogClassification::Curious);
}

TEST(SVExceptionTest, AClassificationIsReadFromWhateverStandsForANumber) {
    const auto preferred = [](const Value& stored) {
        return static_cast<int>(
            makeException("Bug").setDetailKey(stored, ".LogClass").preferredLogClass());
    };

    EXPECT_EQ(preferred(" 3"), 3);
    EXPECT_EQ(preferred("none"), 0);
    EXPECT_EQ(preferred(2.9), 2);
    EXPECT_EQ(preferred(true), 1);
    EXPECT_EQ(preferred(nullptr), 0);  // "(nil)"
    EXPECT_EQ(preferred(platform::ValueArray{}), 9);
}

TEST(SVExceptionTest, APlainExceptionIsAFailure) {
    EXPECT_EQ(SVException::preferredLogClassForException(
                  NSException::exceptionWithNameReasonUserInfo("Bug", "no reason")),
              LogClassification::Failure);
}

// An exception of another class that says at which classification it wants to be logged.
class Preferring final : public platform::ExceptionObject {
public:
    explicit Preferring(Value answer)
        : ExceptionObject("Bug", "no reason", std::nullopt), answer_(std::move(answer)) {}
    static platform::Class& classObject() {
        static platform::Class& theClass = *new platform::Class(
            "SVExceptionTestPreferring", &ExceptionObject::classObject(),
            {{"preferredLogClass", [](platform::Object* receiver, platform::Invocation&) {
                  return static_cast<Preferring*>(receiver)->answer_;
              }}});
        return theClass;
    }
    const platform::Class& isa() const override { return classObject(); }

private:
    const Value answer_;
};

TEST(SVExceptionTest, AnyExceptionThatHasAPreferenceIsAskedForIt) {
    const auto preferred = [](Value answer) {
        return SVException::preferredLogClassForException(
            NSException(std::make_shared<Preferring>(std::move(answer))));
    };

    EXPECT_EQ(preferred(2), LogClassification::Curious);
    EXPECT_EQ(preferred("none"), LogClassification::Failure);
}

TEST(SVExceptionTest, ThePreferenceIsAlsoThereForWhoeverAsksBySelector) {
    const SVException exception = makeException("Cancel");
    const auto* method = exception.isa().instanceMethod("preferredLogClass");
    ASSERT_NE(method, nullptr);
    platform::Invocation invocation{};

    EXPECT_EQ((*method)(exception.object().get(), invocation), Value(3));
}

TEST(SVExceptionTest, PackageTypesHaveNames) {
    const char* const names[] = {"Invalid",   "Data",           "List",   "File",
                                 "Directory", "DeltaDirectory", "Session"};

    for (int type = 0; type < 7; ++type)
        EXPECT_EQ(SVException::getNameForPackageType(type), names[type]);
    EXPECT_EQ(SVException::getNameForPackageType(7), "Unknown(7)");
    EXPECT_EQ(SVException::getNameForPackageType(-1), "Unknown(-1)");
}

TEST(SVExceptionTest, TheClassificationsOfDetailsAreTheseTen) {
    using enum LogClassification;
    const LogClassificationMap expected = {
        {"POSIXErr", Minutia}, {"OSErr", Minutia}, {"OSErrName", Minutia}, {"API", Debug},
        {"Object", Debug},     {"Path", Minutia},  {"PkgType", Debug},     {"PkgNumber", Debug},
        {"Class", Debug},      {"Cause", Debug}};

    EXPECT_EQ(SVException::userInfoLogClassifications(), expected);
}

TEST(SVExceptionTest, TakesPartInSecureArchiving) {
    EXPECT_TRUE(SVException::supportsSecureCoding());
    EXPECT_EQ(platform::NSCodingClass::named("SVException"), &SVExceptionObject::classObject());
    EXPECT_EQ(SVExceptionObject::classObject().superclass()->name(), "NSException");
}

TEST(SVExceptionTest, ADetailReplacesTheOneBefore) {
    const SVException exception = makeException().setDetailKey(1, "a").setDetailKey("x", "a");

    EXPECT_EQ(exception.details(), (Dictionary{{"a", "x"}}));
}

TEST(SVExceptionTest, AnAbsentValueIsStoredAsText) {
    const SVException exception = makeException()
                                      .setDetailKey(nullptr, "a")
                                      .setAPI(nullptr)
                                      .setStrPath(std::optional<std::string>())
                                      .setObject(platform::NSErrorPtr())
                                      .setCause(Value());

    for (const char* key : {"a", "API", "Path", "Object", "Cause"})
        EXPECT_EQ(detail(exception, key), Value("(nil)")) << key;
}

TEST(SVExceptionTest, AnAbsentKeyIsRefused) {
    SVException exception = makeException();

    try {
        exception.setDetailKey(1, nullptr);
        FAIL() << "a null key was taken";
    } catch (const NSException& refusal) {
        EXPECT_EQ(refusal.name(), platform::NSInvalidArgumentException);
    }
    EXPECT_THROW(exception.setFlag(static_cast<const char*>(nullptr)), NSException);
    EXPECT_TRUE(exception.details().empty());
}

TEST(SVExceptionTest, HexIsAsLongAsTheValueNeeds) {
    const auto hex = [](std::uint64_t value) {
        return detail(makeException().setHexDetailKey(value, "k"), "k").description();
    };

    EXPECT_EQ(hex(0), "0x0000");
    EXPECT_EQ(hex(0xFFFF), "0xffff");
    EXPECT_EQ(hex(0x10000), "0x00010000");
    EXPECT_EQ(hex(0x1'2345'6789), "0x123456789");
}

TEST(SVExceptionTest, LongHexHasSixteenDigits) {
    EXPECT_EQ(detail(makeException().setLongLongHexDetailKey(1, "k"), "k"),
              Value("0x0000000000000001"));
    EXPECT_EQ(detail(makeException().setLongLongHexDetailKey(UINT64_MAX, "k"), "k"),
              Value("0xffffffffffffffff"));
}

TEST(SVExceptionTest, DecimalDetailsAreNumbersNotText) {
    EXPECT_EQ(detail(makeException().setDecimalDetailKey(-1, "k"), "k"), Value(-1));
    EXPECT_EQ(detail(makeException().setLongLongDetailKey(INT64_MIN, "k"), "k"), Value(INT64_MIN));
}

TEST(SVExceptionTest, AFreshExceptionIsHard) {
    EXPECT_TRUE(makeException().isHard());
    EXPECT_FALSE(makeException().isSoft());
}

TEST(SVExceptionTest, AClearedFlagStillReadsAsSet) {
    SVException exception = makeException().setSoft(true);
    EXPECT_TRUE(exception.isSoft());

    exception.setSoft(false);

    EXPECT_EQ(detail(exception, ".SoftError"), Value(false));
    EXPECT_TRUE(exception.isSoft());
    EXPECT_FALSE(exception.isHard());
    EXPECT_TRUE(makeException().setSoft(false).isSoft());
    EXPECT_TRUE(makeException().clearFlag("a").hasFlag("a"));
}

TEST(SVExceptionTest, AnyDetailReadsAsAFlag) {
    const SVException exception = makeException().setDetailKey("no", "a").setFlag("b");

    EXPECT_TRUE(exception.hasFlag("a"));
    EXPECT_TRUE(exception.hasFlag("b"));
    EXPECT_EQ(detail(exception, "b"), Value(true));
    EXPECT_FALSE(exception.hasFlag("c"));
}

TEST(SVExceptionTest, APosixErrorTellsItsNumberAndItself) {
    const auto error = NSError::errorWithDomainCodeUserInfo(platform::NSPOSIXErrorDomain, 2);
    const SVException exception = SVException::errorNameReason(error, "IO", "cannot move item");

    EXPECT_EQ(detail(exception, "POSIXErr"), Value(2));
    EXPECT_EQ(detail(exception, "ErrDescription"), Value(std::strerror(2)));
    EXPECT_EQ(detail(exception, ".Error").object(), error);
    EXPECT_EQ(detail(exception, "Description"), Value(error->localizedDescription()));
    EXPECT_EQ(detail(exception, "Error"), Value(*error->localizedFailureReason()));
}

TEST(SVExceptionTest, APosixCodeIsCutTo32Bits) {
    const auto error =
        NSError::errorWithDomainCodeUserInfo(platform::NSPOSIXErrorDomain, 0x1'0000'0002);

    EXPECT_EQ(detail(makeException().setError(error), "POSIXErr"), Value(2));
}

TEST(SVExceptionTest, AnOSStatusIsAnOSErr) {
    const auto error = NSError::errorWithDomainCodeUserInfo(platform::NSOSStatusErrorDomain, -43);
    const SVException exception = makeException().setError(error);

    EXPECT_EQ(detail(exception, "OSErr"), Value(-43));
    EXPECT_FALSE(exception.hasFlag("POSIXErr"));
}

// An exception of a class that knows what to do with the numbers of the older system.
class StatusObject final : public SVExceptionObject {
public:
    using SVExceptionObject::SVExceptionObject;
    static platform::Class& classObject() {
        static platform::Class& theClass = *new platform::Class(
            "SVExceptionTestStatus", &SVExceptionObject::classObject(),
            {{"setOSErr:", [](platform::Object* receiver, platform::Invocation& invocation) {
                  EXPECT_EQ(invocation.arguments.size(), 1U);
                  static_cast<StatusObject*>(receiver)->told = invocation.arguments[0];
                  return Value();
              }}});
        return theClass;
    }
    const platform::Class& isa() const override { return classObject(); }
    Value told;
};

TEST(SVExceptionTest, AClassThatTakesOSStatusNumbersIsToldThem) {
    const auto object = std::make_shared<StatusObject>("IO", "no reason");
    SVException exception(object);

    exception.setError(
        NSError::errorWithDomainCodeUserInfo(platform::NSOSStatusErrorDomain, 0x1'0000'0000 - 43));

    EXPECT_EQ(object->told, Value(-43));
    EXPECT_FALSE(exception.hasFlag("OSErr"));
    EXPECT_TRUE(exception.hasFlag(".Error"));
}

TEST(SVExceptionTest, AURLErrorTellsItsPath) {
    const auto error = NSError::errorWithDomainCodeUserInfo(
        platform::NSURLErrorDomain, -1,
        Dictionary{{platform::NSURLErrorFailingURLStringErrorKey, "file:///tmp/x"}});

    EXPECT_EQ(detail(makeException().setError(error), "Path"), Value("file:///tmp/x"));
    EXPECT_FALSE(makeException()
                     .setError(NSError::errorWithDomainCodeUserInfo(platform::NSURLErrorDomain, -1))
                     .hasFlag("Path"));
}

TEST(SVExceptionTest, AnyOtherErrorTellsItsTextsOnly) {
    const auto error = NSError::errorWithDomainCodeUserInfo("com.example.test", 7);

    EXPECT_EQ(makeException().setError(error).details(),
              (Dictionary{{".Error", error}, {"Description", error->localizedDescription()}}));
}

TEST(SVExceptionTest, NoErrorChangesNothing) {
    EXPECT_TRUE(makeException().setError(nullptr).details().empty());
}

TEST(SVExceptionTest, ThePOSIXErrorMayComeWithItsCall) {
    const SVException exception = makeException().setPOSIXErrApi(EBUSY, "unmount");

    EXPECT_EQ(exception.details(), (Dictionary{{"API", "unmount"},
                                               {"ErrDescription", std::strerror(EBUSY)},
                                               {"POSIXErr", EBUSY}}));
}

// What file items, path objects and packages answer.
struct Item {
    std::string name() const { return "x"; }
    std::string path() const { return "/tmp/x"; }
    std::uint32_t type() const { return kind; }
    std::uint32_t kind = 0;
};

TEST(SVExceptionTest, AnItemTellsNamePathAndType) {
    const auto typed = [](std::uint32_t type) {
        return detail(makeException().setFileInfo(Item{type}), "Type");
    };

    EXPECT_EQ(makeException().setFileInfo(Item{0}).details(),
              (Dictionary{{"Name", "x"}, {"Path", "/tmp/x"}}));
    EXPECT_EQ(typed(1), Value("regular file"));
    EXPECT_EQ(typed(2), Value("directory"));
    EXPECT_EQ(typed(5), Value("symblic link"));
    for (const std::uint32_t type : {3U, 4U, 6U, 9U})
        EXPECT_EQ(typed(type), Value(type));
}

TEST(SVExceptionTest, ObjectsMayBeGivenByPointer) {
    const auto item = std::make_shared<const Item>(Item{1});

    EXPECT_EQ(detail(makeException().setFileInfo(item), "Type"), Value("regular file"));
    EXPECT_EQ(detail(makeException().setPathObject(item.get()), "Path"), Value("/tmp/x"));
    EXPECT_EQ(detail(makeException().setPathObject(*item), "Path"), Value("/tmp/x"));
}

TEST(SVExceptionTest, ACPathIsCutAt1024Bytes) {
    const std::string longPath(2000, 'a');

    EXPECT_EQ(detail(makeException().setCPath("/tmp/x"), "Path"), Value("/tmp/x"));
    EXPECT_EQ(detail(makeException().setCPath(longPath.c_str()), "Path"),
              Value(longPath.substr(0, 1024)));
    EXPECT_TRUE(makeException().setCPath(nullptr).details().empty());
}

struct Package {
    std::uint32_t number() const { return UINT32_MAX; }
    std::int32_t type() const { return 5; }
};

TEST(SVExceptionTest, APackageTellsNumberAndType) {
    EXPECT_EQ(makeException().setPackageInfo(Package()).details(),
              (Dictionary{{"PkgNumber", UINT32_MAX}, {"PkgType", "DeltaDirectory"}}));
}

TEST(SVExceptionTest, EverySetterHasItsKey) {
    const SVException exception = makeException()
                                      .setFile("f")
                                      .setFolder("d")
                                      .setObject("o")
                                      .setFilePosition(-1)
                                      .setLength(1)
                                      .setExpected("e")
                                      .setClass("c")
                                      .setMessage("setPath:")
                                      .setVersion(0x0202050C)
                                      .setCause("z")
                                      .setExplanation("w");

    EXPECT_EQ(exception.details(), (Dictionary{{".Explain", "w"},
                                               {"Cause", "z"},
                                               {"Class", "c"},
                                               {"Expected", "e"},
                                               {"File", "f"},
                                               {"Folder", "d"},
                                               {"Length", 1},
                                               {"Message", "setPath:"},
                                               {"Object", "o"},
                                               {"Position", -1},
                                               {"Version", "2.2.5.12"}}));
}

TEST(SVExceptionTest, ALengthIsStoredAsASignedNumber) {
    EXPECT_EQ(detail(makeException().setLength(UINT64_MAX), "Length"), Value(-1));
}

TEST(SVExceptionTest, ClassesAndMessagesAreNamed) {
    const Value object = makeException().object();

    EXPECT_EQ(detail(makeException().setClassOf(object), "Class"), Value("SVException"));
    EXPECT_EQ(detail(makeException().setClassOf("text"), "Class"), Value("NSString"));
    EXPECT_EQ(detail(makeException().setClassOf(Value()), "Class"), Value("(nil)"));
    EXPECT_EQ(detail(makeException().setMessageToObject("isSoft", object), "Message"),
              Value("[SVException isSoft]"));
}

TEST(SVExceptionTest, ASelectorIsASCII) {
    EXPECT_EQ(detail(makeException().setMessage("caf\u00E9:"), "Message"), Value("caf\\u00e9:"));
    EXPECT_EQ(detail(makeException().setMessage(nullptr), "Message"), Value("(nil)"));
}

TEST(SVExceptionTest, AMessageToNothingSaysSo) {
    EXPECT_EQ(detail(makeException().setMessageToObject("isSoft", Value()), "Message"),
              Value("[(null) isSoft]"));
}

TEST(SVExceptionTest, ACauseMayBeAnException) {
    const SVException cause = makeException("Bug");

    const SVException exception = makeException().setCause(cause);

    const auto found = NSException::exceptionInValue(detail(exception, "Cause"));
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->isSame(cause));
}

}  // namespace
}  // namespace sevrin
