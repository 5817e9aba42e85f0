// The memory in front of the store.
#include "Common/Source/Utilities/KTCachedPreferences.h"

namespace sevrin {

using platform::Value;

const std::shared_ptr<KTCachedPreferences>& KTCachedPreferences::sharedPreferences() {
    static const auto& theShared =
        *new std::shared_ptr<KTCachedPreferences>(std::make_shared<KTCachedPreferences>());
    return theShared;
}

KTCachedPreferences::Values& KTCachedPreferences::valuesOf(std::string_view domain) {
    const auto found = cache_.find(domain);
    return found != cache_.end() ? found->second : cache_[std::string(domain)];
}

Value KTCachedPreferences::valueForKeyInDomain(std::string_view key, std::string_view domain) {
    const std::lock_guard guard(syncLock_);
    Values& values = valuesOf(domain);
    if (const auto found = values.find(key); found != values.end()) return found->second;
    Value value = KTUserPreferences::valueForKeyInDomain(key, domain);
    values.emplace(key, value);
    return value;
}

bool KTCachedPreferences::setValueForKeyInDomain(const Value& value, std::string_view key,
                                                 std::string_view domain) {
    {
        const std::lock_guard guard(syncLock_);
        valuesOf(domain).insert_or_assign(std::string(key), value);
    }
    return KTUserPreferences::setValueForKeyInDomain(value, key, domain);
}

void KTCachedPreferences::cacheValuesForKeysInDomain(const std::vector<std::string>& keys,
                                                     std::string_view domain) {
    for (const std::string& key : keys)
        static_cast<void>(valueForKeyInDomain(key, domain));
}

}  // namespace sevrin
