#include "tests/camera/camera_setup.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "camera/camera_commands.h"

namespace {

class CameraSetup : public testing::Environment {
    void SetUp() override
    {
        if (getenv("SANDBOX") == nullptr) { // which has a /var/cfg of its own
            ASSERT_EQ(getpid(), 1) << "run through tests/isolated.sh, where the mount hides nothing";
            ASSERT_EQ(mount("tmpfs", "/var", "tmpfs", 0, nullptr), 0);
            ASSERT_EQ(mkdir("/var/cfg", 0755), 0);
        }
        Host();
        ASSERT_EQ(CameraInit(1, 5), 0);
    }
};

[[maybe_unused]] const auto* const kSetup = testing::AddGlobalTestEnvironment(new CameraSetup);

} // namespace

AnsweringHost& Host()
{
    static auto* const host = new AnsweringHost;
    return *host;
}
