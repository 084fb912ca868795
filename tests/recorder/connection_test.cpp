#include "recorder/connection.h"

#include <gtest/gtest.h>

#include "recorder/failure.h"
#include "tests/recorder/fake_camera.h"

namespace {

// Receives until something is thrown.
Failure FailureOf(const HostPort& address, milliseconds limit)
{
    try {
        const TimePoint deadline = Clock::now() + limit;
        Connection connection(address, deadline);
        for (;;)
            connection.Receive(deadline);
    } catch (const Failure& failure) {
        return failure;
    }
}

TEST(Connection, TellsApartWhatAPeerDoesWrong)
{
    const Bytes longest = Wire(1412, 0, Bytes(32768, 'x'));
    // What the peer sends, behind which it closes where that is what is told apart, and what is said.
    const std::tuple<Bytes, ExitCode, const char*> kCases[] = {
        {"HTTP/1.1 400 Bad Request\r\n", kExitNotProtocol, "'HTTP/1.1 400 Bad'"},
        {"S", kExitNotProtocol, "'S'"},
        {"\xFF\x02", kExitNotProtocol, "'..'"},
        {Wire(1001, 0, "").substr(0, 16) + Le(10221), kExitNotProtocol, "announces 10221 bytes"},
        {Wire(1412, 0, "").substr(0, 16) + Le(32769), kExitNotProtocol, "message 1412 announces 32769 bytes"},
        {longest + "{}", kExitNotProtocol, "'{}'"},
        {"", kExitClosed, "closed by the camera"},
        {"\xFF\x01", kExitClosed, "in the middle of a message"},
        {longest.substr(0, 21), kExitClosed, "in the middle of a message"},
        {"", kExitTimedOut, "timed out while waiting"},
        {longest.substr(0, 21), kExitTimedOut, "timed out while waiting"},
    };
    for (const auto& [sent, code, text] : kCases) {
        SCOPED_TRACE(std::string(text) + " after " + sent.substr(0, 20));
        FakeCamera camera({[&bytes = sent, closes = code == kExitClosed](Peer& peer) {
            peer.Send(bytes);
            if (!closes)
                peer.AwaitClose();
        }});
        const Failure failure = FailureOf(camera.address, milliseconds(code == kExitTimedOut ? 50 : 20'000));
        EXPECT_EQ(failure.code(), code);
        EXPECT_NE(std::string(failure.what()).find(text), std::string::npos) << failure.what();
        EXPECT_EQ(std::string(failure.what()).find(PrintHostPort(camera.address)), 0U) << failure.what();
    }
}

} // namespace
