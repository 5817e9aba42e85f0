// For tests only: a volume whose file system is served by a thread of the test, so that it can fail
// as the volume of a network does: with any error, by not answering, by going away.
//
// It speaks the kernel's protocol for file systems in user space itself. The volume has a file
// "file" of five bytes, an empty folder "folder" and a link "link" to the file; nothing can be
// changed. The kernel keeps nothing of what it was told, so that every call reaches the server,
// which is how a test sees failures at once. Declare it after the mounts that it is mounted among.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>

#include "Platform/TestMounts.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {

class TestFileServer {
public:
    // What the kernel asks for, by its numbers.
    enum Request : std::uint32_t {
        kLookup = 1,
        kForget = 2,
        kGetAttributes = 3,
        kReadLink = 5,
        kMakeDir = 9,
        kStatFs = 17,
        kInit = 26,
        kOpenDir = 27,
        kReadDir = 28,
        kReleaseDir = 29,
        kInterrupt = 36,
        kForgetMany = 42,
        kAny = 0,
    };

    static constexpr std::int32_t kNever = -1;

    // Mounts the volume at a new folder, as that of `user`. It is of a kind that is known to have
    // a server elsewhere.
    TestFileServer(TestMounts& mounts, std::string_view name, unsigned user = ::geteuid());
    TestFileServer(const TestFileServer&) = delete;
    TestFileServer& operator=(const TestFileServer&) = delete;
    ~TestFileServer() { stop(); }

    [[nodiscard]] const std::string& path() const { return path_; }

    // From now on requests, or those of one kind, are answered with the error; with kNever not at
    // all, with 0 as they should be. With a number of times, only so many are.
    void fail(std::int32_t error, Request request = kAny, int times = INT_MAX) {
        failing_ = request;
        timesLeft_ = times;
        error_ = error;
    }

    // How often such a request is still to fail.
    [[nodiscard]] int failuresLeft() const { return timesLeft_; }

    // From now on listings say that every entry is of this type, a number of readdir().
    void listAs(unsigned char type) { listedType_ = type; }

    // From now on so many blocks of 4 KiB of the 1,000, of which 600 are free, are for everybody.
    void makeAvailable(std::uint64_t blocks) { available_ = blocks; }

    // Waits until a request has come that was not answered.
    void waitForUnanswered() const { hasUnanswered_.wait(false); }

    // Goes away: all that waits for an answer fails, and all that comes does.
    void stop();

private:
    struct RequestHeader {
        std::uint32_t length, request;
        std::uint64_t unique, node;
        std::uint32_t user, group, process;
        std::uint32_t reserved;
    };
    struct AnswerHeader {
        std::uint32_t length;
        std::int32_t error;
        std::uint64_t unique;
    };
    struct Init {
        std::uint32_t major = 0, minor = 0, readAheadMax = 0, flags = 0;
        std::uint16_t backgroundMax = 0, congestion = 0;
        std::uint32_t writeMax = 0, timeGranularity = 0;
        std::uint16_t pagesMax = 0, alignment = 0;
        std::uint32_t moreFlags = 0;
        std::array<std::uint32_t, 7> reserved{};
    };
    struct Attributes {
        std::uint64_t node = 0, size = 0, blocks = 0, accessed = 0, modified = 0, changed = 0;
        std::uint32_t accessedNs = 0, modifiedNs = 0, changedNs = 0;
        std::uint32_t mode = 0, links = 0, user = 0, group = 0, device = 0, blockSize = 0,
                      flags = 0;
    };
    struct Entry {
        std::uint64_t node = 0, generation = 0, entryValid = 0, attributesValid = 0;
        std::uint32_t entryValidNs = 0, attributesValidNs = 0;
        Attributes attributes{};
    };
    struct AttributesAnswer {
        std::uint64_t valid = 0;
        std::uint32_t validNs = 0, reserved = 0;
        Attributes attributes{};
    };
    struct Opened {
        std::uint64_t handle = 0;
        std::uint32_t flags = 0;
        std::int32_t reserved = 0;
    };
    struct Reading {
        std::uint64_t handle = 0, position = 0;
    };
    struct Listed {
        std::uint64_t node = 0, position = 0;
        std::uint32_t nameLength = 0, type = 0;
        std::array<char, 8> name{};
    };
    struct Figures {
        std::uint64_t blocks = 0, free = 0, available = 0, files = 0, filesFree = 0;
        std::uint32_t blockSize = 0, nameMax = 0, fragmentSize = 0, padding = 0;
        std::array<std::uint32_t, 6> spare{};
    };
    struct Object {
        const char* name;
        std::uint32_t mode;
        std::uint64_t size;
    };

    static constexpr std::uint64_t kRoot = 1;
    // The node after the root's is that of the first.
    static constexpr std::array<Object, 3> kObjects = {
        {{"file", S_IFREG | 0644, 5}, {"folder", S_IFDIR | 0755, 0}, {"link", S_IFLNK | 0777, 4}}};

    static Attributes attributesOf(std::uint64_t node) {
        const Object root{"", S_IFDIR | 0755, 0};
        const Object& object = node == kRoot ? root : kObjects.at(node - kRoot - 1);
        Attributes all{};
        all.node = node;
        all.size = object.size;
        all.mode = object.mode;
        all.links = 1;
        all.blockSize = 4096;
        return all;
    }

    void serve();
    void handle(const RequestHeader& header, const char* content);
    void answerEntry(const RequestHeader& header, std::string_view name);
    void answerListing(const RequestHeader& header, const Reading& reading);

