#include "TOstelRawSocket.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <future>

#include "BinaryLayout.h"
#include "RecordingLog.h"
#include "WaitUntil.h"

struct TSocket {
    friend std::size_t OffsetOf(TSocket);
};
template struct MemberOffset<TSocket, &TOstelRawSocket::m_Socket>;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char* const READ_FAILED =
    "virtual bool TOstelRawSocket::Read(char*, size_t) const: Failed to read from the socket. ret "
    "= ";
const char* const WRITE = "virtual bool TOstelRawSocket::Write(const void*, size_t) const: ";

class TOstelRawSocketTest : public testing::Test {
protected:
    TOstelRawSocketTest() {
        RecordingLog::Clear();
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_Ends.data()), 0);
    }
    ~TOstelRawSocketTest() override { HangUp(); }

    void Send(const std::string& bytes) const {
        ASSERT_EQ(send(m_Ends[1], bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
    }

    std::string Receive() const {
        std::string bytes(1 << 20, '\0');
        const ssize_t length = recv(m_Ends[1], bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
        return bytes;
    }

    void HangUp() {
        if (m_Ends[1] != -1) {
            close(m_Ends[1]);
            m_Ends[1] = -1;
        }
    }

    // The other side has taken everything that was sent.
    bool WaitUntilTaken() const {
        return WaitUntil([&] {
            int waiting = -1;
            return ioctl(m_Ends[0], FIONREAD, &waiting) == 0 && waiting == 0;
        });
    }

    std::array<int, 2> m_Ends{-1, -1};
};

TEST_F(TOstelRawSocketTest, ReadingNothingSucceedsWithoutTheDescriptor) {
    const TOstelRawSocket none(-1);
    EXPECT_TRUE(none.Read(nullptr, 0));
    close(m_Ends[0]);
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST_F(TOstelRawSocketTest, ReadCollectsTheExactLength) {
    const TOstelRawSocket socket(m_Ends[0]);
    std::array<char, 11> buffer{};
    auto reading =
        std::async(std::launch::async, [&] { return socket.Read(buffer.data(), std::size_t{10}); });
    Send("0123");
    ASSERT_TRUE(WaitUntilTaken());
    Send("456789more");
    EXPECT_TRUE(reading.get());
    EXPECT_STREQ(buffer.data(), "0123456789");
    std::string rest;
    EXPECT_TRUE(socket.Read(rest, 4));
    EXPECT_EQ(rest, "more");
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST_F(TOstelRawSocketTest, ReadTellsOfAnEndBeforeTheLength) {
    const TOstelRawSocket socket(m_Ends[0]);
    Send("0123");
    HangUp();
    std::string text = "abcdefgh_____";
    EXPECT_FALSE(socket.Read(text, 10));
    EXPECT_EQ(text, "0123efgh__");
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(READ_FAILED + std::string("0")));
}

TEST_F(TOstelRawSocketTest, ReadTellsOfAnError) {
    const TOstelRawSocket none(-1);
    std::vector<char> bytes;
    EXPECT_FALSE(none.Read(bytes, 3));
    EXPECT_THAT(bytes, ElementsAre('\0', '\0', '\0'));
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(READ_FAILED + std::string("-1")));
    close(m_Ends[0]);
}

TEST_F(TOstelRawSocketTest, ReadsAndWritesVectors) {
    const TOstelRawSocket socket(m_Ends[0]);
    Send(std::string("a\0b", 3));
    std::vector<char> bytes{'x'};
    EXPECT_TRUE(socket.Read(bytes, 3));
    EXPECT_THAT(bytes, ElementsAre('a', '\0', 'b'));
    EXPECT_TRUE(socket.Write(bytes));
    EXPECT_EQ(Receive(), std::string("a\0b", 3));
}

TEST_F(TOstelRawSocketTest, WritesTheExactBytes) {
    const TOstelRawSocket socket(m_Ends[0]);
    const std::string text("{\"a\":1}\0 and on", 15);
    EXPECT_TRUE(socket.Write(text));
    EXPECT_EQ(Receive(), text);
    EXPECT_TRUE(socket.Write("", 0));
    EXPECT_TRUE(socket.Write(std::vector<char>()));
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST_F(TOstelRawSocketTest, AWriteIsOneSendAndWhatIsLeftIsNotSentAgain) {
    const TOstelRawSocket socket(m_Ends[0]);
    fcntl(m_Ends[0], F_SETFL, O_NONBLOCK);
    const std::string big(8 << 20, 'x');
    EXPECT_FALSE(socket.Write(big));
    const auto sent = Receive().size();
    EXPECT_GT(sent, 0U);
    std::size_t more = 0;
    for (std::string rest = Receive(); !rest.empty(); rest = Receive()) {
        more += rest.size();
    }
    ASSERT_LT(sent + more, big.size());
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre(WRITE + ("Failed to write the entire buffer. ret = " +
                                     std::to_string(sent + more))));
}

TEST_F(TOstelRawSocketTest, AWriteToAPeerThatIsGoneFailsAndNoMore) {
    const TOstelRawSocket socket(m_Ends[0]);
    HangUp();
    EXPECT_FALSE(socket.Write("x"));
    EXPECT_FALSE(socket.Write("y"));
    const std::string line = WRITE + std::string("Failed to write into the socket. ret = -1");
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(line, line));
}

TEST_F(TOstelRawSocketTest, AFailedWriteLeavesItsErrorNumber) {
    const TOstelRawSocket socket(m_Ends[0]);
    HangUp();
    errno = 0;
    EXPECT_FALSE(socket.Write("x"));
    EXPECT_EQ(errno, EPIPE);
}

bool SigpipeIsPending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

TEST_F(TOstelRawSocketTest, AFailedWriteLeavesTheSignalsOfTheProcessAlone) {
    static volatile std::sig_atomic_t caught = 0;
    struct sigaction mine {};
    mine.sa_handler = [](int) { caught = caught + 1; };
    sigaction(SIGPIPE, &mine, nullptr);
    const TOstelRawSocket socket(m_Ends[0]);
    HangUp();
    EXPECT_FALSE(socket.Write("x"));

    EXPECT_EQ(caught, 0);
    struct sigaction now {};
    sigaction(SIGPIPE, nullptr, &now);
    EXPECT_EQ(now.sa_handler, mine.sa_handler);
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
    EXPECT_FALSE(SigpipeIsPending());
}

TEST_F(TOstelRawSocketTest, ASigpipeThatWasPendingBeforeAWriteStaysPending) {
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
    raise(SIGPIPE);
    const TOstelRawSocket socket(m_Ends[0]);
    HangUp();
    EXPECT_FALSE(socket.Write("x"));
    EXPECT_TRUE(SigpipeIsPending());

    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 1) << "it was blocked by the caller";
    constexpr timespec noWait{};
    EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &noWait), SIGPIPE);
    EXPECT_FALSE(SigpipeIsPending());
}

