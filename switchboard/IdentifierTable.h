// A hash table of published endpoints, found by their identifiers.
//
// Owns the array of chains and never the records. At most one record stands under an identifier;
// `Next` is the member through which the records are chained. Finding, adding and removing take
// constant time on average; an empty table holds no memory. Lives under the registry's lock.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "Platform/KeyedHash.h"
#include "switchboard/NamedEndpoint.h"

namespace sevrin {

template <NamedEndpoint* NamedEndpoint::*Next>
class IdentifierTable {
public:
    IdentifierTable() = default;
    IdentifierTable(const IdentifierTable&) = delete;
    IdentifierTable& operator=(const IdentifierTable&) = delete;

    [[nodiscard]] std::size_t size() const { return size_; }

    // The record under `identifier`, or nullptr.
    [[nodiscard]] NamedEndpoint* find(std::string_view identifier) const {
        return size_ == 0 ? nullptr : find(identifier, platform::KeyedHash::of(identifier));
    }

    // The same for a caller who knows the identifier's hash.
    [[nodiscard]] NamedEndpoint* find(std::string_view identifier, std::uint32_t hash) const {
        if (size_ == 0) return nullptr;
        NamedEndpoint* walk = chains_[hash & mask_];
        while (walk && (walk->hash() != hash || walk->identifier() != identifier)) {
            walk = walk->*Next;
        }
        return walk;
    }

    // Adds a record whose identifier is not there yet.
    void add(NamedEndpoint& record) {
        if (size_ == capacity()) resize(std::max(kChainsMin, 2 * capacity()));
        push(record);
        ++size_;
    }

    // Removes a record that is there.
    void remove(NamedEndpoint& record) {
        *linkTo(record) = std::exchange(record.*Next, nullptr);
        --size_;
        if (size_ == 0) {
            chains_.reset();
            mask_ = 0;
        } else if (size_ < capacity() / 8) {
            resize(capacity() / 2);
        }
    }

    // Puts `successor`, which has the same identifier, in the place of `record`, which is there.
    void replace(NamedEndpoint& record, NamedEndpoint& successor) {
        *linkTo(record) = &successor;
        successor.*Next = std::exchange(record.*Next, nullptr);
    }

    // Calls `visit` with each record, in no particular order. It may delete the record but must not
    // change the table otherwise.
    template <typename Visitor>
    void forEach(const Visitor& visit) const {
        for (std::size_t chain = 0; chain < capacity(); ++chain) {
            NamedEndpoint* walk = chains_[chain];
            while (walk)
                visit(*std::exchange(walk, walk->*Next));
        }
    }

private:
    static constexpr std::size_t kChainsMin = 4;

    [[nodiscard]] std::size_t capacity() const { return chains_ ? std::size_t{mask_} + 1 : 0; }

    // The pointer that leads to `record`.
    [[nodiscard]] NamedEndpoint** linkTo(const NamedEndpoint& record) const {
        NamedEndpoint** link = &chains_[record.hash() & mask_];
        while (*link != &record)
            link = &((*link)->*Next);
        return link;
    }

    void push(NamedEndpoint& record) {
        NamedEndpoint*& chain = chains_[record.hash() & mask_];
        record.*Next = std::exchange(chain, &record);
    }

    // Spreads the records over another number of chains, a power of two.
    void resize(std::size_t chains) {
        IdentifierTable other;
        other.chains_ = std::make_unique<NamedEndpoint*[]>(chains);
        other.mask_ = static_cast<std::uint32_t>(chains - 1);
        forEach([&](NamedEndpoint& record) { other.push(record); });
        chains_ = std::move(other.chains_);
        mask_ = other.mask_;
    }

    std::unique_ptr<NamedEndpoint*[]> chains_;
    std::uint32_t mask_ = 0;  // number of chains - 1
    std::uint32_t size_ = 0;
};

}  // namespace sevrin
