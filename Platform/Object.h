// The root of everything that has identity: class, description, equality, hash.
//
// Objects are held by std::shared_ptr. A class that wants to be found by name, to answer selectors,
// or to be archived says so by overriding isa() with a Class of its own (Platform/Class.h); the
// others are plain "Object".
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Export.h"

namespace sevrin::platform {

class Class;

class SEVRIN_EXPORT Object {
public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object();

    // The class of "Object" itself.
    [[nodiscard]] static Class& classObject();

    // The class of this instance.
    [[nodiscard]] virtual const Class& isa() const;

    // Text for people; "<Name: 0x...>" unless a class knows better.
    [[nodiscard]] virtual std::string description() const;

    // Whether both are equal; identity unless a class knows better.
    [[nodiscard]] virtual bool isEqual(const Object& other) const;

    // Equal objects have equal hashes.
    [[nodiscard]] virtual std::size_t hash() const;

    // Whether an instance method stands under `selector` in the class or one above it.
    [[nodiscard]] bool respondsToSelector(std::string_view selector) const;
};

using ObjectPtr = std::shared_ptr<Object>;

}  // namespace sevrin::platform
