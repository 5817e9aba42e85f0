// Preferences of the suite: values under keys in a named domain, with defaults and bounds.
//
// Every read asks the store, so what another process writes is seen. A write that changes nothing
// is none. What changed is forced to the disk together, two seconds after the first change, on the
// main queue: a program that ends earlier calls synchronize() itself. Trouble with the files is
// logged at Debug; reads then give their defaults.
//
// Domains and keys are those of Platform/CFPreferences.h, which says what it throws on others. Any
// thread may call anything.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Platform/Object.h"
#include "Platform/Value.h"

namespace sevrin {

class KTUserPreferences : public platform::Object,
                          public std::enable_shared_from_this<KTUserPreferences> {
public:
    // From the first change of a domain to the flush of all that changed meanwhile.
    static constexpr std::chrono::seconds kFlushDelay{2};

    // The shared instance of this class; it lives as long as the process.
    [[nodiscard]] static const std::shared_ptr<KTUserPreferences>& sharedPreferences();

    // Instances are held by shared pointers: a flush that is due holds the instance.
    KTUserPreferences();

    // The value as it is stored; null, or the default, when there is none.
    [[nodiscard]] virtual platform::Value valueForKeyInDomain(std::string_view key,
                                                              std::string_view domain);
    [[nodiscard]] platform::Value valueForKeyInDomainWithDefault(
        std::string_view key, std::string_view domain, const platform::Value& defaultValue);

    // Stores the value, or removes it when it is null, unless that would change nothing. Answers
    // whether it was stored. Values of different kinds are different: 1 replaces true.
    virtual bool setValueForKeyInDomain(const platform::Value& value, std::string_view key,
                                        std::string_view domain);

    // The value as a truth value, integer or real: numbers and booleans are converted, text is read
    // as far as it goes (ValueConversion.h). Any other kind, and no value, gives the default: false
    // or 0 unless one is named.
    [[nodiscard]] bool boolForKeyInDomain(std::string_view key, std::string_view domain);
    [[nodiscard]] bool boolForKeyInDomainWithDefault(std::string_view key, std::string_view domain,
                                                     bool defaultValue);
    [[nodiscard]] std::int64_t integerForKeyInDomain(std::string_view key, std::string_view domain);
    [[nodiscard]] std::int64_t integerForKeyInDomainWithDefault(std::string_view key,
                                                                std::string_view domain,
                                                                std::int64_t defaultValue);
    [[nodiscard]] double doubleForKeyInDomain(std::string_view key, std::string_view domain);
    [[nodiscard]] double doubleForKeyInDomainWithDefault(std::string_view key,
                                                         std::string_view domain,
                                                         double defaultValue);

    // The same within bounds: `min` when it is less than that, else at most `max`. The default is
    // bounded too. What is no number (NaN) gives `max`.
    [[nodiscard]] std::int64_t integerForKeyInDomainWithDefaultClampedToMinMax(
        std::string_view key, std::string_view domain, std::int64_t defaultValue, std::int64_t min,
        std::int64_t max);
    [[nodiscard]] double doubleForKeyInDomainWithDefaultClampedToMinMax(std::string_view key,
                                                                        std::string_view domain,
                                                                        double defaultValue,
                                                                        double min, double max);

    // setValueForKeyInDomain() with a value of that kind.
    bool setBoolForKeyInDomain(bool value, std::string_view key, std::string_view domain);
    bool setIntegerForKeyInDomain(std::int64_t value, std::string_view key,
                                  std::string_view domain);
    bool setDoubleForKeyInDomain(double value, std::string_view key, std::string_view domain);

    // Notes that a domain has changed, and queues a flush unless one is due already.
    void domainNeedsSynchronization(std::string_view domain);

    // Flushes the domains that were noted, now.
    virtual void synchronize();

protected:
    // Guards the domains noted, and what subclasses add.
    std::mutex syncLock_;

private:
    std::optional<std::set<std::string, std::less<>>> modifiedDomains_;  // Nothing: none is due.
};

}  // namespace sevrin
