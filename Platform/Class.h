// Classes known by name, with tables from selector to method.
//
// A Class registers itself for the life of the process; looking up a name that nobody registered
// gives nothing. Methods take and give Values, so that a message whose selector arrives as text can
// be sent to any object. A method found through the table may be replaced; direct C++ calls do not
// pass through it. Lookup may happen on any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <shared_mutex>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Platform/Value.h"

namespace sevrin::platform {

// What a message carries: its arguments, and where its answer goes.
//
// `reply` is empty for a method without a reply block; else it is called at most once, on any
// thread, with one Value for each reply argument.
struct Invocation {
    using Reply = std::function<void(std::vector<Value>)>;

    std::span<Value> arguments;
    Reply reply;
};

class Class {
public:
    // Runs a method on `receiver` (nullptr for a class method) and gives its result, null for
    // methods without one.
    using Method = std::function<Value(Object* receiver, Invocation& invocation)>;
    using MethodTable = std::map<std::string, Method, std::less<>>;

    // Registers a class. `superclass` may be nullptr only for the root. Registering a name a second
    // time is a bug.
    Class(std::string name, Class* superclass, MethodTable instanceMethods,
          MethodTable classMethods = {});
    Class(const Class&) = delete;
    Class& operator=(const Class&) = delete;
    virtual ~Class();

    // The class registered as `name`, or nullptr.
    [[nodiscard]] static Class* named(std::string_view name);

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] Class* superclass() const { return superclass_; }

    // Whether this is `other` or inherits from it.
    [[nodiscard]] bool isSubclassOf(const Class& other) const;

    // The method for `selector`, here or inherited; nullptr when there is none. The copy that a
    // caller takes of it stays callable whatever is replaced later.
    [[nodiscard]] const Method* instanceMethod(std::string_view selector) const;
    [[nodiscard]] const Method* classMethod(std::string_view selector) const;

private:
    const std::string name_;
    Class* const superclass_;
    MethodTable instanceMethods_;
    MethodTable classMethods_;
};

}  // namespace sevrin::platform
