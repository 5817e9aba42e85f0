// What a client has told the switchboard to do for good, compacted.
#include "client/StandingOrders.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "Platform/XPCLimits.h"
#include "client/SwitchboardMessages.h"

namespace sevrin {

void StandingOrders::publish(EndpointPtr endpoint, const std::string& identifier) {
    requireShort(identifier, "an identifier");
    const auto former = published_.find(identifier);
    if (former == published_.end() && published_.size() == platform::kEndpointsPerConnectionMax)
        throw std::length_error("more endpoints published than one client may");

    if (former != published_.end()) forget(former->second);
    published_[identifier] = remember(message::publish(std::move(endpoint), identifier));
}

void StandingOrders::redact(const std::string& identifier) {
    const auto found = published_.find(identifier);
    if (found == published_.end()) return;
    forget(found->second);
    published_.erase(found);
}

// All of them are kept, not the last one alone: which of them the switchboard heeds depends on whom
// it serves.
void StandingOrders::setUser(std::uint32_t user) {
    if (user != 0 && std::ranges::find(users_, user) == users_.end()) users_.push_back(user);
}

void StandingOrders::subscribe(SubscriptionId subscription, const NotificationFilter& filter) {
    if (filter.name) requireShort(*filter.name, "a notification's name");
    if (filter.source) requireShort(*filter.source, "a notification's source");
    if (subscribed_.size() == platform::kObserversPerConnectionMax)
        throw std::length_error("more subscriptions than one client may have");
    subscribed_[subscription] = remember(message::addObserver(subscription, filter));
}

void StandingOrders::unsubscribe(SubscriptionId subscription) {
    const auto found = subscribed_.find(subscription);
    if (found == subscribed_.end()) return;
    forget(found->second);
    subscribed_.erase(found);
}

void StandingOrders::unsubscribeAll() {
    for (const auto& [subscription, place] : subscribed_)
        forget(place);
    subscribed_.clear();
}

std::vector<Message> StandingOrders::messages() const {
    std::vector<Message> all;
    all.reserve(users_.size() + orders_.size());
    for (const std::uint32_t user : users_)
        all.push_back(message::setUser(user));
    for (const auto& [place, message] : orders_)
        all.push_back(message);
    return all;
}

StandingOrders::Place StandingOrders::remember(Message message) {
    orders_.emplace(nextPlace_, std::move(message));
    return nextPlace_++;
}

}  // namespace sevrin
