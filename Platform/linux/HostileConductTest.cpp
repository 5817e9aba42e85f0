// Peers whose bytes may be right but whose conduct is not: they do not read, die in the middle, or
// say what no one could have meant.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <random>

#include "Platform/XPCLimits.h"
#include "Platform/linux/HostilePeerFixture.h"

namespace sevrin::platform {
namespace {

using namespace rawwire;
using namespace xpctest;

class HostileConductTest : public HostilePeerFixture {};

TEST_F(HostileConductTest, APeerThatNeverReadsIsDisconnectedAndOthersAreServed) {
    HostilePeer peer = connect();
    peer.greet();
    const std::string question = request(1, "echo:withReply:", text(std::string(60'000, 'x')));

    // Far more than the socket and the outbox hold together.
    std::size_t sent = 0;
    while (sent < 1000 && peer.send(question))
        ++sent;

    EXPECT_LT(sent, 1000u);
    EXPECT_TRUE(isGoodClientServed());
    EXPECT_TRUE(peer.isClosed());
    expectFault(0, "does not read what it is sent");
}

TEST_F(HostileConductTest, AFloodWithinOneMessagesHandlingIsCutOffAtTheLimit) {
    (void)server_.accepted();  // The good client's.
    std::size_t pushes = 0;
    std::weak_ptr<NSXPCConnection> floodedWeakly;
    server_.service->onNote = [&](const std::string&) {
        const auto flooded = floodedWeakly.lock();
        const std::string megabyte(1'000'000, 'x');
        while (pushes < 1000 && !flooded->failure()) {
            push(*flooded, megabyte);
            ++pushes;
        }
    };
    HostilePeer peer = connect();
    peer.greet();
    const auto flooded = server_.accepted();
    ASSERT_TRUE(flooded);
    floodedWeakly = flooded;

    peer.send(message("note:", text("flood me")));

    EXPECT_TRUE(isGoodClientServed());
    EXPECT_TRUE(peer.isClosed());
    EXPECT_LE(pushes, kOutboxBytesMax / 1'000'000 + 2);
    expectFault(0, "does not read what it is sent");
}

TEST_F(HostileConductTest, APeerThatReadsSlowlyIsServedWhatItAskedFor) {
    HostilePeer peer = connect();
    peer.greet();
    const std::string large(100'000, 'x');
    constexpr std::size_t kQuestions = 30;
    for (std::uint64_t serial = 1; serial <= kQuestions; ++serial)
        ASSERT_TRUE(peer.send(request(serial, "echo:withReply:", text(large))));
    EXPECT_TRUE(isGoodClientServed());

    const std::size_t answerBytes = FrameHeader::kBytes + 1 + 5 + large.size();

    EXPECT_TRUE(peer.hasReceived(29 + kQuestions * answerBytes));
    expectNoFault();
}

TEST_F(HostileConductTest, APeerThatAsksAndHangsUp) {
    for (int i = 0; i < 20; ++i) {
        HostilePeer peer = connect();
        peer.greet();
        peer.send(repeated(request(1, "echo:withReply:", text("x")), 50));
        peer.close();
    }
    EXPECT_TRUE(isGoodClientServed());
    expectNoFault();
}

TEST_F(HostileConductTest, APeerThatOnlyStopsSendingGetsItsAnswersFirst) {
    HostilePeer peer = connect();
    peer.greet();
    peer.send(request(7, "echo:withReply:", text("hi")));
    peer.shutDownSending();

    EXPECT_TRUE(peer.hasReceived(29 + FrameHeader::kBytes + 4));
    EXPECT_TRUE(peer.isClosed());
    expectNoFault();
}

// A real process, so that the kernel closes for it.
TEST_F(HostileConductTest, AProcessKilledInTheMiddleOfAMessage) {
    HostilePeer peer = connect();
    const std::string half =
        greeting() + message("note:", text(std::string(50'000, 'x'))).substr(0, 30'000);
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Only what a child of a threaded process may do.
        (void)!::write(peer.socket(), half.data(), half.size());
        (void)!::write(ready[1], "!", 1);
        for (;;)
            ::pause();
    }
    peer.close();
    char byte;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    EXPECT_TRUE(isGoodClientServed());
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);

    ::close(ready[0]);
    ::close(ready[1]);
    EXPECT_TRUE(isGoodClientServed());
    expectNoFault();
}

TEST_F(HostileConductTest, AHundredPeersThatEachLeaveHalfAMessage) {
    std::vector<HostilePeer> peers;
    for (int i = 0; i < 100; ++i) {
        peers.push_back(connect());
        peers.back().greet();
        peers.back().send(message("note:", text("x")).substr(0, 20));
    }
    EXPECT_TRUE(isGoodClientServed());
    expectNoFault();
}

// A conversation in order, then spoiled in one to four random places. What must come of it is only
// that the server goes on, blames the peer at most once, and keeps nothing.
class Mutation {
public:
    explicit Mutation(unsigned seed) : random_(seed) {}

    std::string spoil(std::string bytes) {
        for (std::size_t i = 1 + below(4); i > 0 && !bytes.empty(); --i)
            spoilOnce(bytes);
        return bytes;
    }

private:
    std::size_t below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
    }

    void spoilOnce(std::string& bytes) {
        const std::size_t place = below(bytes.size());
        const std::size_t length = 1 + below(std::min<std::size_t>(bytes.size() - place, 40));
        switch (below(6)) {
            case 0:
                bytes[place] = static_cast<char>(below(256));
                break;
            case 1:
                bytes[place] = static_cast<char>(bytes[place] ^ (1 << below(8)));
                break;
            case 2:
                bytes.erase(place, length);
                break;
            case 3:
                bytes.insert(place, bytes.substr(below(bytes.size()), length));
                break;
            case 4:
                bytes.resize(place);
                break;
            default:
                bytes.replace(place, length, std::string(length, below(2) ? '\xff' : '\0'));
        }
    }

    std::mt19937 random_;
};

TEST_F(HostileConductTest, AHundredRandomlySpoiledConversations) {
    const std::string conversation =
        greeting() + message("note:", text("a note")) +
        request(1, "echo:withReply:", text("a question")) +
        message("noteDictionary:", map(2, text("k") + array(2, hex("01 f93c00")) + text("l") +
                                              hex("d9c49c fb3ff8000000000000"))) +
        message("noteNumber:", hex("1affffffff")) + message("keepEndpoint:", hex("f6")) +
        frame(kRequest, 2, array(1, text("askEndpointWithReply:"))) +
        frame(kRequest, 3, array(1, text("barrierWithCompletion:")));
    for (unsigned seed = 1; seed <= 100; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const std::size_t faultsBefore = log_.faults().size();
        HostilePeer peer = connect();
        peer.send(Mutation(seed).spoil(conversation));
        peer.shutDownSending();
        ASSERT_TRUE(peer.isClosed());
        ASSERT_TRUE(isGoodClientServed());
        ASSERT_LE(log_.faults().size(), faultsBefore + 1);
    }
    // Most of them were beyond doubt.
    EXPECT_GE(log_.faults().size(), 50u);
}

}  // namespace
}  // namespace sevrin::platform
