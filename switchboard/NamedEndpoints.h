// The endpoints that one client has published, by identifier.
//
// Owns the records; knows nothing of other clients. Lives under the registry's lock.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include "switchboard/IdentifierTable.h"
#include "switchboard/NamedEndpoint.h"

namespace sevrin {

class NamedEndpoints {
public:
    NamedEndpoints() = default;
    NamedEndpoints(const NamedEndpoints&) = delete;
    NamedEndpoints& operator=(const NamedEndpoints&) = delete;
    ~NamedEndpoints();

    [[nodiscard]] std::size_t size() const { return table_.size(); }

    // The record under `identifier`, or nullptr. Valid until it is taken out.
    [[nodiscard]] NamedEndpoint* find(std::string_view identifier) const {
        return table_.find(identifier);
    }

    // Adds an endpoint under an identifier that has none yet.
    NamedEndpoint& add(std::string_view identifier, EndpointPtr endpoint);

    // Takes out a record of this dictionary.
    [[nodiscard]] std::unique_ptr<NamedEndpoint> take(NamedEndpoint& record);

    // Calls `visit` with each record, in no particular order. It must not add or take any.
    template <typename Visitor>
    void forEach(const Visitor& visit) const {
        table_.forEach(visit);
    }

private:
    IdentifierTable<&NamedEndpoint::nextOfOperator> table_;
};

}  // namespace sevrin
