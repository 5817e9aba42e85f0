// What a client has told the switchboard to do for good, to be told again to the next one: under
// which user it runs, what it publishes, what it subscribes to.
//
// Kept in the order in which each was last asked for, and kept small: what has been replaced or
// withdrawn is forgotten. Refuses what would break the protocol's limits, because a switchboard
// that ends the connection over it would do so again after every reconnect. Knows no connection;
// its owner guards it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/Endpoint.h"
#include "client/Message.h"
#include "client/Notification.h"

namespace sevrin {

class StandingOrders {
public:
    // Remembers a publication (`endpoint` is not null), a withdrawal, a change of user, a
    // subscription. Those that may grow throw std::length_error, with nothing changed, beyond the
    // protocol's limits.
    void publish(EndpointPtr endpoint, const std::string& identifier);
    void redact(const std::string& identifier);
    void setUser(std::uint32_t user);
    void subscribe(SubscriptionId subscription, const NotificationFilter& filter);
    void unsubscribe(SubscriptionId subscription);
    void unsubscribeAll();

    // The messages that bring a new connection to where this one stands, in order.
    [[nodiscard]] std::vector<Message> messages() const;

private:
    using Place = std::uint64_t;

    void forget(Place place) { orders_.erase(place); }
    [[nodiscard]] Place remember(Message message);

    std::vector<std::uint32_t> users_;  // each once, in the order asked for
    std::map<Place, Message> orders_;
    std::unordered_map<std::string, Place> published_;
    std::unordered_map<SubscriptionId, Place> subscribed_;
    Place nextPlace_ = 0;
};

}  // namespace sevrin
