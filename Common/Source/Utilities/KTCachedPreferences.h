// Preferences that are read once: what was read or set is remembered, domain by domain, and what
// other processes write later is not seen.
//
// A value set here is for this process alone: later reads give it, and it never reaches the store.
// The store is asked whether it would change, and answers from the memory in which it already
// stands, so every write counts as one that changes nothing. Programs rely on that to overrule a
// setting for themselves; what is to last is set through KTUserPreferences.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/KTUserPreferences.h"

namespace sevrin {

class KTCachedPreferences final : public KTUserPreferences {
public:
    // The shared instance of this class, which is not that of KTUserPreferences.
    [[nodiscard]] static const std::shared_ptr<KTCachedPreferences>& sharedPreferences();

    [[nodiscard]] platform::Value valueForKeyInDomain(std::string_view key,
                                                      std::string_view domain) override;

    // Remembers the value, and answers false.
    bool setValueForKeyInDomain(const platform::Value& value, std::string_view key,
                                std::string_view domain) override;

    // Reads each key, so that later reads need no store.
    void cacheValuesForKeysInDomain(const std::vector<std::string>& keys, std::string_view domain);

private:
    using Values = std::map<std::string, platform::Value, std::less<>>;

    Values& valuesOf(std::string_view domain);

    // Null stands for a value that is known to be missing. Guarded by syncLock_.
    std::map<std::string, Values, std::less<>> cache_;
};

}  // namespace sevrin
