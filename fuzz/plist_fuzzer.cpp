// Fuzzes the reader of binary property lists, and the writer with whatever the reader takes.
//
// What was read is written, read again, and must be the same; written a second time it must be the
// same bytes. Run it with a limit on memory: a list may not cost more than a multiple of its size.
#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/Assertion.h"
#include "Platform/BinaryPropertyList.h"

namespace sevrin::platform {
namespace {

void run(std::string_view bytes) {
    Value value;
    try {
        value = propertyListFromData(bytes);
    } catch (const PropertyListError&) {
        return;
    }
    const std::string written = dataFromPropertyList(value);
    const Value again = propertyListFromData(written);
    SEVRIN_ASSERT(again == value, "a property list survives being written");
    SEVRIN_ASSERT(dataFromPropertyList(again) == written, "equal values are equal bytes");
}

}  // namespace
}  // namespace sevrin::platform

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sevrin::platform::run({reinterpret_cast<const char*>(data), size});
    return 0;
}
