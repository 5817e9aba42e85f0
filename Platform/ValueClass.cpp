// What the platform calls the class of a value: the kinds by name.
#include "Platform/ValueClass.h"

#include "Platform/Class.h"

namespace sevrin::platform {

std::string_view classNameOf(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Null:
            return "(null)";
        case Value::Kind::Boolean:
        case Value::Kind::Signed:
        case Value::Kind::Unsigned:
        case Value::Kind::Double:
            return "NSNumber";
        case Value::Kind::String:
            return "NSString";
        case Value::Kind::Data:
            return "NSData";
        case Value::Kind::Date:
            return "NSDate";
        case Value::Kind::Array:
            return "NSArray";
        case Value::Kind::Dictionary:
            return "NSDictionary";
        case Value::Kind::Set:
            return "NSSet";
        case Value::Kind::Object:
            return value.object()->isa().name();
    }
    return "(null)";
}

}  // namespace sevrin::platform
