// Copies and joins of texts that end with NUL.
#include "Common/Source/Utilities/CString.h"

#include <cstring>
#include <new>

namespace sevrin {

namespace {

std::string_view untilNul(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

CStringPtr allocate(std::size_t length) {
    CStringPtr result(static_cast<char*>(std::malloc(length + 1)));
    if (!result) throw std::bad_alloc();
    result.get()[length] = '\0';
    return result;
}

}  // namespace

CStringPtr makeCString(std::string_view text) {
    const std::string_view content = untilNul(text);
    CStringPtr result = allocate(content.size());
    content.copy(result.get(), content.size());
    return result;
}

CStringPtr makeJoinedCString(std::string_view parent, std::string_view name) {
    const std::string_view head = untilNul(parent);
    const std::string_view tail = untilNul(name);
    const std::size_t separator = head.empty() || head.ends_with('/') ? 0 : 1;
    CStringPtr result = allocate(head.size() + separator + tail.size());
    char* end = result.get() + head.copy(result.get(), head.size());
    if (separator != 0) *end++ = '/';
    tail.copy(end, tail.size());
    return result;
}

}  // namespace sevrin
