// The root of everything that has identity: the defaults.
#include "Platform/Object.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>

#include "Platform/Class.h"

namespace sevrin::platform {

Object::~Object() = default;

Class& Object::classObject() {
    static Class theClass("Object", nullptr, {}, {}, [] { return std::make_shared<Object>(); });
    return theClass;
}

const Class& Object::isa() const {
    return classObject();
}

std::string Object::description() const {
    char address[2 + 2 * sizeof(void*) + 1];
    std::snprintf(address, sizeof address, "0x%jx",
                  static_cast<std::uintmax_t>(reinterpret_cast<std::uintptr_t>(this)));
    return "<" + isa().name() + ": " + address + ">";
}

bool Object::isEqual(const Object& other) const {
    return this == &other;
}

std::size_t Object::hash() const {
    return std::hash<const Object*>{}(this);
}

bool Object::respondsToSelector(std::string_view selector) const {
    return isa().instanceMethod(selector) != nullptr;
}

}  // namespace sevrin::platform
