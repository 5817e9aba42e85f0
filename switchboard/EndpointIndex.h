// Finds who publishes an identifier among all clients of one user, in constant time.
//
// Gives exactly what a walk over the clients in joining order would give: the endpoint of the
// earliest one who publishes it. Owns no record. Lives under the registry's lock.
#pragma once

#include <cstddef>
#include <string_view>

#include "switchboard/IdentifierTable.h"
#include "switchboard/NamedEndpoint.h"

namespace sevrin {

class EndpointIndex {
public:
    // The number of different identifiers.
    [[nodiscard]] std::size_t size() const { return table_.size(); }

    // The record of the earliest publisher of `identifier`, or nullptr.
    [[nodiscard]] NamedEndpoint* find(std::string_view identifier) const {
        return table_.find(identifier);
    }

    // Adds a record that is not there yet; its `order` is set and differs from its rivals'.
    void add(NamedEndpoint& record);

    // Removes a record that is there, with the `order` it was added with.
    void remove(NamedEndpoint& record);

private:
    // Holds the earliest publisher of each identifier.
    IdentifierTable<&NamedEndpoint::nextOfSwitchboard> table_;
};

}  // namespace sevrin
