// Classes known by name: the registry and the walk up the chain.
#include "Platform/Class.h"

#include <mutex>
#include <utility>

#include "Platform/Assertion.h"

namespace sevrin::platform {

namespace {

struct Registry {
    std::shared_mutex lock;
    std::map<std::string, Class*, std::less<>> classes;
};

// Never destroyed: a class may outlive any static that was made before it.
Registry& registry() {
    static Registry& theRegistry = *new Registry;
    return theRegistry;
}

}  // namespace

Class::Class(std::string name, Class* superclass, MethodTable instanceMethods,
             MethodTable classMethods)
    : name_(std::move(name)),
      superclass_(superclass),
      instanceMethods_(std::move(instanceMethods)),
      classMethods_(std::move(classMethods)) {
    const std::unique_lock guard(registry().lock);
    const bool isNew = registry().classes.emplace(name_, this).second;
    SEVRIN_ASSERT(isNew, "a class name is registered once");
}

Class::~Class() {
    const std::unique_lock guard(registry().lock);
    registry().classes.erase(name_);
}

Class* Class::named(std::string_view name) {
    const std::shared_lock guard(registry().lock);
    const auto found = registry().classes.find(name);
    return found == registry().classes.end() ? nullptr : found->second;
}

bool Class::isSubclassOf(const Class& other) const {
    for (const Class* walk = this; walk != nullptr; walk = walk->superclass_) {
        if (walk == &other) return true;
    }
    return false;
}

const Class::Method* Class::instanceMethod(std::string_view selector) const {
    for (const Class* walk = this; walk != nullptr; walk = walk->superclass_) {
        const auto found = walk->instanceMethods_.find(selector);
        if (found != walk->instanceMethods_.end()) return &found->second;
    }
    return nullptr;
}

const Class::Method* Class::classMethod(std::string_view selector) const {
    for (const Class* walk = this; walk != nullptr; walk = walk->superclass_) {
        const auto found = walk->classMethods_.find(selector);
        if (found != walk->classMethods_.end()) return &found->second;
    }
    return nullptr;
}

}  // namespace sevrin::platform
