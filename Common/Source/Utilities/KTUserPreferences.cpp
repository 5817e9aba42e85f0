// Reading through the store, writing what has changed, flushing in batches.
#include "Common/Source/Utilities/KTUserPreferences.h"

#include <utility>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/ValueConversion.h"
#include "Platform/CFPreferences.h"
#include "Platform/DispatchQueue.h"

namespace sevrin {

using platform::DispatchQueue;
using platform::Value;

const std::shared_ptr<KTUserPreferences>& KTUserPreferences::sharedPreferences() {
    // Never destroyed: preferences may be read to the last.
    static const auto& theShared =
        *new std::shared_ptr<KTUserPreferences>(std::make_shared<KTUserPreferences>());
    return theShared;
}

KTUserPreferences::KTUserPreferences() {
    static std::once_flag once;
    std::call_once(once, [] {
        platform::CFPreferencesSetFaultReporter(
            [](const std::string& what) { Logger::logMessage(LogClassification::Debug, what); });
    });
}

Value KTUserPreferences::valueForKeyInDomain(std::string_view key, std::string_view domain) {
    return platform::CFPreferencesCopyAppValue(key, domain);
}

Value KTUserPreferences::valueForKeyInDomainWithDefault(std::string_view key,
                                                        std::string_view domain,
                                                        const Value& defaultValue) {
    Value value = valueForKeyInDomain(key, domain);
    return value.isNull() ? defaultValue : value;
}

bool KTUserPreferences::setValueForKeyInDomain(const Value& value, std::string_view key,
                                               std::string_view domain) {
    if (valueForKeyInDomain(key, domain) == value) return false;
    platform::CFPreferencesSetAppValue(key, value, domain);
    domainNeedsSynchronization(domain);
    return true;
}

bool KTUserPreferences::boolForKeyInDomain(std::string_view key, std::string_view domain) {
    return boolForKeyInDomainWithDefault(key, domain, false);
}

bool KTUserPreferences::boolForKeyInDomainWithDefault(std::string_view key, std::string_view domain,
                                                      bool defaultValue) {
    return booleanOf(valueForKeyInDomain(key, domain)).value_or(defaultValue);
}

bool KTUserPreferences::setBoolForKeyInDomain(bool value, std::string_view key,
                                              std::string_view domain) {
    return setValueForKeyInDomain(value, key, domain);
}

std::int64_t KTUserPreferences::integerForKeyInDomain(std::string_view key,
                                                      std::string_view domain) {
    return integerForKeyInDomainWithDefault(key, domain, 0);
}

std::int64_t KTUserPreferences::integerForKeyInDomainWithDefault(std::string_view key,
                                                                 std::string_view domain,
                                                                 std::int64_t defaultValue) {
    return integerOf(valueForKeyInDomain(key, domain)).value_or(defaultValue);
}

std::int64_t KTUserPreferences::integerForKeyInDomainWithDefaultClampedToMinMax(
    std::string_view key, std::string_view domain, std::int64_t defaultValue, std::int64_t min,
    std::int64_t max) {
    const std::int64_t value = integerForKeyInDomainWithDefault(key, domain, defaultValue);
    if (value < min) return min;
    return value >= max ? max : value;
}

bool KTUserPreferences::setIntegerForKeyInDomain(std::int64_t value, std::string_view key,
                                                 std::string_view domain) {
    return setValueForKeyInDomain(value, key, domain);
}

double KTUserPreferences::doubleForKeyInDomain(std::string_view key, std::string_view domain) {
    return doubleForKeyInDomainWithDefault(key, domain, 0.0);
}

double KTUserPreferences::doubleForKeyInDomainWithDefault(std::string_view key,
                                                          std::string_view domain,
                                                          double defaultValue) {
    return doubleOf(valueForKeyInDomain(key, domain)).value_or(defaultValue);
}

double KTUserPreferences::doubleForKeyInDomainWithDefaultClampedToMinMax(std::string_view key,
                                                                         std::string_view domain,
                                                                         double defaultValue,
                                                                         double min, double max) {
    const double value = doubleForKeyInDomainWithDefault(key, domain, defaultValue);
    if (value < min) return min;
    return value < max ? value : max;
}

bool KTUserPreferences::setDoubleForKeyInDomain(double value, std::string_view key,
                                                std::string_view domain) {
    return setValueForKeyInDomain(value, key, domain);
}

void KTUserPreferences::domainNeedsSynchronization(std::string_view domain) {
    const std::lock_guard guard(syncLock_);
    if (!modifiedDomains_) {
        DispatchQueue::mainQueue().after(kFlushDelay,
                                         [self = shared_from_this()] { self->synchronize(); });
        modifiedDomains_.emplace();
    }
    modifiedDomains_->emplace(domain);
}

void KTUserPreferences::synchronize() {
    decltype(modifiedDomains_) domains;
    {
        const std::lock_guard guard(syncLock_);
        domains.swap(modifiedDomains_);
    }
    if (!domains) return;
    // What cannot be written is reported by the store, which keeps it for the next flush.
    for (const std::string& domain : *domains)
        static_cast<void>(platform::CFPreferencesAppSynchronize(domain));
}

}  // namespace sevrin
