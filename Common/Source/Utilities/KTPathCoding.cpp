// The archived form of paths: one field, the bytes with the NUL that ends them.
#include <cstring>

#include "Common/Source/Utilities/KTSubPath.h"
#include "Platform/PathString.h"

namespace sevrin {

using platform::NSCoder;
using platform::NSCodingClass;

namespace {

constexpr std::string_view kPathKey = "path";

// Archives name these classes before this program has mentioned them.
[[maybe_unused]] const platform::Class& registeredPath = KTPath::classObject();
[[maybe_unused]] const platform::Class& registeredSubPath = KTSubPath::classObject();

}  // namespace

platform::Class& KTPath::classObject() {
    static NSCodingClass& theClass = *new NSCodingClass(
        "KTPath", &platform::Object::classObject(),
        [](NSCoder& coder) -> platform::ObjectPtr { return KTPath::initWithCoder(coder); });
    return theClass;
}

platform::Class& KTSubPath::classObject() {
    static NSCodingClass& theClass = *new NSCodingClass(
        "KTSubPath", &KTPath::classObject(),
        [](NSCoder& coder) -> platform::ObjectPtr { return KTSubPath::initWithCoder(coder); });
    return theClass;
}

void KTPath::encodeWithCoder(NSCoder& coder) const {
    const char* const path = cPath();
    const std::string_view bytes(path, std::strlen(path) + 1);
    if (coder.allowsKeyedCoding()) {
        coder.encodeBytesForKey(bytes, kPathKey);
    } else {
        coder.encodeBytes(bytes);
    }
}

CStringPtr KTPath::decodeCPath(NSCoder& coder) {
    const std::optional<std::string_view> bytes =
        coder.allowsKeyedCoding() ? coder.decodeBytesForKey(kPathKey) : coder.decodeBytes();
    if (!bytes) coder.failDecoding("a path without its bytes");
    if (bytes->empty() || bytes->find('\0') != bytes->size() - 1) {
        coder.failDecoding("a path that does not end with its only NUL");
    }
    return makeCString(*bytes);
}

KTPathPtr KTPath::initWithCoder(NSCoder& coder) {
    return initWithCPath(decodeCPath(coder).get());
}

KTPathPtr KTSubPath::initWithCoder(NSCoder& coder) {
    CStringPtr path = decodeCPath(coder);
    CStringPtr name = makeCString(platform::basename(path.get()));
    return std::make_shared<KTSubPath>(Passkey{}, std::move(name), std::move(path), nullptr);
}

}  // namespace sevrin
