// What everything offers that is found under a path: its name, its path and its URL, each in the
// forms that system calls, people and other services want.
//
// Names and paths are bytes; as text they are the same bytes, also where those are not UTF-8.
#pragma once

#include <string>

#include "Platform/NSURL.h"
#include "Platform/Object.h"

namespace sevrin {

class KTAbstractPath : public platform::Object {
public:
    // The last component, ending with NUL. Valid as long as the object names the same thing.
    [[nodiscard]] virtual const char* cName() const = 0;

    // The same as text.
    [[nodiscard]] virtual std::string name() const = 0;

    // The name to show to people.
    [[nodiscard]] virtual std::string displayName() const = 0;

    // The full path, ending with NUL. Valid as long as the object names the same thing.
    [[nodiscard]] virtual const char* cPath() const = 0;

    // The same as text.
    [[nodiscard]] virtual std::string path() const = 0;

    // The path as a file URL. Never nullptr.
    [[nodiscard]] virtual platform::NSURLPtr url() const = 0;

    // What follows the last point of the name; empty when there is none.
    [[nodiscard]] virtual std::string extension() const = 0;
};

}  // namespace sevrin
