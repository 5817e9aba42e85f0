// Collects the text that a child process writes: its pipe goes to the child as standard output, and
// later gives the lines.
//
// Reading happens on a background queue, from startReading() on, so the child never waits for room
// in the pipe. It goes on to the end of the output, also when the reader is gone, and holds one of
// the queue's few threads meanwhile (Platform/DispatchQueue.h): a child that keeps its output open
// for good wants a thread of its own to read it instead. Set up and started by one thread; lines()
// may be called on any.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/NSPipe.h"
#include "Platform/Object.h"

namespace sevrin {

class TextPipeReader : public platform::Object {
public:
    TextPipeReader() = default;
    ~TextPipeReader() override;

    // The pipe whose writing end the child gets, made on first access. Throws std::system_error
    // when there are no descriptors for one.
    [[nodiscard]] const std::shared_ptr<platform::NSPipe>& pipe();

    // The number of the output's string encoding (Platform/StringEncoding.h); 0 means UTF-8. Before
    // startReading().
    void setEncoding(std::uint64_t encoding) { encoding_ = encoding; }
    [[nodiscard]] std::uint64_t encoding() const { return encoding_; }

    // How many bytes of output are enough; 0 means all. The piece of output with which that number
    // is reached or passed is kept whole, what comes after it is read and forgotten. Before
    // startReading().
    void setLimit(std::uint64_t limit) { limit_ = limit; }
    [[nodiscard]] std::uint64_t limit() const { return limit_; }

    // Starts reading. Once; a second time is a bug. Throws as pipe() and as DispatchQueue::async();
    // nothing is being read then.
    void startReading();

    // The lines of the output that hold more than spaces and tabs, as they are but without their
    // ends. Waits until nobody holds the writing end of the pipe any more. None when the output is
    // not text in the encoding. Nothing, and at once, before startReading().
    [[nodiscard]] std::optional<std::vector<std::string>> lines() const;

private:
    class Output;

    std::shared_ptr<platform::NSPipe> pipe_;
    std::uint64_t encoding_ = 0;
    std::uint64_t limit_ = 0;
    std::shared_ptr<Output> output_;  // Since startReading(); shared with the block that reads.
};

}  // namespace sevrin
