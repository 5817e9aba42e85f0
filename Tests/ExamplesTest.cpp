// The examples, run as a newcomer would: against the real switchboard, and against none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Support/ServiceProcess.h"
#include "Tests/Support/TestChild.h"

namespace sevrin {
namespace {

using test::ServiceFolder;
using test::ServiceProcess;
using test::TestChild;
using testing::HasSubstr;
using testing::StartsWith;

using Words = std::vector<std::string>;

constexpr const char* kIdentifier = "com.example.thing";

struct Outcome {
    int status;
    std::string text;  // of standard output and error
};

class ExamplesTest : public testing::Test {
protected:
    void startSwitchboard() {
        // Root has no switchboard of its own, but the machine's.
        const Words arguments = isRoot_ ? Words{"--users", "1000"} : Words{};
        switchboard_.emplace(folder_, arguments, ::geteuid());
        ASSERT_TRUE(switchboard_->waitUntilReady());
    }

    void killSwitchboard() {
        switchboard_->signal(SIGKILL);
        (void)switchboard_->wait();
    }

    // Starts a program whose output, errors included, can be read.
    TestChild start(Words words) const {
        if (isRoot_) words.insert(words.begin() + (words[0] == kPython ? 2 : 1), "--system");
        return TestChild::running([&] {
            ::setenv("SEVRIN_BOOTSTRAP_DIR", folder_.bootstrap().c_str(), 1);
            ::dup2(STDOUT_FILENO, STDERR_FILENO);
            std::vector<char*> arguments;
            for (std::string& word : words)
                arguments.push_back(word.data());
            arguments.push_back(nullptr);
            ::execv(arguments[0], arguments.data());
            return 112;
        });
    }

    Outcome run(const Words& words) const {
        TestChild child = start(words);
        std::string text;
        while (const auto line = child.readLine())
            text += *line + "\n";
        return {child.wait(), text};
    }

    TestChild startPublisher() const { return start({program("example-publisher"), kIdentifier}); }
    Outcome consume(const std::string& identifier = kIdentifier) const {
        return run({program("example-consumer"), identifier});
    }

    // The Python client with these words; the interpreter is the system's own, which has the codec.
    static Words python(const Words& words) {
        Words all = {kPython, SEVRIN_EXAMPLES_SOURCES "/client.py"};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }

    static std::string program(const std::string& name) {
        return std::string(SEVRIN_EXAMPLES_PROGRAMS "/") + name;
    }

    static constexpr const char* kPython = "/usr/bin/python3";

    const bool isRoot_ = ::geteuid() == 0;
    const ServiceFolder folder_{::geteuid()};
    std::optional<ServiceProcess> switchboard_;
};

// MARK: In C++

TEST_F(ExamplesTest, ConsumerFindsThePublisherAndGreetsIt) {
    startSwitchboard();
    TestChild publisher = startPublisher();
    ASSERT_TRUE(publisher.waitForLine("published"));

    const Outcome consumer = consume();

    EXPECT_EQ(consumer.text,
              "Example-1.0 (65536), process " + std::to_string(publisher.process()) + "\n");
    EXPECT_EQ(consumer.status, 0);
    EXPECT_TRUE(publisher.waitForLine("greeted by example-consumer"));
}

TEST_F(ExamplesTest, ConsumerSaysThatNobodyPublishes) {
    startSwitchboard();

    const Outcome consumer = consume("com.example.nothing");

    EXPECT_THAT(consumer.text, HasSubstr("nobody publishes com.example.nothing"));
    EXPECT_EQ(consumer.status, 1);
}

TEST_F(ExamplesTest, ConsumerSaysThatThereIsNoSwitchboard) {
    const Outcome consumer = consume();

    EXPECT_THAT(consumer.text, HasSubstr("nobody listens as com.sevrin.switchboard"));
    EXPECT_EQ(consumer.status, 3);
}

TEST_F(ExamplesTest, BothExplainTheirUse) {
    for (const char* name : {"example-publisher", "example-consumer"}) {
        const Outcome outcome = run({program(name), "one", "two"});

        EXPECT_THAT(outcome.text, StartsWith(std::string("usage: ") + name));
        EXPECT_EQ(outcome.status, 2);
    }
}

TEST_F(ExamplesTest, PublisherStartsBeforeTheSwitchboardAndOutlivesIt) {
    TestChild publisher = startPublisher();
    std::string line;
    while (!line.starts_with("not connected"))
        line = publisher.readLine().value();
    EXPECT_THAT(line, HasSubstr("nobody listens as com.sevrin.switchboard"));
    startSwitchboard();
    ASSERT_TRUE(publisher.waitForLine("connected"));
    ASSERT_EQ(consume().status, 0);

    killSwitchboard();
    startSwitchboard();
    ASSERT_TRUE(publisher.waitForLine("connected"));

    EXPECT_EQ(consume().status, 0);
}

TEST_F(ExamplesTest, PublisherWithdrawsWhenItIsAskedToEnd) {
    startSwitchboard();
    TestChild publisher = startPublisher();
    ASSERT_TRUE(publisher.waitForLine("published"));

    ::kill(publisher.process(), SIGTERM);

    EXPECT_EQ(publisher.wait(), 0);
    EXPECT_EQ(consume().status, 1);
}

// MARK: In Python

TEST_F(ExamplesTest, PythonAsksTheSwitchboardForItsVersion) {
    startSwitchboard();

    const Outcome outcome = run(python({"version"}));

    EXPECT_EQ(outcome.text, "Switchboard-2.2.5.12 140556\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(ExamplesTest, PythonFindsThePublisherAndAsksItDirectly) {
    startSwitchboard();
    TestChild publisher = startPublisher();
    ASSERT_TRUE(publisher.waitForLine("published"));

    const Outcome outcome = run(python({"query", kIdentifier}));

    EXPECT_EQ(outcome.text, "Example-1.0 65536\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(run(python({"query", "com.example.nothing"})).status, 1);
}

TEST_F(ExamplesTest, PythonPostsToThePublisher) {
    startSwitchboard();
    TestChild publisher = startPublisher();
    ASSERT_TRUE(publisher.waitForLine("published"));

    EXPECT_EQ(run(python({"post", "com.example.greeting", "python"})).status, 0);

    EXPECT_TRUE(publisher.waitForLine("greeted by python"));
}

TEST_F(ExamplesTest, PythonMonitorsWhatOthersPost) {
    startSwitchboard();
    TestChild monitor = start(python({"monitor"}));
    ASSERT_TRUE(monitor.waitForLine("monitoring"));

    ASSERT_EQ(run(python({"post", "com.example.news", "me", "a=1", "b=x=y"})).status, 0);
    TestChild publisher = startPublisher();

    EXPECT_EQ(monitor.readLine(),
              R"({"name": "com.example.news", "source": "me", "info": {"a": "1", "b": "x=y"}})");
    EXPECT_EQ(monitor.readLine(),
              R"({"name": "SwitchboardEndpointPublished", "source": "Switchboard", )"
              R"("info": {"id": "com.example.thing"}})");
}

TEST_F(ExamplesTest, PythonSaysThatThereIsNoSwitchboard) {
    const Outcome outcome = run(python({"version"}));

    EXPECT_THAT(outcome.text, HasSubstr("No such file"));
    EXPECT_THAT(outcome.text, HasSubstr("com.sevrin.switchboard"));
    EXPECT_EQ(outcome.status, 3);
}

}  // namespace
}  // namespace sevrin
