// Reads and writes keyed archives with the real classes, for archives_test.py.
//
//     archive-test-helper rewrite < ARCHIVE    the archive, read and written again
//     archive-test-helper sample               an archive of everything that a value can be
//
// What an archive is refused for is written to standard error, the exception's name on a line of
// its own; exit 1. An archive that gives null: exit 3.
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/SVException.h"
#include "Platform/ArchivedURL.h"
#include "Platform/NSCoder.h"
#include "Platform/NSError.h"
#include "Platform/NSKeyedArchiver.h"
#include "Platform/NSKeyedUnarchiver.h"
#include "Platform/NSURL.h"
#include "Platform/NSUUID.h"

namespace {

using namespace sevrin::platform;

int rewrite() {
    const std::string bytes(std::istreambuf_iterator<char>(std::cin), {});
    try {
        const Value root = NSKeyedUnarchiver::unarchiveObjectWithData(bytes);
        if (root.isNull()) return 3;
        std::cout << NSKeyedArchiver::archivedDataWithRootObject(root);
        return 0;
    } catch (const NSException& exception) {
        std::cerr << exception.name() << '\n' << exception.reason().value_or("") << '\n';
        return 1;
    }
}

Value sampleValue() {
    const Value twice = ValueArray{"shared"};
    const Value error = NSError::errorWithDomainCodeUserInfo(
        NSPOSIXErrorDomain, 13, Dictionary{{NSLocalizedDescriptionKey, "Permission denied"}});
    const auto address = std::make_shared<ArchivedURL>("https://example.com/", nullptr);
    return Dictionary{
        {"text", ValueArray{"", "caf\u00e9", "\U0001F600", std::string("a\0b", 3)}},
        {"integers", ValueArray{0, 255, 256, -1, std::numeric_limits<std::int64_t>::min(),
                                std::numeric_limits<std::uint64_t>::max()}},
        {"booleans", ValueArray{true, false}},
        {"reals", ValueArray{1.0, 0.0, -0.0, 1e300}},
        {"data", Data{std::string("\0\xff", 2)}},
        {"date", NSDate::dateWithTimeIntervalSinceReferenceDate(700'000'000.25)},
        {"null", nullptr},
        {"set", Set({"a", 1})},
        {7, "a number for a key"},
        {"twice", ValueArray{twice, twice}},
        {"url", NSURL::URLWithString("file:///tmp/x")},
        {"relative", std::make_shared<ArchivedURL>("page", address)},
        {"uuid", NSUUID::initWithUUIDBytes("0123456789abcdef")},
        {"error", error},
        {"same error", error}};
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "rewrite") return rewrite();
    if (command == "sample") {
        std::cout << NSKeyedArchiver::archivedDataWithRootObject(sampleValue());
        return 0;
    }
    std::cerr << "usage: archive-test-helper rewrite|sample\n";
    return 2;
}
