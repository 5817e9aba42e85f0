// Fuzzes the reader of keyed archives with all classes that can be archived, and the writer with
// whatever the reader takes.
//
// Only the unarchiver's exceptions may come out, and those of volumes that are not there. What was
// read is described and written; only what could be written must be readable again. Run it with a
// limit on memory and with leaks counted: an exception that reaches itself must end like any other
// object.
#include <cstdint>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/KTPath.h"
#include "Common/Source/Utilities/LogLineIdentifier.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/Assertion.h"
#include "Platform/NSException.h"
#include "Platform/NSKeyedArchiver.h"
#include "Platform/NSKeyedUnarchiver.h"

namespace sevrin {
namespace {

using platform::NSException;
using platform::NSKeyedArchiver;
using platform::NSKeyedUnarchiver;
using platform::Value;

// Links the classes in; each registers itself.
[[maybe_unused]] const platform::Class* const kClasses[] = {
    &LogLineIdentifier::classObject(), &SVExceptionObject::classObject(), &KTPath::classObject()};

void checkName(const NSException& exception) {
    const std::string& name = exception.name();
    // A volume is read as it is mounted now, and fails as the machine fails when it is not.
    const bool isOfVolume = name == "IO";
    SEVRIN_ASSERT(isOfVolume || name == platform::NSInvalidArgumentException ||
                      name == platform::NSInvalidUnarchiveOperationException ||
                      name == platform::NSRangeException,
                  "an archive is refused with the unarchiver's exceptions only");
    SEVRIN_ASSERT(exception.reason().has_value(), "a refusal has its reason");
}

void run(std::string_view bytes) {
    if (bytes.empty()) return;
    Value value;
    try {
        value = NSKeyedUnarchiver::unarchiveObjectWithData(bytes);
    } catch (const NSException& exception) {
        checkName(exception);
        return;
    }
    static_cast<void>(value.description());
    std::string written;
    try {
        written = NSKeyedArchiver::archivedDataWithRootObject(value);
    } catch (const NSException& exception) {
        SEVRIN_ASSERT(exception.name() == platform::NSInvalidArgumentException,
                      "the archiver refuses by its own exception");
        return;
    }
    try {
        static_cast<void>(NSKeyedUnarchiver::unarchiveObjectWithData(written));
    } catch (const NSException& exception) {
        SEVRIN_ASSERT(false, exception.reason().value_or(""));
    }
}

}  // namespace
}  // namespace sevrin

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sevrin::run({reinterpret_cast<const char*>(data), size});
    return 0;
}
