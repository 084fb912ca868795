#include "recorder/connection.h"

#include <gtest/gtest.h>

#include "recorder/failure.h"
#include "tests/recorder/fake_camera.h"

namespace {

TEST(HostPort, ReadsHostAndPort)
{
    const struct {
        const char* text;
        const char* host; // null: refused
        uint16_t port;
    } kCases[] = {
        {"192.0.2.1", "192.0.2.1", 9000},
        {"camera.example:554", "camera.example", 554},
        {"a:65535", "a", 65535},
        {"a:65536", nullptr, 0},
        {"a:0", nullptr, 0},
        {"a:", nullptr, 0},
        {"a:12x", nullptr, 0},
        {"a:-1", nullptr, 0},
        {":80", nullptr, 0},
        {"", nullptr, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        if (c.host == nullptr) {
            EXPECT_THROW(ParseHostPort(c.text), Failure);
            continue;
        }
        const HostPort address = ParseHostPort(c.text);
        EXPECT_EQ(address.host, c.host);
        EXPECT_EQ(address.port, c.port);
    }
}

// Receives until something is thrown.
Failure FailureOf(uint16_t port, milliseconds limit)
{
    try {
        const TimePoint deadline = Clock::now() + limit;
        Connection connection({"127.0.0.1", port}, deadline);
        for (;;)
            connection.Receive(deadline);
    } catch (const Failure& failure) {
        return failure;
    }
}

TEST(Connection, TellsApartWhatAPeerDoesWrong)
{
    const Bytes header = Wire(1001, 0, 0, "").substr(0, 16);
    const struct {
        const char* name;
        Bytes sent;
        bool staysOpen;
        ExitCode code;
        const char* text;
    } kCases[] = {
        {"web server", "HTTP/1.1 400 Bad Request\r\n", true, kExitNotProtocol, "'HTTP/1.1 400 Bad'"},
        {"one wrong byte", "S", true, kExitNotProtocol, "'S'"},
        {"other version", "\xFF\x02", true, kExitNotProtocol, "'..'"},
        {"reply above the limit", header + U32(10221), true, kExitNotProtocol, "announces 10221 bytes"},
        {"media above the limit", Wire(1412, 0, 0, "").substr(0, 16) + U32(32769), true, kExitNotProtocol,
         "message 1412 announces 32769 bytes"},
        {"garbage after a message", Wire(1001, 0, 0, "{}") + "{}", true, kExitNotProtocol, "'{}'"},
        {"closes at once", "", false, kExitClosed, "closed by the camera"},
        {"closes in a header", "\xFF\x01", false, kExitClosed, "in the middle of a message"},
        {"closes in a body", Wire(1001, 0, 0, "{}").substr(0, 21), false, kExitClosed, "in the middle"},
        {"says nothing", "", true, kExitTimedOut, "timed out while waiting"},
        {"says half a message", Wire(1001, 0, 0, "{}").substr(0, 21), true, kExitTimedOut, "timed out"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        FakeCamera camera({[&c](Peer& peer) {
            peer.Send(c.sent);
            if (c.staysOpen)
                peer.AwaitClose();
        }});
        const Failure failure = FailureOf(camera.port(), milliseconds(c.code == kExitTimedOut ? 50 : 20'000));
        EXPECT_EQ(failure.code(), c.code) << failure.what();
        EXPECT_NE(std::string(failure.what()).find(c.text), std::string::npos) << failure.what();
        EXPECT_EQ(std::string(failure.what()).find("127.0.0.1:" + std::to_string(camera.port())), 0U);
    }
}

} // namespace
