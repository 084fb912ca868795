#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "camera/alarm_block.h"
#include "camera/camera_access.h"
#include "camera/camera_commands.h"
#include "camera/common_init.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "common/log.h"

namespace {

constexpr key_t kBlockKey = 12930021;

template <typename Call> std::string ErrorOutputOf(Call call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

void ExpectLine(const std::string& output, const std::string& line)
{
    EXPECT_NE(output.find(line + "\n"), std::string::npos) << line << " not in:\n" << output;
}

void ExpectRefused(uint32_t type, int status, const char* output)
{
    EXPECT_EQ(ErrorOutputOf([&] { EXPECT_EQ(CameraInit(type, 5), status); }), output) << type;
}

// One process, from before its camera is initialised: the order matters.
TEST(CameraInit, GoesThroughItsStatesOnce)
{
    VideoEncoderConfig encoder;
    LogInit("test", 3);
    EXPECT_EQ(ErrorOutputOf([&] { EXPECT_EQ(CameraGetVideoEncoderConfig(&encoder), -3); }),
              "[Warn]: Camera dev is not initialize, initialize first!\n");
    ExpectRefused(0, -1, "");
    ExpectRefused(4, -1, "");
    ExpectRefused(2, -4, "[Warn]: Unknown camera !\n");
    ExpectRefused(3, -4, "[Warn]: Unknown camera !\n");
    EXPECT_EQ(CameraCmdCheck(15), -3);

    // A block that a stranger made too small keeps the getters from reading, not the camera from starting.
    const int small = shmget(kBlockKey, 0x23FFF, IPC_CREAT | 0660);
    ASSERT_GE(small, 0);
    const std::string failed = ErrorOutputOf([] { EXPECT_EQ(CameraInit(1, 5), -1); });
    ExpectLine(failed, " #####################value 5");
    ExpectLine(failed, " PROCESS_VELMORA");
    ExpectLine(failed, "SysDrvInit 86 gSysProcId 7");
    ExpectLine(failed, "shared memory id:" + std::to_string(small));
    ExpectLine(failed, " parameter block of 147455 bytes is too small, refusing it");
    EXPECT_EQ(GetSysConfig(), nullptr);
    EXPECT_EQ(CameraCmdCheck(15), 0);
    EXPECT_EQ(CameraGetVideoEncoderConfig(&encoder), -1);
    EXPECT_EQ(CameraInit(1, 5), -2);
    EXPECT_EQ(CameraInit(3, 5), -2);

    ASSERT_EQ(shmctl(small, IPC_RMID, nullptr), 0);
    const uint32_t kind = 5;
    ExpectLine(ErrorOutputOf([&] { EXPECT_EQ(RunCameraCommand(1, &kind, nullptr), 0); }),
               "shared memory size 147456");
    EXPECT_EQ(CameraGetVideoEncoderConfig(&encoder), 0);
    SysConfigExit();
    EXPECT_EQ(CameraGetVideoEncoderConfig(&encoder), -1);
}

TEST(CameraCmdCheck, RefusesWhatTheTableDoesNotServe)
{
    const struct {
        uint32_t command;
        int code;
        const char* output;
    } cases[] = {
        {0, -5, "[Warn]: The Onvif cmd is not support now!\n"},
        {13, -5, "[Warn]: The Onvif cmd is not support now!\n"},
        {1, 0, ""},
        {108, 0, ""},
        {194, -5, "[Warn]: The Onvif cmd is not support now!\n"},
        {195, -7, "[Warn]: Cmd not match!cmd = 195, pCameraAccess[195].Camera_command = 197\n"},
        {100000, -7, "[Warn]: Cmd not match!cmd = 100000, pCameraAccess[100000].Camera_command = 197\n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ErrorOutputOf([&] { EXPECT_EQ(CameraCmdCheck(c.command), c.code); }), c.output)
            << c.command;
}

TEST(CameraAccessTable, NamesItsRows)
{
    const auto table = CameraAccessTable();
    EXPECT_STREQ(table[0].name, "");
    EXPECT_STREQ(table[87].name, "Common_GetUpGradeaveFileName");
    EXPECT_STREQ(table[175].name, "Common_Set_Video_Force_IFrame");
    EXPECT_STREQ(table[194].name, "Common_GetEncodingScopeProperty");
    EXPECT_EQ(table[195].Camera_command, 197U);
    EXPECT_EQ(table[195].operation, nullptr);
}

TEST(CommonInit, MapsTheKindOfProcess)
{
    const struct {
        uint32_t kind;
        int processId;
        const char* name;
    } cases[] = {
        {1, 2, " PROCESS_WEBHOST\n"},
        {2, 4, " PROCESS_SEEKHOST\n"},
        {3, 3, nullptr},
        {4, 6, " PROCESS_OSTRASERVER\n"},
        {5, 7, " PROCESS_VELMORA\n"},
        {6, 5, " PROCESS_RECHOST\n"},
        {0, 12, nullptr},
        {7, 12, nullptr},
        {0xFFFFFFFF, 12, nullptr},
    };
    for (const auto& c : cases) {
        const std::string output = ErrorOutputOf([&] { EXPECT_EQ(Common_Init(&c.kind, nullptr), 0); });
        EXPECT_EQ(gSysProcId, c.processId) << c.kind;
        EXPECT_NE(output.find(c.name != nullptr ? c.name : " #####################value "),
                  std::string::npos);
        EXPECT_EQ(output.find(" PROCESS_") == std::string::npos, c.name == nullptr) << output;
    }
    EXPECT_EQ(Common_Init(nullptr, nullptr), -1);
}

TEST(CommonInit, CreatesWhatIsMissing)
{
    for (const key_t key : {kBlockKey, 14073}) {
        shmid_ds segment{};
        ASSERT_EQ(shmctl(shmget(key, 0x24000, 0), IPC_STAT, &segment), 0);
        EXPECT_EQ(segment.shm_perm.mode & 0777, 0660 & 0777);
    }
    msqid_ds queue{};
    ASSERT_EQ(msgctl(msgget(14073, 0), IPC_STAT, &queue), 0);
    semid_ds semaphore{};
    ASSERT_EQ(semctl(semget(12930005, 1, 0), 0, IPC_STAT, &semaphore), 0);
    EXPECT_EQ(semaphore.sem_perm.mode & 0777, 0666 & 0777);
}

TEST(AlarmBlock, IsUnusableWhenItIsTooSmall)
{
    AlarmRecord record;
    ExpectLine(ErrorOutputOf([&] { EXPECT_EQ(AlarmDataRead(&record), -1); }),
               ": gShmId -1 has something wrong!");
    const int small = shmget(0x61788C7C, 79, IPC_CREAT | 0777);
    ASSERT_GE(small, 0);
    EXPECT_EQ(libAlarmProcessInit(), -1);
    EXPECT_EQ(libAlarmProcessInit(), 0);
    EXPECT_EQ(AlarmDataRead(&record), -1);
    ExpectLine(ErrorOutputOf([] { EXPECT_EQ(AlarmDataWrite(0, 1), -1); }),
               ": gShmId -1 has something wrong!");
}

} // namespace