    void answer(const RequestHeader& header, const void* content, std::size_t size) {
        answerWith(header, 0, content, size);
    }
    template <typename Content>
    void answer(const RequestHeader& header, const Content& content) {
        answerWith(header, 0, &content, sizeof content);
    }
    void refuse(const RequestHeader& header, int error) { answerWith(header, error, nullptr, 0); }
    void answerWith(const RequestHeader& header, int error, const void* content, std::size_t size);

    std::string path_;
    UniqueFd device_;
    UniqueFd stopping_;  // the writing end of the pipe that the thread waits at
    UniqueFd stopped_;
    std::atomic<std::uint32_t> failing_ = kAny;
    std::atomic<std::int32_t> error_ = 0;
    std::atomic<int> timesLeft_ = 0;
    std::atomic<std::uint64_t> available_ = 500;
    std::atomic<int> listedType_ = -1;  // negative: as they are
    std::atomic<bool> hasUnanswered_ = false;
    std::thread thread_;
};

inline TestFileServer::TestFileServer(TestMounts& mounts, std::string_view name, unsigned user)
    : path_(mounts / name), device_(::open("/dev/fuse", O_RDWR | O_NONBLOCK | O_CLOEXEC)) {
    const std::string options = "fd=" + std::to_string(device_.get()) +
                                ",rootmode=40000,user_id=" + std::to_string(user) + ",group_id=0";
    mounts.mountAt(name, "server:/served", "fuse.sshfs", 0, options.c_str());
    if (!mounts) return;
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    stopped_ = UniqueFd(ends[0]);
    stopping_ = UniqueFd(ends[1]);
    thread_ = std::thread([this] { serve(); });
}

inline void TestFileServer::stop() {
    if (!thread_.joinable()) return;
    stopping_ = UniqueFd();
    thread_.join();
    device_ = UniqueFd();
}

inline void TestFileServer::serve() {
    alignas(8) std::array<char, 65536> request;
    std::array<pollfd, 2> ends{{{device_.get(), POLLIN, 0}, {stopped_.get(), POLLIN, 0}}};
    while (::poll(ends.data(), ends.size(), -1) > 0 && ends[1].revents == 0) {
        const ssize_t size = ::read(device_.get(), request.data(), request.size());
        if (size < 0 && errno == ENODEV) return;  // unmounted
        if (size < static_cast<ssize_t>(sizeof(RequestHeader))) continue;
        RequestHeader header;
        std::memcpy(&header, request.data(), sizeof header);
        handle(header, request.data() + sizeof header);
    }
}

inline void TestFileServer::handle(const RequestHeader& header, const char* content) {
    const std::uint32_t request = header.request;
    if (request == kForget || request == kForgetMany || request == kInterrupt) return;
    const std::int32_t error = error_;
    const bool isFailing = failing_ == kAny || failing_ == request;
    if (request != kInit && error != 0 && isFailing && timesLeft_ > 0) {
        --timesLeft_;
        if (error != kNever) return refuse(header, error);
        hasUnanswered_ = true;
        return hasUnanswered_.notify_all();
    }
    switch (request) {
        case kInit:
            return answer(header, Init{.major = 7, .minor = 31, .writeMax = 4096});
        case kLookup:
            return answerEntry(header, content);
        case kGetAttributes:
            return answer(header, AttributesAnswer{.attributes = attributesOf(header.node)});
        case kReadLink:
            return answer(header, "file", 4);
        case kStatFs:
            return answer(header, Figures{.blocks = 1000,
                                          .free = 600,
                                          .available = available_,
                                          .files = 3,
                                          .blockSize = 4096,
                                          .nameMax = 255,
                                          .fragmentSize = 4096});
        case kOpenDir:
            return answer(header, Opened{});
        case kReadDir: {
            Reading reading;
            std::memcpy(&reading, content, sizeof reading);
            return answerListing(header, reading);
        }
        case kReleaseDir:
            return refuse(header, 0);
        default:
            return refuse(header, ENOSYS);
    }
}

inline void TestFileServer::answerEntry(const RequestHeader& header, std::string_view name) {
    for (std::uint64_t i = 0; i < kObjects.size(); ++i) {
        if (name != kObjects[i].name) continue;
        const std::uint64_t node = kRoot + 1 + i;
        return answer(header, Entry{.node = node, .attributes = attributesOf(node)});
    }
    refuse(header, ENOENT);
}

inline void TestFileServer::answerListing(const RequestHeader& header, const Reading& reading) {
    if (header.node != kRoot || reading.position >= kObjects.size())
        return answer(header, nullptr, 0);
    const Object& object = kObjects[reading.position];
    Listed listed{.node = kRoot + 1 + reading.position,
                  .position = reading.position + 1,
                  .nameLength = static_cast<std::uint32_t>(std::strlen(object.name)),
                  .type = object.mode >> 12U};
    if (listedType_ >= 0) listed.type = static_cast<std::uint32_t>(listedType_);
    std::memcpy(listed.name.data(), object.name, listed.nameLength);
    answer(header, listed);
}

inline void TestFileServer::answerWith(const RequestHeader& header, int error, const void* content,
                                       std::size_t size) {
    alignas(8) std::array<char, sizeof(AnswerHeader) + sizeof(Entry)> bytes{};
    const AnswerHeader answer{static_cast<std::uint32_t>(sizeof(AnswerHeader) + size), -error,
                              header.unique};
    std::memcpy(bytes.data(), &answer, sizeof answer);
    if (size != 0) std::memcpy(bytes.data() + sizeof answer, content, size);
    // Whoever asked may have gone meanwhile.
    static_cast<void>(::write(device_.get(), bytes.data(), answer.length));
}

}  // namespace sevrin::platform
