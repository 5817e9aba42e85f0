// Tests of one client's endpoints: what is found, and who owns the records.
#include "switchboard/NamedEndpoints.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "switchboard/FakeConnection.h"

namespace sevrin {
namespace {

TEST(NamedEndpointsTest, FindsWhatWasAdded) {
    const EndpointPtr endpoint = FakeEndpoint::make();
    NamedEndpoints endpoints;

    NamedEndpoint& record = endpoints.add("clock", endpoint);

    EXPECT_EQ(record.endpoint, endpoint);
    EXPECT_EQ(record.identifier(), "clock");
    EXPECT_EQ(endpoints.find("clock"), &record);
    EXPECT_EQ(endpoints.find("bell"), nullptr);
    EXPECT_EQ(endpoints.size(), 1U);
}

TEST(NamedEndpointsTest, ATakenRecordIsTheCallers) {
    NamedEndpoints endpoints;
    NamedEndpoint& record = endpoints.add("clock", FakeEndpoint::make());

    const std::unique_ptr<NamedEndpoint> taken = endpoints.take(record);

    EXPECT_EQ(taken->identifier(), "clock");
    EXPECT_EQ(endpoints.find("clock"), nullptr);
    EXPECT_EQ(endpoints.size(), 0U);
}

TEST(NamedEndpointsTest, ReleasesItsEndpointsWhenItGoes) {
    EndpointPtr endpoint = FakeEndpoint::make();
    const std::weak_ptr<platform::NSXPCListenerEndpoint> watched = endpoint;
    {
        NamedEndpoints endpoints;
        endpoints.add("clock", std::move(endpoint));
        EXPECT_FALSE(watched.expired());
    }

    EXPECT_TRUE(watched.expired());
}

TEST(NamedEndpointsTest, VisitsEveryRecordOnce) {
    NamedEndpoints endpoints;
    endpoints.add("clock", FakeEndpoint::make());
    endpoints.add("bell", FakeEndpoint::make());
    std::multiset<std::string> visited;

    endpoints.forEach([&](NamedEndpoint& record) { visited.emplace(record.identifier()); });

    EXPECT_EQ(visited, (std::multiset<std::string>{"bell", "clock"}));
}

}  // namespace
}  // namespace sevrin
