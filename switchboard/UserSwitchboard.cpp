// Registry of switchboards by user, and the clients and endpoints of each.
#include "switchboard/UserSwitchboard.h"

#include <utility>

#include "switchboard/RegistryLock.h"
#include "switchboard/VeloraOperator.h"

namespace sevrin {

namespace {

using Registry = std::map<std::uint32_t, std::shared_ptr<UserSwitchboard>>;

// Never destroyed: a message may still arrive while the process exits.
Registry& registry() {
    static Registry& theRegistry = *new Registry;
    return theRegistry;
}

}  // namespace

void UserSwitchboard::createSwitchboardForUser(std::uint32_t userID) {
    const RegistryLock lock;
    const std::shared_ptr<UserSwitchboard> former =
        std::exchange(registry()[userID], initWithUser(userID));
}

std::shared_ptr<UserSwitchboard> UserSwitchboard::switchboardForUser(std::uint32_t userID) {
    const RegistryLock lock;
    const auto found = registry().find(userID);
    return found == registry().end() ? nullptr : found->second;
}

void UserSwitchboard::shutdownSwitchboards() {
    const RegistryLock lock;
    for (const auto& [userID, switchboard] : registry())
        switchboard->shutdown();
    registry().clear();
}

std::shared_ptr<UserSwitchboard> UserSwitchboard::initWithUser(std::uint32_t userID) {
    return std::shared_ptr<UserSwitchboard>(new UserSwitchboard(userID));
}

UserSwitchboard::~UserSwitchboard() {
    shutdown();
}

std::vector<std::shared_ptr<VeloraOperator>> UserSwitchboard::operators() const {
    const RegistryLock lock;
    std::vector<std::shared_ptr<VeloraOperator>> result;
    result.reserve(operators_.size());
    for (const auto& [order, member] : operators_)
        result.push_back(member);
    return result;
}

void UserSwitchboard::shutdown() {
    const RegistryLock lock;
    // A copy, because every operator takes itself out of the original.
    for (const auto& member : operators())
        member->unplug();
}

EndpointPtr UserSwitchboard::endpointForIdentifier(std::string_view identifier) const {
    const RegistryLock lock;
    const NamedEndpoint* const found = index_.find(identifier);
    return found ? found->endpoint : nullptr;
}

std::uint64_t UserSwitchboard::join(std::shared_ptr<VeloraOperator> newOperator,
                                    NamedEndpoints& published) {
    static std::uint64_t lastOrder = 0;  // One count for all, under the registry's lock.
    const std::uint64_t order = ++lastOrder;
    operators_.emplace_hint(operators_.end(), order, std::move(newOperator));
    published.forEach([&](NamedEndpoint& record) { add(record, order); });
    return order;
}

void UserSwitchboard::leave(std::uint64_t order, NamedEndpoints& published) {
    published.forEach([&](NamedEndpoint& record) { remove(record); });
    operators_.erase(order);
}

void UserSwitchboard::add(NamedEndpoint& record, std::uint64_t order) {
    record.order = order;
    index_.add(record);
}

}  // namespace sevrin
