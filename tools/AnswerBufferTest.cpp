// Many answers with few writes.
#include "tools/AnswerBuffer.h"

#include <gtest/gtest.h>

#include <string>

namespace sevrin {
namespace {

// What `work` writes to standard output before it ends.
template <typename Work>
std::string outputOf(Work work) {
    testing::internal::CaptureStdout();
    work();
    return testing::internal::GetCapturedStdout();
}

TEST(AnswerBufferTest, EveryAnswerIsWrittenOnceAndInOrder) {
    std::string expected;

    const std::string output = outputOf([&] {
        AnswerBuffer buffer;
        for (int number = 0; number < 20'000; ++number) {
            const std::string answer = std::to_string(number) + '\n';
            buffer.add(answer);
            expected += answer;
        }
    });

    EXPECT_EQ(output, expected);
}

TEST(AnswerBufferTest, FlushingWritesWhatIsHeld) {
    AnswerBuffer buffer;

    EXPECT_EQ(outputOf([&] {
                  buffer.add("a\n");
                  buffer.flush();
                  buffer.flush();
              }),
              "a\n");
}

TEST(AnswerBufferTest, MuchIsNotHeld) {
    AnswerBuffer buffer;
    const std::string much(1 << 20, 'x');

    EXPECT_EQ(outputOf([&] { buffer.add(much); }), much);
}

}  // namespace
}  // namespace sevrin
