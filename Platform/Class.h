// Classes known by name, with tables from selector to method.
//
// A Class registers itself for the life of the process; looking up a name that nobody registered
// gives nothing. Methods take and give Values, so that a message whose selector arrives as text can
// be sent to any object. A method found through the table may be replaced; direct C++ calls do not
// pass through it. Lookup and replacement may happen on any thread, side by side.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Export.h"
#include "Platform/Object.h"
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

class SEVRIN_EXPORT Class {
public:
    // Runs a method on `receiver` (nullptr for a class method) and gives its result, null for
    // methods without one.
    using Method = std::function<Value(Object* receiver, Invocation& invocation)>;
    using MethodTable = std::map<std::string, Method, std::less<>>;

    // Makes an instance as a program gets it that knows no more than the class. Never nullptr.
    using NewInstance = std::function<ObjectPtr()>;

    // Registers a class. `superclass` may be nullptr only for the root; it outlives the class.
    // Without `newInstance` nobody makes instances by way of the class. Registering a name a second
    // time is a bug.
    Class(std::string name, Class* superclass, MethodTable instanceMethods,
          MethodTable classMethods = {}, NewInstance newInstance = nullptr);
    Class(const Class&) = delete;
    Class& operator=(const Class&) = delete;
    virtual ~Class();

    // The class registered as `name`, or nullptr.
    [[nodiscard]] static Class* named(std::string_view name);

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] Class* superclass() const { return superclass_; }

    // Whether this is `other` or inherits from it.
    [[nodiscard]] bool isSubclassOf(const Class& other) const;

    // A new instance of this very class; nullptr when it was registered without a way to make one,
    // whatever its superclass can make.
    [[nodiscard]] ObjectPtr object() const;

    // The method for `selector`, here or inherited; nullptr when there is none. It stays callable
    // as long as the class that has it, also once it is replaced.
    [[nodiscard]] const Method* instanceMethod(std::string_view selector) const;
    [[nodiscard]] const Method* classMethod(std::string_view selector) const;

    // Replaces the instance method for `selector`; messages that are looked up from now on reach
    // `implementation`, which must not be empty. Answers whether there was one to replace; if not,
    // nothing changes. An inherited method is replaced for this class and those below it only.
    // What stood there is stored in `original` (empty when there was none) unless that is nullptr.
    //
    // Each replacement keeps the table before it as long as the class, for lookups that are still
    // in it: something to do as a program starts, not with every message.
    bool swizzleWithReturningOriginalImp(std::string_view selector, Method implementation,
                                         Method* original = nullptr);

private:
    struct Entry {
        std::string selector;
        std::shared_ptr<const Method> method;
    };
    // Sorted. A table that can be looked at is never changed: replacing a method publishes another.
    using Entries = std::vector<Entry>;

    [[nodiscard]] static Entries entriesOf(MethodTable methods);
    [[nodiscard]] static Entries::const_iterator position(const Entries& entries,
                                                          std::string_view selector);
    [[nodiscard]] static const Method* find(const Entries& entries, std::string_view selector);
    void publish(std::unique_ptr<const Entries> entries);

    const std::string name_;
    Class* const superclass_;
    const NewInstance newInstance_;
    const Entries classMethods_;
    std::atomic<const Entries*> instanceMethods_ = nullptr;       // The last of those below.
    std::vector<std::unique_ptr<const Entries>> instanceTables_;  // Under the lock of replacement.
};

}  // namespace sevrin::platform
