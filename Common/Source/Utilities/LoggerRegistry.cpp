// The names that programs of the suite know.
#include "Common/Source/Utilities/LoggerRegistry.h"

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "Common/Source/Utilities/LogFileLogger.h"
#include "Common/Source/Utilities/NSLogLogger.h"

namespace sevrin::LoggerRegistry {

namespace {

struct Factories {
    std::mutex lock;
    std::map<std::string, Factory, std::less<>> byName;
};

// Never destroyed: a logger may be chosen by the last thing that ends with the program.
Factories& factories() {
    static Factories& theFactories = *[] {
        auto* const made = new Factories;
        made->byName.emplace(kStandardLogger, [] { return LogFileLogger::makeUnlessStuck(); });
        made->byName.emplace("NSLogLogger", [] { return std::make_shared<NSLogLogger>(); });
        return made;
    }();
    return theFactories;
}

}  // namespace

LoggerPtr make(std::string_view name) {
    Factory factory;
    {
        const std::lock_guard guard(factories().lock);
        const auto found = factories().byName.find(name);
        if (found == factories().byName.end()) return nullptr;
        factory = found->second;
    }
    return factory();  // Without the lock: what a logger does in its making may need a logger.
}

Factory setFactory(std::string_view name, Factory factory) {
    const std::lock_guard guard(factories().lock);
    Factory& slot = factories().byName[std::string(name)];
    Factory before = std::exchange(slot, std::move(factory));
    if (!slot) factories().byName.erase(std::string(name));
    return before;
}

std::vector<std::string_view> fallbackLoggers(bool isRoot) {
    if (isRoot) return {"NullLogger", "NSLogLogger"};
    return {"NSLogLogger", "NullLogger"};
}

}  // namespace sevrin::LoggerRegistry
