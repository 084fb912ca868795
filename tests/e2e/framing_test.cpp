// Messages that come in pieces.

#include "tests/e2e/harness/camera_test.h"

namespace {

using Framing = RunningCamera;
using std::chrono::milliseconds;

TEST_F(Framing, PiecesOfABodyAreOneMessage)
{
    const struct {
        size_t nameBytes;
        std::vector<size_t> cuts;
        std::string_view surplus;
    } rows[] = {
        {30, {20}, ""},
        {31, {64}, ""},
        {32, {22, 30, 31, 40}, ""},
        {33, {25}, "beyond the announced length"},
        {10205, {1400, 2800, 5600, 10000}, ""}, // as large as can be
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.nameBytes);
        const std::string body = R"({"UserName":")" + std::string(row.nameBytes, 'x') + R"("})";
        // The pieces have 200 ms to come, which a busy machine may let go by: several attempts.
        for (int attempt = 0; attempt < 20 && server->CountLog("data = " + body + "\n") == 0; attempt++) {
            ProtocolClient client, other;
            const std::string message = client.Request(kLoginReq, body).append(row.surplus);
            size_t from = 0;
            for (const size_t cut : row.cuts) {
                client.SendBytes(message.substr(from, cut - from));
                from = cut;
                other.Ask(kKeepaliveReq); // is answered meanwhile, which shows that the piece was read
            }
            client.SendBytes(message.substr(from));
            client.ReceiveReply(kLoginReply);
        }
        EXPECT_GE(server->CountLog("data = " + body + "\n"), 1);
    }
}

TEST_F(Framing, APieceIsHeldAFifthOfASecondAndThenHandled)
{
    const struct {
        uint32_t announced; // where four bytes come
        bool held;
    } rows[] = {{5, true}, {10220, true}, {10221, false}, {0xFFFFFFFF, false}, {4, false}, {3, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.announced);
        auto shortest = Clock::duration::max();
        for (int attempt = 0; attempt < 6; attempt++) {
            ProtocolClient client;
            client.Ask(kKeepaliveReq);
            const auto begin = Clock::now();
            client.SendBytes(client.Request(kKeepaliveReq, "half", row.announced));
            client.ReceiveReply(kKeepaliveReply);
            shortest = std::min(shortest, Clock::now() - begin);
        }
        // Bounds the shortest of six only, between what is prescribed and one more wait of the server.
        EXPECT_GE(shortest, milliseconds(row.held ? 195 : 0));
        EXPECT_LT(shortest, milliseconds(row.held ? 900 : 190));
    }
}

} // namespace
