// Classes known by name: the registry, the walk up the chain, and replacing what it finds.
//
// Looking up takes no lock: a table is reached through one atomic pointer and never changes again.
#include "Platform/Class.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>
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

// Held while methods are replaced, in whatever class: one that is inherited stays what it is until
// the class below has its own.
std::mutex& replacementLock() {
    static std::mutex& theLock = *new std::mutex;
    return theLock;
}

// The order of a table. Few selectors are of one length, so a search seldom reads their letters.
bool precedes(std::string_view left, std::string_view right) {
    return left.size() != right.size() ? left.size() < right.size() : left < right;
}

}  // namespace

Class::Class(std::string name, Class* superclass, MethodTable instanceMethods,
             MethodTable classMethods, NewInstance newInstance)
    : name_(std::move(name)),
      superclass_(superclass),
      newInstance_(std::move(newInstance)),
      classMethods_(entriesOf(std::move(classMethods))) {
    publish(std::make_unique<const Entries>(entriesOf(std::move(instanceMethods))));
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

ObjectPtr Class::object() const {
    return newInstance_ ? newInstance_() : nullptr;
}

const Class::Method* Class::instanceMethod(std::string_view selector) const {
    for (const Class* walk = this; walk != nullptr; walk = walk->superclass_) {
        const Entries& entries = *walk->instanceMethods_.load(std::memory_order_acquire);
        if (const Method* const found = find(entries, selector)) return found;
    }
    return nullptr;
}

const Class::Method* Class::classMethod(std::string_view selector) const {
    for (const Class* walk = this; walk != nullptr; walk = walk->superclass_) {
        if (const Method* const found = find(walk->classMethods_, selector)) return found;
    }
    return nullptr;
}

bool Class::swizzleWithReturningOriginalImp(std::string_view selector, Method implementation,
                                            Method* original) {
    SEVRIN_ASSERT(implementation, "a method is replaced by one that can be called");
    const std::lock_guard guard(replacementLock());
    const Method* const found = instanceMethod(selector);
    Method before = found ? *found : Method();
    if (found) {
        Entry entry{std::string(selector),
                    std::make_shared<const Method>(std::move(implementation))};
        auto entries = std::make_unique<Entries>(*instanceMethods_.load());
        const auto place = entries->begin() + (position(*entries, selector) - entries->cbegin());
        if (place != entries->end() && place->selector == selector) {
            *place = std::move(entry);
        } else {
            entries->insert(place, std::move(entry));
        }
        publish(std::move(entries));
    }
    if (original) *original = std::move(before);
    return found != nullptr;
}

Class::Entries Class::entriesOf(MethodTable methods) {
    Entries entries;
    entries.reserve(methods.size());
    for (auto& [selector, method] : methods)
        entries.push_back({selector, std::make_shared<const Method>(std::move(method))});
    std::ranges::sort(entries, precedes, &Entry::selector);
    return entries;
}

// Where the method for `selector` stands, or would have to.
Class::Entries::const_iterator Class::position(const Entries& entries, std::string_view selector) {
    return std::ranges::lower_bound(entries, selector, precedes, &Entry::selector);
}

const Class::Method* Class::find(const Entries& entries, std::string_view selector) {
    const auto found = position(entries, selector);
    return found != entries.end() && found->selector == selector ? found->method.get() : nullptr;
}

void Class::publish(std::unique_ptr<const Entries> entries) {
    instanceTables_.push_back(std::move(entries));
    instanceMethods_.store(instanceTables_.back().get(), std::memory_order_release);
}

}  // namespace sevrin::platform
