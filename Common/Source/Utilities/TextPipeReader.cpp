// The block that reads, and cutting what it has read into lines.
#include "Common/Source/Utilities/TextPipeReader.h"

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/DispatchQueue.h"
#include "Platform/StringEncoding.h"
#include "Platform/Text.h"

namespace sevrin {

using platform::DispatchQueue;
using platform::NSFileHandle;
using platform::NSPipe;
using platform::StringEncoding;

namespace {

constexpr std::size_t kBufferBytes = 1'024;

// Everything up to the end of the output, or of what can be read of it; beyond the limit only read.
std::string collect(NSFileHandle& reading, std::uint64_t limit) {
    std::string buffer;
    buffer.reserve(kBufferBytes);
    try {
        for (;;) {
            const std::string chunk = reading.availableData();
            if (chunk.empty()) return buffer;
            if (limit == 0 || buffer.size() < limit) buffer += chunk;
        }
    } catch (const std::system_error&) {
        return buffer;
    }
}

bool isBlank(std::string_view line) {
    return line.find_first_not_of(" \t") == std::string_view::npos;
}

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    const auto keep = [&](std::string_view line) {
        if (!isBlank(line)) lines.emplace_back(line);
    };
    std::size_t start = 0;
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t before = position;
        if (!platform::isNewline(platform::decodeUtf8(text, position))) continue;
        keep(text.substr(start, before - start));
        start = position;
    }
    keep(text.substr(start));
    return lines;
}

}  // namespace

// The lines, and whoever waits for them.
class TextPipeReader::Output {
public:
    void publish(std::vector<std::string> lines) {
        const std::lock_guard guard(lock_);
        lines_ = std::move(lines);
        published_.notify_all();
    }

    std::vector<std::string> wait() {
        std::unique_lock guard(lock_);
        published_.wait(guard, [this] { return lines_.has_value(); });
        return *lines_;
    }

private:
    std::mutex lock_;
    std::condition_variable published_;
    std::optional<std::vector<std::string>> lines_;  // guarded by lock_
};

TextPipeReader::~TextPipeReader() = default;

const std::shared_ptr<NSPipe>& TextPipeReader::pipe() {
    if (!pipe_) pipe_ = std::make_shared<NSPipe>();
    return pipe_;
}

void TextPipeReader::startReading() {
    SEVRIN_ASSERT(!output_, "a text pipe reader is started once");
    auto output = std::make_shared<Output>();
    const std::uint64_t encoding =
        encoding_ != 0 ? encoding_ : static_cast<std::uint64_t>(StringEncoding::Utf8);
    DispatchQueue::globalQueue(DispatchQueue::Priority::Default)
        .async(
            [reading = pipe()->fileHandleForReading(), output, encoding, limit = limit_]() mutable {
                const std::string bytes = collect(*reading, limit);
                // Whoever has the lines may count on it that the block holds no descriptor any
                // more.
                reading.reset();
                const std::optional<std::string> text = platform::textFromBytes(bytes, encoding);
                output->publish(text ? linesOf(*text) : std::vector<std::string>());
            });
    output_ = std::move(output);
}

std::optional<std::vector<std::string>> TextPipeReader::lines() const {
    if (!output_) return std::nullopt;
    return output_->wait();
}

}  // namespace sevrin
