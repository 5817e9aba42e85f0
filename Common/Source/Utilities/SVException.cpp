// The rich exception: its constructors, its tables, and the setters of its details.
#include "Common/Source/Utilities/SVException.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "Platform/Text.h"
#include "Platform/ValueClass.h"

namespace sevrin {

using platform::NSErrorPtr;
using platform::stringWithFormat;
using platform::Value;

namespace {

constexpr std::string_view kIOName = "IO";
constexpr std::string_view kSoftKey = ".SoftError";

// Beyond this many bytes a path of the system is cut.
constexpr std::size_t kPathBytesMax = 1024;

// Numbers that the platform gives to the kinds of items.
enum ItemType : std::int64_t { kNoType = 0, kRegularFile = 1, kDirectory = 2, kSymbolicLink = 5 };

SVExceptionObject& payload(const SVException& exception) {
    return static_cast<SVExceptionObject&>(*exception.object());
}

// The extension point for OS-status numbers; false when the exception's class has none.
bool tellOSErr(SVExceptionObject& exception, std::int32_t number) {
    const platform::Class::Method* found = exception.isa().instanceMethod("setOSErr:");
    if (found == nullptr) return false;
    const platform::Class::Method method = *found;
    Value argument = number;
    platform::Invocation invocation{{&argument, 1}, {}};
    method(&exception, invocation);
    return true;
}

}  // namespace

SVException::SVException(SVExceptionObjectPtr object) : NSException(std::move(object)) {}

SVException::SVException(SVExceptionObject& object) : NSException(object) {}

SVException SVException::exceptionWithNameReason(std::string_view name, std::string_view reason) {
    return SVException(std::make_shared<SVExceptionObject>(std::string(name), std::string(reason)));
}

SVException SVException::errorNameReason(const NSErrorPtr& error, std::string_view name,
                                         std::string_view reason) {
    return exceptionWithNameReason(name, reason).setError(error);
}

// The number is taken first, for making an exception may need memory, which may change it.
SVException SVException::errnoWithNameReason(std::string_view name, std::string_view reason) {
    const std::int32_t number = errno;
    return exceptionWithNameReason(name, reason).setPOSIXErr(number);
}

SVException SVException::ioErrnoWithReason(std::string_view reason) {
    return errnoWithNameReason(kIOName, reason);
}

LogClassification SVException::preferredLogClassForName(std::string_view name) {
    if (name == "Info") return LogClassification::Plain;
    if (name == "Cancel") return LogClassification::Caution;
    if (name == "Security") return LogClassification::Warning;
    if (name == "Bug") return LogClassification::Debug;
    return LogClassification::Failure;
}

LogClassification SVException::preferredLogClassForException(
    const platform::NSException& exception) {
    platform::ExceptionObject& object = *exception.object();
    if (const auto* rich = dynamic_cast<const SVExceptionObject*>(&object)) {
        return rich->preferredLogClass();
    }
    if (const auto* method = object.isa().instanceMethod("preferredLogClass")) {
        platform::Invocation invocation{};
        const Value answer = (*method)(&object, invocation);
        if (const auto* number = answer.ifSigned()) {
            return LogClassification{static_cast<std::int32_t>(*number)};
        }
    }
    return LogClassification::Failure;
}

std::string SVException::getNameForPackageType(std::int32_t type) {
    switch (type) {
        case 0:
            return "Invalid";
        case 1:
            return "Data";
        case 2:
            return "List";
        case 3:
            return "File";
        case 4:
            return "Directory";
        case 5:
            return "DeltaDirectory";
        case 6:
            return "Session";
        default:
            return stringWithFormat("Unknown(%d)", type);
    }
}

const LogClassificationMap& SVException::userInfoLogClassifications() {
    static const LogClassificationMap& theTable = *new LogClassificationMap{
        {"POSIXErr", LogClassification::Minutia},  {"OSErr", LogClassification::Minutia},
        {"OSErrName", LogClassification::Minutia}, {"API", LogClassification::Debug},
        {"Object", LogClassification::Debug},      {"Path", LogClassification::Minutia},
        {"PkgType", LogClassification::Debug},     {"PkgNumber", LogClassification::Debug},
        {"Class", LogClassification::Debug},       {"Cause", LogClassification::Debug},
    };
    return theTable;
}

LogClassification SVException::preferredLogClass() const {
    return payload(*this).preferredLogClass();
}

bool SVException::hasFlag(std::string_view key) const {
    return details().find(key) != nullptr;
}

bool SVException::isSoft() const {
    return hasFlag(kSoftKey);
}

SVException& SVException::setDetailKey(Value value, DetailText key) {
    if (value.isNull()) value = "(nil)";
    object()->setUserInfoValueForKey(std::move(value), key.value());
    return *this;
}

SVException& SVException::setHexDetailKey(std::uint64_t value, DetailText key) {
    return setDetailKey(stringWithFormat(value < 0x10000 ? "0x%04llx" : "0x%08llx", value), key);
}

SVException& SVException::setLongLongHexDetailKey(std::uint64_t value, DetailText key) {
    return setDetailKey(stringWithFormat("0x%016llx", value), key);
}

SVException& SVException::setDecimalDetailKey(std::int64_t value, DetailText key) {
    return setDetailKey(value, key);
}

SVException& SVException::setLongLongDetailKey(std::int64_t value, DetailText key) {
    return setDetailKey(value, key);
}

SVException& SVException::setFlag(DetailText key) {
    return setDetailKey(true, key);
}

SVException& SVException::clearFlag(DetailText key) {
    return setDetailKey(false, key);
}

SVException& SVException::setError(const NSErrorPtr& error) {
    if (!error) return *this;
    setDetailKey(error, ".Error");
    const auto code = static_cast<std::int32_t>(error->code());
    if (error->domain() == platform::NSPOSIXErrorDomain) {
        setPOSIXErr(code);
    } else if (error->domain() == platform::NSOSStatusErrorDomain) {
        if (!tellOSErr(payload(*this), code)) setDecimalDetailKey(error->code(), "OSErr");
    } else if (error->domain() == platform::NSURLErrorDomain) {
        const Value* url = error->userInfo().find(platform::NSURLErrorFailingURLStringErrorKey);
        if (url != nullptr && url->ifString() != nullptr) setStrPath(*url->ifString());
    }
    setDetailKey(error->localizedDescription(), "Description");
    if (const auto reason = error->localizedFailureReason()) setDetailKey(*reason, "Error");
    return *this;
}

SVException& SVException::setPOSIXErr(std::int32_t number) {
    setDecimalDetailKey(number, "POSIXErr");
    return setDetailKey(platform::errorNumberText(number), "ErrDescription");
}

SVException& SVException::setPOSIXErrApi(std::int32_t number, DetailText api) {
    return setPOSIXErr(number).setAPI(api);
}

SVException& SVException::setAPI(DetailText api) {
    return setDetailKey(api.value(), "API");
}

SVException& SVException::setStrPath(DetailText path) {
    return setDetailKey(path.value(), "Path");
}

SVException& SVException::setCPath(const char* path) {
    if (path == nullptr) return *this;
    return setStrPath(std::string_view(path, ::strnlen(path, kPathBytesMax)));
}

SVException& SVException::setFileType(std::int64_t type) {
    switch (type) {
        case kNoType:
            return *this;
        case kRegularFile:
            return setDetailKey("regular file", "Type");
        case kDirectory:
            return setDetailKey("directory", "Type");
        case kSymbolicLink:
            return setDetailKey("symblic link", "Type");
        default:
            return setDetailKey(type, "Type");
    }
}

SVException& SVException::setFile(Value file) {
    return setDetailKey(std::move(file), "File");
}

SVException& SVException::setFolder(Value folder) {
    return setDetailKey(std::move(folder), "Folder");
}

SVException& SVException::setFilePosition(std::int64_t position) {
    return setLongLongDetailKey(position, "Position");
}

SVException& SVException::setLength(std::uint64_t length) {
    return setLongLongDetailKey(static_cast<std::int64_t>(length), "Length");
}

SVException& SVException::setPackageType(std::int32_t type) {
    return setDetailKey(getNameForPackageType(type), "PkgType");
}

SVException& SVException::setPackageNumber(std::uint32_t number) {
    return setDecimalDetailKey(number, "PkgNumber");
}

SVException& SVException::setObject(Value value) {
    return setDetailKey(std::move(value), "Object");
}

SVException& SVException::setExpected(Value expected) {
    return setDetailKey(std::move(expected), "Expected");
}

SVException& SVException::setClass(DetailText className) {
    return setDetailKey(className.value(), "Class");
}

SVException& SVException::setClassOf(const Value& value) {
    return value.isNull() ? setClass(nullptr) : setClass(platform::classNameOf(value));
}

// Selectors are ASCII; what is not shows as an escape.
SVException& SVException::setMessage(DetailText selector) {
    Value text = selector.value();
    if (const std::string* name = text.ifString()) text = platform::nonLossyAscii(*name);
    return setDetailKey(std::move(text), "Message");
}

SVException& SVException::setMessageToObject(DetailText selector, const Value& value) {
    const Value name = selector.value();
    return setDetailKey(
        stringWithFormat("[%@ %s]", platform::classNameOf(value), name.description()), "Message");
}

SVException& SVException::setVersion(std::uint32_t version) {
    return setDetailKey(stringWithFormat("%u.%u.%u.%u", version >> 24, version >> 16 & 0xFF,
                                         version >> 8 & 0xFF, version & 0xFF),
                        "Version");
}

SVException& SVException::setCause(Value cause) {
    return setDetailKey(std::move(cause), "Cause");
}

SVException& SVException::setCause(const NSException& cause) {
    return setCause(Value(cause.object()));
}

SVException& SVException::setExplanation(Value explanation) {
    return setDetailKey(std::move(explanation), ".Explain");
}

SVException& SVException::setPreferredLogClass(LogClassification classification) {
    return setDecimalDetailKey(static_cast<std::int32_t>(classification), ".LogClass");
}

SVException& SVException::setSoft(bool soft) {
    return soft ? setFlag(kSoftKey) : clearFlag(kSoftKey);
}

}  // namespace sevrin
