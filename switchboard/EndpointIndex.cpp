// Earliest publishers in the table, their rivals beside them in joining order.
#include "switchboard/EndpointIndex.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace sevrin {

namespace {

using Rivals = std::vector<NamedEndpoint*>;

// Where a record of this order stands, or would stand, among `rivals`.
Rivals::iterator placeOf(Rivals& rivals, std::uint64_t order) {
    return std::lower_bound(
        rivals.begin(), rivals.end(), order,
        [](const NamedEndpoint* rival, std::uint64_t wanted) { return rival->order < wanted; });
}

void insertRival(NamedEndpoint& earliest, NamedEndpoint& record) {
    if (!earliest.rivals) earliest.rivals = std::make_unique<Rivals>();
    earliest.rivals->insert(placeOf(*earliest.rivals, record.order), &record);
}

void eraseRival(NamedEndpoint& earliest, NamedEndpoint& record) {
    earliest.rivals->erase(placeOf(*earliest.rivals, record.order));
    if (earliest.rivals->empty()) earliest.rivals.reset();
}

}  // namespace

void EndpointIndex::add(NamedEndpoint& record) {
    NamedEndpoint* const earliest = table_.find(record.identifier(), record.hash());
    if (!earliest) {
        table_.add(record);
    } else if (earliest->order < record.order) {
        insertRival(*earliest, record);
    } else {
        table_.replace(*earliest, record);
        record.rivals = std::move(earliest->rivals);
        insertRival(record, *earliest);
    }
}

void EndpointIndex::remove(NamedEndpoint& record) {
    NamedEndpoint* const earliest = table_.find(record.identifier(), record.hash());
    if (earliest != &record) {
        eraseRival(*earliest, record);
    } else if (!record.rivals) {
        table_.remove(record);
    } else {
        NamedEndpoint& successor = *record.rivals->front();
        eraseRival(record, successor);
        table_.replace(record, successor);
        successor.rivals = std::move(record.rivals);
    }
}

}  // namespace sevrin
