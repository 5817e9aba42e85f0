// Fuzzes the sequential decoder with all classes that can be archived.
//
// An input is a binary property list, an array: the values of the sequence, with an empty
// dictionary for null, which no list holds. What was decoded is encoded and decoded again.
#include <cstdint>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/KTPath.h"
#include "Common/Source/Utilities/LogLineIdentifier.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/Assertion.h"
#include "Platform/BinaryPropertyList.h"
#include "Platform/NSException.h"
#include "Platform/SequentialCoder.h"

namespace sevrin {
namespace {

using platform::NSException;
using platform::Value;

// Links the classes in; each registers itself.
[[maybe_unused]] const platform::Class* const kClasses[] = {
    &LogLineIdentifier::classObject(), &SVExceptionObject::classObject(), &KTPath::classObject()};

void run(std::string_view bytes) {
    std::vector<Value> values;
    try {
        const Value list = platform::propertyListFromData(bytes);
        if (list.ifArray() == nullptr) return;
        for (const Value& value : *list.ifArray())
            values.push_back(value.ifDictionary() ? Value() : value);
    } catch (const platform::PropertyListError&) {
        return;
    }
    Value decoded;
    try {
        decoded = platform::SequentialDecoder(values).decodeObject();
    } catch (const NSException& exception) {
        // A volume is read as it is mounted now, and fails as the machine fails when it is not.
        const bool isOfVolume = exception.name() == "IO";
        SEVRIN_ASSERT(
            isOfVolume || exception.name() == platform::NSInvalidUnarchiveOperationException,
            "a sequence is refused with the unarchiver's exception only");
        return;
    }
    platform::SequentialEncoder encoder;
    encoder.encodeObject(decoded);
    static_cast<void>(platform::SequentialDecoder(encoder.values()).decodeObject());
}

}  // namespace
}  // namespace sevrin

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sevrin::run({reinterpret_cast<const char*>(data), size});
    return 0;
}
