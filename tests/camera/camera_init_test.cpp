#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "camera/alarm_block.h"
#include "camera/camera_access.h"
#include "camera/camera_commands.h"
#include "camera/common_init.h"
#include "camera/device_commands.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "tests/captured_output.h"

namespace {

constexpr key_t kBlockKey = 12930021;

// Checks the status of the call and returns what it writes to standard error.
template <typename Call> std::string OutputOf(int status, Call call)
{
    return ErrorOutputOf([&] { EXPECT_EQ(call(), status); });
}

// One process, from before its camera is initialised: the order matters, here and below.
TEST(CameraInit, GoesThroughItsStatesOnce)
{
    VideoEncoderConfig encoder;
    const auto getEncoder = [&] { return CameraGetVideoEncoderConfig(&encoder); };
    LogInit("test", 3);
    EXPECT_EQ(OutputOf(-3, getEncoder), "[Warn]: Camera dev is not initialize, initialize first!\n");
    EXPECT_EQ(CameraGetVideoEncoderConfig(nullptr), -1);
    for (const auto& [type, status] : {std::pair(0U, -1), {4U, -1}, {2U, -4}, {3U, -4}})
        EXPECT_EQ(OutputOf(status, [t = type] { return CameraInit(t, 5); }),
                  status == -4 ? "[Warn]: Unknown camera !\n" : "");

    // A block that a stranger made too small keeps the getters from reading, not the camera from starting.
    const int small = shmget(kBlockKey, 0x23FFF, IPC_CREAT | 0660);
    ASSERT_GE(small, 0);
    const std::string failed = OutputOf(-1, [] { return CameraInit(1, 5); });
    for (const char* line :
         {" #####################value 5\n", "SysDrvInit 86 gSysProcId 7\n",
          "shared memory id:", " parameter block of 147455 bytes is too small, refusing it\n"})
        EXPECT_NE(failed.find(line), std::string::npos) << failed;
    EXPECT_EQ(OutputOf(-1, getEncoder), "");
    EXPECT_EQ(CameraInit(1, 5), -2);
    ASSERT_EQ(shmctl(small, IPC_RMID, nullptr), 0);
}

TEST(CommonInit, MapsTheKindOfProcessAndCreatesWhatIsMissing)
{
    const std::tuple<uint32_t, int, const char*> cases[] = {
        {1, 2, "PROCESS_WEBHOST\n"}, {2, 4, "PROCESS_SEEKHOST\n"},
        {3, 3, "value 3\n"},         {4, 6, "PROCESS_OSTRASERVER\n"},
        {6, 5, "PROCESS_RECHOST\n"}, {5, 7, "PROCESS_VELMORA\n"},
        {0, 12, "value 0\n"},        {~0U, 12, "value -1\n"}};
    for (const auto& [kind, processId, text] : cases) {
        const std::string output = OutputOf(0, [&, k = &kind] { return RunCameraCommand(1, k, nullptr); });
        EXPECT_EQ(gSysProcId, processId) << kind;
        EXPECT_NE(output.find(text), std::string::npos) << output;
    }
    for (const key_t key : {kBlockKey, 14073})
        EXPECT_GE(shmget(key, 0x24000, 0), 0);
    EXPECT_GE(semget(12930005, 1, 0), 0);
    VideoEncoderConfig encoder;
    EXPECT_EQ(CameraGetVideoEncoderConfig(&encoder), 0);
    SysConfigExit();
    EXPECT_EQ(CameraGetVideoEncoderConfig(&encoder), -1);
    EXPECT_EQ(CameraSetDateTime({}), -7);
}

TEST(SysDrvInit, DropsAnswersOfAnEarlierLifeButNoMessagesOfOthers)
{
    const int queue = msgget(14073, 0);
    const long stale[] = {1, 7, 12};
    for (const long& type : stale)
        ASSERT_EQ(msgsnd(queue, &type, 0, 0), 0);
    for (const auto& [processId, left] : {std::pair(1, 3U), {7, 2U}}) {
        EXPECT_EQ(SysDrvInit(processId), 0);
        msqid_ds status{};
        ASSERT_EQ(msgctl(queue, IPC_STAT, &status), 0);
        EXPECT_EQ(status.msg_qnum, left) << "type 1 holds requests, not the answers of process 1";
    }
}

TEST(AlarmBlock, IsUnusableWhenItIsTooSmall)
{
    const std::string unusable = ": gShmId -1 has something wrong!\n";
    ASSERT_GE(shmget(0x61788C7C, 79, IPC_CREAT | 0777), 0);
    EXPECT_EQ(libAlarmProcessInit(), -1);
    EXPECT_EQ(libAlarmProcessInit(), 0);
    EXPECT_NE(OutputOf(-1, [] { return AlarmDataWrite(0, 1); }).find(unusable), std::string::npos);
}

} // namespace
