// Tests of the hash table of published endpoints: a reference set beside it, and its memory.
#include "switchboard/IdentifierTable.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace sevrin {
namespace {

using Table = IdentifierTable<&NamedEndpoint::nextOfOperator>;
using Record = std::unique_ptr<NamedEndpoint>;

Record recordOf(const std::string& identifier) {
    return NamedEndpoint::make(identifier, nullptr);
}

std::set<const NamedEndpoint*> membersOf(const Table& table) {
    std::set<const NamedEndpoint*> members;
    table.forEach([&](const NamedEndpoint& record) { members.insert(&record); });
    return members;
}

TEST(NamedEndpointTest, KeepsItsIdentifierOfAnyLength) {
    for (const std::size_t length : {0U, 1U, 7U, 8U, 100U, 100'000U}) {
        const std::string identifier(length, 'x');

        EXPECT_EQ(recordOf(identifier)->identifier(), identifier);
    }
}

TEST(NamedEndpointTest, AnIdentifierMayHoldZeroBytes) {
    const std::string identifier("a\0b", 3);

    EXPECT_EQ(recordOf(identifier)->identifier(), identifier);
}

TEST(IdentifierTableTest, AnEmptyTableFindsNothing) {
    const Table table;

    EXPECT_EQ(table.find("a"), nullptr);
    EXPECT_EQ(table.find(""), nullptr);
    EXPECT_EQ(table.size(), 0U);
    EXPECT_TRUE(membersOf(table).empty());
}

TEST(IdentifierTableTest, FindsARecordByTheBytesOfItsIdentifier) {
    const Record record = recordOf("clock");
    Table table;

    table.add(*record);

    EXPECT_EQ(table.find("clock"), record.get());
    EXPECT_EQ(table.find("clocks"), nullptr);
    EXPECT_EQ(table.find("Clock"), nullptr);
}

TEST(IdentifierTableTest, ASuccessorTakesTheWholePlace) {
    const Record record = recordOf("clock");
    const Record successor = recordOf("clock");
    Table table;
    table.add(*record);

    table.replace(*record, *successor);

    EXPECT_EQ(table.find("clock"), successor.get());
    EXPECT_EQ(table.size(), 1U);
    EXPECT_EQ(membersOf(table), std::set<const NamedEndpoint*>{successor.get()});
}

TEST(IdentifierTableTest, RecordsMayBeDeletedWhileTheyAreVisited) {
    Table table;
    std::size_t visited = 0;
    for (int number = 0; number < 100; ++number) {
        table.add(*recordOf(std::to_string(number)).release());
    }

    table.forEach([&](NamedEndpoint& record) {
        delete &record;
        ++visited;
    });

    EXPECT_EQ(visited, 100U);
}

// Random additions, removals and replacements, growing first and shrinking then.
TEST(IdentifierTableTest, AgreesWithAMapWhateverHappens) {
    std::mt19937 random(20'201);
    std::map<std::string, Record> expected;
    Table table;

    for (int step = 0; step < 20'000; ++step) {
        const std::string identifier = std::to_string(random() % 600);
        Record& known = expected[identifier];
        const bool growing = (step / 2'500) % 2 == 0;
        if (!known) {
            known = recordOf(identifier);
            table.add(*known);
        } else if (random() % 8 == 0) {
            Record successor = recordOf(identifier);
            table.replace(*known, *successor);
            known = std::move(successor);
        } else if (!growing || random() % 4 == 0) {
            table.remove(*known);
            expected.erase(identifier);
        }

        ASSERT_EQ(table.size(), expected.size());
        const std::string asked = std::to_string(random() % 600);
        const auto found = expected.find(asked);
        ASSERT_EQ(table.find(asked), found == expected.end() ? nullptr : found->second.get());
    }

    std::set<const NamedEndpoint*> members;
    for (const auto& [identifier, record] : expected)
        members.insert(record.get());
    EXPECT_EQ(membersOf(table), members);
}

TEST(IdentifierTableTest, ManyRecordsComeAndGoCompletely) {
    std::vector<Record> records;
    Table table;
    for (int number = 0; number < 5'000; ++number) {
        records.push_back(recordOf("com.example." + std::to_string(number)));
        table.add(*records.back());
    }

    for (const Record& record : records) {
        ASSERT_EQ(table.find(record->identifier()), record.get());
        table.remove(*record);
        ASSERT_EQ(table.find(record->identifier()), nullptr);
    }

    EXPECT_EQ(table.size(), 0U);
    EXPECT_TRUE(membersOf(table).empty());
}

}  // namespace
}  // namespace sevrin
