// Tests of the index: rivals in joining order, and agreement with the walk it stands for.
#include "switchboard/EndpointIndex.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>

namespace sevrin {
namespace {

std::unique_ptr<NamedEndpoint> recordOf(const std::string& identifier, std::uint64_t order) {
    auto record = NamedEndpoint::make(identifier, nullptr);
    record->order = order;
    return record;
}

TEST(EndpointIndexTest, FindsASolePublisherUntilItGoes) {
    const auto record = recordOf("clock", 1);
    EndpointIndex index;

    index.add(*record);
    EXPECT_EQ(index.find("clock"), record.get());

    index.remove(*record);
    EXPECT_EQ(index.find("clock"), nullptr);
    EXPECT_EQ(index.size(), 0U);
}

TEST(EndpointIndexTest, TheEarliestPublisherIsFoundWhicheverCameFirst) {
    const auto early = recordOf("clock", 1);
    const auto late = recordOf("clock", 2);
    EndpointIndex inOrder;
    inOrder.add(*early);
    inOrder.add(*late);
    EXPECT_EQ(inOrder.find("clock"), early.get());
    inOrder.remove(*late);
    inOrder.remove(*early);

    EndpointIndex inReverse;
    inReverse.add(*late);
    inReverse.add(*early);
    EXPECT_EQ(inReverse.find("clock"), early.get());
    inReverse.remove(*early);
    inReverse.remove(*late);
}

TEST(EndpointIndexTest, RivalsInheritInJoiningOrder) {
    const auto first = recordOf("clock", 1);
    const auto second = recordOf("clock", 2);
    const auto third = recordOf("clock", 3);
    EndpointIndex index;
    for (const auto* record : {&third, &first, &second})
        index.add(**record);

    EXPECT_EQ(index.find("clock"), first.get());
    index.remove(*first);
    EXPECT_EQ(index.find("clock"), second.get());
    index.remove(*second);
    EXPECT_EQ(index.find("clock"), third.get());
    index.remove(*third);
}

TEST(EndpointIndexTest, RivalsCountAsOneIdentifier) {
    const auto early = recordOf("clock", 1);
    const auto late = recordOf("clock", 2);
    EndpointIndex index;

    index.add(*early);
    index.add(*late);

    EXPECT_EQ(index.size(), 1U);
    index.remove(*early);
    index.remove(*late);
}

// Few identifiers and many publishers, so that rivals meet all the time.
TEST(EndpointIndexTest, AgreesWithAWalkInJoiningOrderWhateverHappens) {
    std::mt19937 random(20'202);
    std::map<std::pair<std::uint64_t, std::string>, std::unique_ptr<NamedEndpoint>> walk;
    EndpointIndex index;

    for (int step = 0; step < 20'000; ++step) {
        const std::uint64_t order = random() % 40;
        const std::string identifier = std::to_string(random() % 12);
        auto& record = walk[{order, identifier}];
        if (!record) {
            record = recordOf(identifier, order);
            index.add(*record);
        } else {
            index.remove(*record);
            walk.erase({order, identifier});
        }

        const std::string asked = std::to_string(random() % 12);
        const NamedEndpoint* expected = nullptr;
        for (const auto& [place, candidate] : walk) {
            if (place.second != asked) continue;
            expected = candidate.get();
            break;
        }
        ASSERT_EQ(index.find(asked), expected) << "after step " << step;
    }
    for (const auto& [place, record] : walk)
        index.remove(*record);
    EXPECT_EQ(index.size(), 0U);
}

}  // namespace
}  // namespace sevrin
