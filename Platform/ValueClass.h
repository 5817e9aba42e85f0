// What the platform calls the class of a value.
//
// Most values are no objects here, but messages and archives name the classes that they are there.
// On any thread.
#pragma once

#include <string_view>

#include "Platform/Value.h"

namespace sevrin::platform {

// "NSString", "NSNumber", "NSArray" ... for the kinds of values, the class's own name for an
// object.
// "(null)" for null. Valid as long as the value.
[[nodiscard]] std::string_view classNameOf(const Value& value);

}  // namespace sevrin::platform
