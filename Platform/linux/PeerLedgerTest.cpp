// Unit tests of the ledger: the fixed ceilings, and the rule that leaves something for one more.
#include "Platform/linux/PeerLedger.h"

#include <gtest/gtest.h>

#include "Platform/XPCLimits.h"

namespace sevrin::platform {
namespace {

// Descriptors that the ledger sets aside for the process itself.
constexpr std::size_t kOwnDescriptors = 64;

constexpr std::size_t kPlenty = std::size_t{1} << 30;

std::size_t chargeDescriptorsUntilRefused(PeerLedger& ledger, uid_t user) {
    std::size_t charged = 0;
    while (ledger.chargeDescriptor(user))
        ++charged;
    return charged;
}

TEST(PeerLedgerTest, EachNextGreedyUserGetsHalfOfWhatIsLeft) {
    PeerLedger ledger(kOwnDescriptors + 128);

    EXPECT_EQ(chargeDescriptorsUntilRefused(ledger, 1), 64u);
    EXPECT_EQ(chargeDescriptorsUntilRefused(ledger, 2), 32u);
    EXPECT_EQ(chargeDescriptorsUntilRefused(ledger, 3), 16u);
    EXPECT_EQ(chargeDescriptorsUntilRefused(ledger, 4), 8u);
    EXPECT_TRUE(ledger.chargeConnection(5));
}

TEST(PeerLedgerTest, WhatOneGivesBackAnotherMayHave) {
    PeerLedger ledger(kOwnDescriptors + 8);
    ASSERT_EQ(chargeDescriptorsUntilRefused(ledger, 1), 4u);
    ASSERT_EQ(chargeDescriptorsUntilRefused(ledger, 2), 2u);

    for (int i = 0; i < 4; ++i)
        ledger.releaseDescriptor(1);

    EXPECT_EQ(chargeDescriptorsUntilRefused(ledger, 2), 2u);  // Four of eight in all.
}

TEST(PeerLedgerTest, ConnectionsAndDescriptorsShareOneAllowance) {
    PeerLedger ledger(kOwnDescriptors + 8);

    EXPECT_TRUE(ledger.chargeConnection(1));
    EXPECT_TRUE(ledger.chargeConnection(1));
    EXPECT_TRUE(ledger.chargeDescriptor(1));
    EXPECT_TRUE(ledger.chargeDescriptor(1));
    EXPECT_FALSE(ledger.chargeConnection(1));
    EXPECT_FALSE(ledger.chargeDescriptor(1));
    ledger.releaseConnection(1);
    EXPECT_TRUE(ledger.chargeDescriptor(1));
}

TEST(PeerLedgerTest, AProcessWithFewerDescriptorsThanItNeedsItselfGivesNoneAway) {
    PeerLedger ledger(kOwnDescriptors);

    EXPECT_FALSE(ledger.chargeDescriptor(1));
    EXPECT_FALSE(ledger.chargeConnection(1));
    EXPECT_TRUE(ledger.chargeBytes(1, 1));
}

TEST(PeerLedgerTest, TheCeilingOfConnectionsHoldsHoweverManyDescriptorsThereAre) {
    PeerLedger ledger(kPlenty);
    for (std::size_t i = 0; i < kConnectionsPerUserMax; ++i)
        ASSERT_TRUE(ledger.chargeConnection(1));

    EXPECT_FALSE(ledger.chargeConnection(1));
    EXPECT_TRUE(ledger.chargeDescriptor(1));
    EXPECT_TRUE(ledger.chargeConnection(2));
}

TEST(PeerLedgerTest, TheCeilingOfDescriptorsHoldsHoweverManyThereAre) {
    PeerLedger ledger(kPlenty);

    EXPECT_EQ(chargeDescriptorsUntilRefused(ledger, 1), kDescriptorsPerUserMax);
    EXPECT_FALSE(ledger.chargeConnection(1));
    EXPECT_TRUE(ledger.chargeDescriptor(2));
}

TEST(PeerLedgerTest, BytesAreChargedUpToTheCeilingAndNotOneMore) {
    PeerLedger ledger(kPlenty);

    EXPECT_TRUE(ledger.chargeBytes(1, kWaitingBytesPerUserMax - 1));
    EXPECT_FALSE(ledger.chargeBytes(1, 2));
    EXPECT_TRUE(ledger.chargeBytes(1, 1));
    EXPECT_FALSE(ledger.chargeBytes(1, 1));
    EXPECT_TRUE(ledger.chargeBytes(2, kWaitingBytesPerUserMax));
    ledger.releaseBytes(1, 10);
    EXPECT_TRUE(ledger.chargeBytes(1, 10));
    EXPECT_FALSE(ledger.chargeBytes(3, kPlenty));
}

TEST(PeerLedgerDeathTest, GivingBackWhatWasNotTakenIsABug) {
    PeerLedger ledger(kPlenty);

    EXPECT_DEATH(ledger.releaseConnection(1), "released once");
    EXPECT_DEATH(ledger.releaseDescriptor(1), "released once");
    EXPECT_DEATH(ledger.releaseBytes(1, 1), "released once");
}

}  // namespace
}  // namespace sevrin::platform
