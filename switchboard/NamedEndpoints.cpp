// The endpoints that one client has published: ownership of the records.
#include "switchboard/NamedEndpoints.h"

namespace sevrin {

NamedEndpoints::~NamedEndpoints() {
    forEach([](NamedEndpoint& record) { delete &record; });
}

NamedEndpoint& NamedEndpoints::add(std::string_view identifier, EndpointPtr endpoint) {
    std::unique_ptr<NamedEndpoint> record = NamedEndpoint::make(identifier, std::move(endpoint));
    table_.add(*record);
    return *record.release();
}

std::unique_ptr<NamedEndpoint> NamedEndpoints::take(NamedEndpoint& record) {
    table_.remove(record);
    return std::unique_ptr<NamedEndpoint>(&record);
}

}  // namespace sevrin
