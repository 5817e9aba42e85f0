// The live clients of one user and what they have published; and, class-side, the switchboards of
// all users that this process serves.
//
// The registry owns the switchboards, a switchboard owns its operators in the order they joined.
// An operator refers back without owning and is always taken out (unplugged) before its switchboard
// goes. Operations may be called on any thread; all of them take the registry's lock.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "Platform/Object.h"
#include "switchboard/EndpointIndex.h"
#include "switchboard/NamedEndpoints.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

class VeloraOperator;

class UserSwitchboard final : public platform::Object {
public:
    // Makes the switchboard of a user id. One that is there already is replaced and shut down.
    static void createSwitchboardForUser(std::uint32_t userID);

    // The switchboard of a user id, or nullptr when this process does not serve it.
    [[nodiscard]] static std::shared_ptr<UserSwitchboard> switchboardForUser(std::uint32_t userID);

    // Shuts every switchboard down and forgets them all.
    static void shutdownSwitchboards();

    // A switchboard outside the registry.
    [[nodiscard]] static std::shared_ptr<UserSwitchboard> initWithUser(std::uint32_t userID);

    // Shuts down.
    ~UserSwitchboard() override;

    [[nodiscard]] std::uint32_t userID() const { return userID_; }

    // The live operators in the order they joined, which is the order of lookup.
    [[nodiscard]] std::vector<std::shared_ptr<VeloraOperator>> operators() const;

    // Unplugs every operator.
    void shutdown();

    // The endpoint of the earliest operator that publishes `identifier`, or nullptr. Costs the same
    // however many operators and endpoints there are.
    [[nodiscard]] EndpointPtr endpointForIdentifier(std::string_view identifier) const;

private:
    friend class VeloraOperator;

    explicit UserSwitchboard(std::uint32_t userID) : userID_(userID) {}

    // Appends an operator together with what it has published, and gives its place in the order of
    // joining, by which it leaves again.
    std::uint64_t join(std::shared_ptr<VeloraOperator> newOperator, NamedEndpoints& published);
    void leave(std::uint64_t order, NamedEndpoints& published);

    // What an operator publishes and redacts while it is here.
    void add(NamedEndpoint& record, std::uint64_t order);
    void remove(NamedEndpoint& record) { index_.remove(record); }

    const std::uint32_t userID_;
    std::map<std::uint64_t, std::shared_ptr<VeloraOperator>> operators_;  // by place of joining
    EndpointIndex index_;
};

}  // namespace sevrin
