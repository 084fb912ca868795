// What the tests share: a camera with its parameter host and encoder host, and a server on it, whose
// health is checked when the test is over.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/e2e/harness/fake_media_host.h"
#include "tests/e2e/harness/fake_param_host.h"
#include "tests/e2e/harness/patience.h"
#include "tests/e2e/harness/protocol_client.h"
#include "tests/e2e/harness/server_process.h"

// A camera whose server the test starts itself.
class Camera : public testing::Test {
  protected:
    void StartServer(const std::vector<std::string>& arguments = {})
    {
        TearDown(); // of the one before
        server.emplace(arguments);
        server->WaitForLog("ListenSocketThread"); // written when the port is open
    }
    // Publishes frames, which are the next that arrive here.
    void Deliver(MediaReader& reader, const std::vector<Frame>& frames = MakeGop(),
                 uint32_t stream = kMainStream)
    {
        media->Publish(stream, frames);
        ExpectFrames(reader, frames);
    }
    // The reply to a request on this connection; none is empty. The server takes one read for one message, so
    // the request that shows that there was no reply waits until this one was read.
    std::string Exchange(ProtocolClient& client, uint16_t id, const std::string& body, bool isAnswered)
    {
        const std::string wasRead = " cmd = " + std::to_string(id) + " data len = ";
        const int before = isAnswered ? 0 : server->CountLog(wasRead);
        client.Send(id, body);
        if (isAnswered)
            return client.ReceiveReply(static_cast<uint16_t>(id + 1)).body;
        server->WaitForLog(wasRead, before + 1);
        client.Ask(kKeepaliveReq);
        return {};
    }
    void TearDown() override
    {
        if (server)
            server->ExpectHealthy();
    }

    std::optional<FakeParamHost> parameters{std::in_place};
    std::optional<FakeMediaHost> media{std::in_place};
    std::optional<ServerProcess> server; // goes first
};

// One whose server runs.
class RunningCamera : public Camera {
  protected:
    void SetUp() override { StartServer(); }
};
