// Tests of the first lines of the service in the log.
#include "switchboard/ServiceLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "Common/Source/Utilities/NSLogLogger.h"
#include "Common/Source/Utilities/TestLogger.h"

namespace sevrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ServiceLogTest : public testing::Test {
protected:
    // "9 message [identifier]".
    static std::string debugLine(const std::string& message, const std::string& identifier) {
        return "9 " + message + " [" + identifier + "]";
    }

    const std::shared_ptr<TestLogger> logger_ = std::make_shared<TestLogger>();
    const ScopedDefaultLogger isDefault_{logger_};
};

TEST_F(ServiceLogTest, AUsersServiceBeginsWithTheStartRecord) {
    const LogLineIdentifierPtr line = startLogging(501);

    ASSERT_TRUE(line);
    ASSERT_FALSE(logger_->lines().empty());
    EXPECT_EQ(logger_->lines()[0], debugLine("started Switchboard-2.2.5.12", line->description()));
}

TEST_F(ServiceLogTest, RootsServiceLogsToTheConsoleAndWritesNoRecord) {
    const std::uint64_t before = Logger::rootLogLine()->count();

    const LogLineIdentifierPtr line = startLogging(0);

    EXPECT_EQ(line, nullptr);
    EXPECT_TRUE(std::dynamic_pointer_cast<NSLogLogger>(Logger::defaultLogger()));
    EXPECT_THAT(logger_->lines(), IsEmpty());
    EXPECT_EQ(Logger::rootLogLine()->count(), before);
}

TEST_F(ServiceLogTest, PortAndUsersStandInTheStartRecordInThisOrder) {
    const auto line = LogLineIdentifier::logLineIdentifierFromString("8.1.2.3");

    logService(line, "com.sevrin.switchboard.501", {501});

    EXPECT_THAT(logger_->lines(),
                ElementsAre(debugLine("port: com.sevrin.switchboard.501", "8.1.2.3.1"),
                            debugLine("users: 501", "8.1.2.3.2")));
}

TEST_F(ServiceLogTest, WithoutAStartRecordTheUsersAloneStandInTheRoot) {
    const auto& root = Logger::rootLogLine();
    const std::string next = root->description() + "." + std::to_string(root->count() + 1);

    logService(nullptr, "com.sevrin.switchboard", {501, 502, 0});

    EXPECT_THAT(logger_->lines(), ElementsAre(debugLine("users: 501, 502, 0", next)));
}

}  // namespace
}  // namespace sevrin
