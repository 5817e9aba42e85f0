// Tests of the line about a client that lost its connection.
#include "switchboard/BadPeer.h"

#include <gtest/gtest.h>

#include <memory>

#include "Common/Source/Utilities/TestLogger.h"
#include "switchboard/FakeConnection.h"

namespace sevrin {
namespace {

TEST(BadPeerTest, OneDiagnosticLineNamesTheClientAndWhatItDid) {
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger isDefault(logger);

    logBadPeer(*FakeConnection::ofUser(501), "bytes that are no frame, such as %@");

    ASSERT_EQ(logger->lines().size(), 1U);
    EXPECT_EQ(logger->lines()[0].rfind("9 disconnected a client of user 501 (process 1): bytes "
                                       "that are no frame, such as %@ [",
                                       0),
              0U);
}

}  // namespace
}  // namespace sevrin
