// The failure of the suite's utility layer: an exception with a name, a reason for people, and
// details under keys. It is raised by
//
//     SVException::ioErrnoWithReason("cannot delete item").setPathObject(path).raise();
//
// and caught as SVException&, with details added by whoever knows more.
//
// The details are what the logger prints below a failure, what travels when the exception is
// archived, and what decides the classification it is logged at. They are the exception's user
// info. Keys that begin with a point are the system's own and not meant for the reader.
//
// Every setter gives the exception itself, so that details are chained and the result raised.
// Copies are the same exception; an exception is used by one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/LogClassification.h"
#include "Common/Source/Utilities/SVExceptionObject.h"
#include "Platform/NSError.h"
#include "Platform/NSException.h"
#include "Platform/Value.h"

namespace sevrin {

// Text that may be absent, however it is spelled. Borrows what it is made from.
class DetailText {
public:
    DetailText(std::nullptr_t) {}
    DetailText(const char* text) {
        if (text != nullptr) text_ = text;
    }
    DetailText(std::string_view text) : text_(text) {}
    DetailText(const std::string& text) : text_(text) {}
    DetailText(const std::optional<std::string>& text) {
        if (text) text_ = *text;
    }

    // Null when absent.
    [[nodiscard]] platform::Value value() const {
        return text_ ? platform::Value(*text_) : platform::Value();
    }

private:
    std::optional<std::string_view> text_;
};

class SVException : public platform::NSException {
public:
    // --- New exceptions.

    // Without details.
    [[nodiscard]] static SVException exceptionWithNameReason(std::string_view name,
                                                             std::string_view reason);
    // With what setError() makes of the error.
    [[nodiscard]] static SVException errorNameReason(const platform::NSErrorPtr& error,
                                                     std::string_view name,
                                                     std::string_view reason);
    // With what setPOSIXErr() makes of the thread's errno; nothing between the failing call and
    // this may change it. The second one's name is "IO".
    [[nodiscard]] static SVException errnoWithNameReason(std::string_view name,
                                                         std::string_view reason);
    [[nodiscard]] static SVException ioErrnoWithReason(std::string_view reason);

    // The handle of an exception that is at hand as an object: see NSException.
    explicit SVException(SVExceptionObjectPtr object);
    explicit SVException(SVExceptionObject& object);

    // --- For all of them.

    // What an exception of that name is logged at: "Info" 0, "Cancel" 3, "Security" 4, "Bug" 9,
    // anything else 5.
    [[nodiscard]] static LogClassification preferredLogClassForName(std::string_view name);

    // The exception's own preferredLogClass() if it has one, else 5.
    [[nodiscard]] static LogClassification preferredLogClassForException(
        const platform::NSException& exception);

    // The name of a package type from 0 to 6; else "Unknown(N)".
    [[nodiscard]] static std::string getNameForPackageType(std::int32_t type);

    // What the logger prints a detail at, by its key. Made once, for good.
    [[nodiscard]] static const LogClassificationMap& userInfoLogClassifications();

    [[nodiscard]] static constexpr bool supportsSecureCoding() { return true; }

    // --- This one.

    // All details. Valid until they are changed.
    [[nodiscard]] const platform::Dictionary& details() const { return userInfo(); }

    // The classification set by setPreferredLogClass(), else that of the name.
    [[nodiscard]] LogClassification preferredLogClass() const;

    // Whether something is stored under the key, whatever it is: a flag that was ever set or
    // cleared reads as set.
    [[nodiscard]] bool hasFlag(std::string_view key) const;

    // Whether the soft flag was ever written, be it cleared.
    [[nodiscard]] bool isSoft() const;
    [[nodiscard]] bool isHard() const { return !isSoft(); }

    // --- Setters. A value that is absent is stored as the text "(nil)"; an absent key raises
    // NSInvalidArgumentException.

    SVException& setDetailKey(platform::Value value, DetailText key);
    // "0x" and at least four digits, from 0x10000 on at least eight; the second always sixteen.
    SVException& setHexDetailKey(std::uint64_t value, DetailText key);
    SVException& setLongLongHexDetailKey(std::uint64_t value, DetailText key);
    // The number itself: neither makes text.
    SVException& setDecimalDetailKey(std::int64_t value, DetailText key);
    SVException& setLongLongDetailKey(std::int64_t value, DetailText key);
    SVException& setFlag(DetailText key);
    SVException& clearFlag(DetailText key);

    // What an error tells: itself as ".Error", its number or path by its domain, its texts as
    // "Description" and "Error". Nothing for nullptr. A class below this one that answers
    // "setOSErr:" is told the number of an OS-status error instead of having "OSErr".
    SVException& setError(const platform::NSErrorPtr& error);
    // "POSIXErr" and the system's text for it, "ErrDescription"; "API" is the call that failed.
    SVException& setPOSIXErr(std::int32_t number);
    SVException& setPOSIXErrApi(std::int32_t number, DetailText api);
    SVException& setAPI(DetailText api);

    // "Path". The second one of bytes with a NUL at their end, at most 1,024 of them; nothing for
    // nullptr.
    SVException& setStrPath(DetailText path);
    SVException& setCPath(const char* path);
    // The path of any object that answers path(), itself or held by a pointer.
    template <typename PathObject>
    SVException& setPathObject(const PathObject& object) {
        return setStrPath(target(object).path());
    }
    // "Name", "Path" and "Type" of any item that answers name(), path() and type(): a number that
    // the platform gives to kinds of items (0 none, 1 file, 2 directory, 5 symbolic link).
    template <typename FileInfo>
    SVException& setFileInfo(const FileInfo& item) {
        setDetailKey(DetailText(target(item).name()).value(), "Name");
        setPathObject(item);
        return setFileType(static_cast<std::int64_t>(target(item).type()));
    }
    SVException& setFile(platform::Value file);
    SVException& setFolder(platform::Value folder);
    SVException& setFilePosition(std::int64_t position);
    SVException& setLength(std::uint64_t length);

    // "PkgNumber" and "PkgType" of any object that answers number() and type().
    template <typename Package>
    SVException& setPackageInfo(const Package& package) {
        setPackageNumber(static_cast<std::uint32_t>(target(package).number()));
        return setPackageType(static_cast<std::int32_t>(target(package).type()));
    }
    SVException& setPackageType(std::int32_t type);
    SVException& setPackageNumber(std::uint32_t number);

    SVException& setObject(platform::Value object);
    SVException& setExpected(platform::Value expected);
    SVException& setClass(DetailText className);
    SVException& setClassOf(const platform::Value& object);
    // A selector, alone or as "[Class selector]".
    SVException& setMessage(DetailText selector);
    SVException& setMessageToObject(DetailText selector, const platform::Value& object);
    // A build version of four numbers, a byte each, the highest first: 0x0202050C is "2.2.5.12".
    SVException& setVersion(std::uint32_t version);
    SVException& setCause(platform::Value cause);
    SVException& setCause(const platform::NSException& cause);
    SVException& setExplanation(platform::Value explanation);

    SVException& setPreferredLogClass(LogClassification classification);
    // Sets or clears the soft flag. Either makes the exception soft: see hasFlag().
    SVException& setSoft(bool soft);

private:
    SVException& setFileType(std::int64_t type);

    // Objects are given themselves or by a pointer of any kind.
    template <typename Type>
    static const auto& target(const Type& object) {
        if constexpr (requires { *object; }) {
            return *object;
        } else {
            return object;
        }
    }
};

}  // namespace sevrin
