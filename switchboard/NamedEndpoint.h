// One endpoint that a client has published under an identifier.
//
// A record stands in two hash tables at once: that of the operator who owns it (NamedEndpoints) and
// that of the user's whole switchboard (EndpointIndex). Both chain the records themselves, and the
// identifier's text follows the record in memory, so that a published endpoint costs one small
// block and some bytes of two arrays. Lives under the registry's lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/KeyedHash.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

class NamedEndpoint {
public:
    [[nodiscard]] static std::unique_ptr<NamedEndpoint> make(std::string_view identifier,
                                                             EndpointPtr endpoint) {
        const std::uint32_t hash = platform::KeyedHash::of(identifier);
        void* const memory = ::operator new(sizeof(NamedEndpoint) + identifier.size());
        std::memcpy(static_cast<char*>(memory) + sizeof(NamedEndpoint), identifier.data(),
                    identifier.size());
        return std::unique_ptr<NamedEndpoint>(
            new (memory) NamedEndpoint(hash, identifier.size(), std::move(endpoint)));
    }
    NamedEndpoint(const NamedEndpoint&) = delete;
    NamedEndpoint& operator=(const NamedEndpoint&) = delete;

    // The block is larger than the type says.
    static void operator delete(void* memory) { ::operator delete(memory); }

    [[nodiscard]] std::string_view identifier() const {
        return {reinterpret_cast<const char*>(this) + sizeof *this, length_};
    }
    [[nodiscard]] std::uint32_t hash() const { return hash_; }

    EndpointPtr endpoint;

    // The publisher's place in the order of joining: what decides between rivals.
    std::uint64_t order = 0;

    // Later publishers of the same identifier in joining order, where there are any; kept at the
    // earliest one.
    std::unique_ptr<std::vector<NamedEndpoint*>> rivals;

    // The chains of the two tables.
    NamedEndpoint* nextOfOperator = nullptr;
    NamedEndpoint* nextOfSwitchboard = nullptr;

private:
    static void* operator new(std::size_t, void* memory) { return memory; }

    NamedEndpoint(std::uint32_t hash, std::size_t length, EndpointPtr published) noexcept
        : endpoint(std::move(published)),
          hash_(hash),
          length_(static_cast<std::uint32_t>(length)) {}

    const std::uint32_t hash_;
    const std::uint32_t length_;
};

}  // namespace sevrin
