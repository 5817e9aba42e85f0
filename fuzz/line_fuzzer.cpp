// Fuzzes log line identifiers as text: any text is an identifier or none, and an identifier's own
// text is that identifier again.
#include <cstdint>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/LogLineIdentifier.h"
#include "Platform/Assertion.h"

namespace sevrin {
namespace {

void run(std::string_view text) {
    const LogLineIdentifierPtr identifier = LogLineIdentifier::logLineIdentifierFromString(text);
    if (!identifier) return;
    const std::string dotted = identifier->description();
    const LogLineIdentifierPtr again = LogLineIdentifier::logLineIdentifierFromString(dotted);
    SEVRIN_ASSERT(again && again->compare(identifier) == 0, "an identifier's text is its own");
    SEVRIN_ASSERT(again->hash() == identifier->hash(), "equal identifiers have equal hashes");
    SEVRIN_ASSERT(again->description() == dotted, "equal identifiers have equal texts");
    const LogLineIdentifierPtr child = LogLineIdentifier::next(identifier);
    SEVRIN_ASSERT(identifier->containsIdentifier(child), "a line contains its children");
    SEVRIN_ASSERT(identifier->compare(child) < 0, "a line comes before its children");
}

}  // namespace
}  // namespace sevrin

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sevrin::run({reinterpret_cast<const char*>(data), size});
    return 0;
}