TEST_F(TOstelRawSocketTest, ReadAllEndsWithTheFirstShortChunk) {
    const TOstelRawSocket socket(m_Ends[0]);
    const std::string message = std::string(512, 'a') + std::string(188, 'b');
    Send(message);
    std::string out = ">";
    EXPECT_TRUE(socket.ReadAll(out));
    EXPECT_EQ(out, ">" + message);
}

// Peers pad their texts with zeros: the loss is counted on.
TEST_F(TOstelRawSocketTest, ReadAllLosesWhatStandsBehindAZeroInAChunk) {
    const TOstelRawSocket socket(m_Ends[0]);
    std::string message = std::string(512, 'a') + "tail";
    message[5] = '\0';
    Send(message);
    std::string out;
    EXPECT_TRUE(socket.ReadAll(out));
    EXPECT_EQ(out, "aaaaatail");
}

TEST_F(TOstelRawSocketTest, ReadAllWaitsForMoreBehindAnExactMultipleOfItsChunk) {
    const TOstelRawSocket socket(m_Ends[0]);
    Send(std::string(1024, 'a'));
    std::string out;
    auto reading = std::async(std::launch::async, [&] { return socket.ReadAll(out); });
    ASSERT_TRUE(WaitUntilTaken());
    EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    HangUp();
    EXPECT_TRUE(reading.get());
    EXPECT_EQ(out.size(), 1024U);
}

TEST_F(TOstelRawSocketTest, ReadAllNeverFails) {
    std::string out = "kept";
    const TOstelRawSocket socket(m_Ends[0]);
    HangUp();
    EXPECT_TRUE(socket.ReadAll(out));
    EXPECT_TRUE(TOstelRawSocket(-1).ReadAll(out));
    EXPECT_EQ(out, "kept");
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST_F(TOstelRawSocketTest, OwnsItsDescriptorAndStaysUsableAfterAFailure) {
    {
        const TOstelRawSocket socket(m_Ends[0]);
        fcntl(m_Ends[0], F_SETFL, O_NONBLOCK);
        std::string text;
        EXPECT_FALSE(socket.Read(text, 1));
        Send("x");
        EXPECT_TRUE(socket.Read(text, 1));
        EXPECT_NE(fcntl(m_Ends[0], F_GETFD), -1);
    }
    EXPECT_EQ(fcntl(m_Ends[0], F_GETFD), -1);
}

TEST(TOstelRawSocketLayout, KeepsItsSlotsAndItsMember) {
    using T = TOstelRawSocket;
    // 0 and 1 are the destructor's.
    EXPECT_EQ(BinaryLayout::SlotOf<bool (T::*)(char*, std::size_t) const>(&T::Read), 2U);
    EXPECT_EQ(BinaryLayout::SlotOf<bool (T::*)(const void*, std::size_t) const>(&T::Write), 3U);
    EXPECT_EQ(BinaryLayout::SlotOf(&T::ReadAll), 4U);
    EXPECT_EQ(OffsetOf(TSocket()), sizeof(void*));
    EXPECT_EQ(sizeof(T), 2 * sizeof(void*));
}

}  // namespace
