// Set-up of the camera test program: its parameter host, an empty /var/cfg and the initialised camera.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "camera/camera_commands.h"
#include "tests/camera/parameter_host.h"

ParameterHost& Host()
{
    static ParameterHost host;
    return host;
}

namespace {

// Outside of a user namespace the mount would hide the machine's own directory.
bool IsIsolated()
{
    std::string first, second, count;
    std::ifstream("/proc/self/uid_map") >> first >> second >> count;
    return count != "4294967295";
}

class CameraSetup : public testing::Environment {
    void SetUp() override
    {
        ASSERT_TRUE(IsIsolated()) << "run through tests/isolated.sh";
        ASSERT_EQ(mount("tmpfs", "/var", "tmpfs", 0, nullptr), 0);
        ASSERT_EQ(mkdir("/var/cfg", 0755), 0);
        Host();
        ASSERT_EQ(CameraInit(1, 5), 0);
    }
};

[[maybe_unused]] const auto* const kSetup = testing::AddGlobalTestEnvironment(new CameraSetup);

} // namespace
