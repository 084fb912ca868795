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
