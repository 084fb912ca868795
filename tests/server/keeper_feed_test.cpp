#include "server/keeper_feed.h"

#include <sys/shm.h>

#include <ctime>

#include "common/keeper_block.h"
#include "common/little_endian.h"
#include "common/sysv_ipc.h"
#include "tests/captured_output.h"

namespace {

// One test, because the block is found once per process.
TEST(KeeperFeed, WritesTheTimeOfItsSlotAndNothingElse)
{
    const CapturedOutput log;
    const int tooSmall = shmget(kKeeperKey, 135, IPC_CREAT | 0600);
    EXPECT_EQ(libKeeperInit(), -1);
    EXPECT_EQ(KeeperDataWrite(16), -1);
    shmctl(tooSmall, IPC_RMID, nullptr);

    EXPECT_EQ(libKeeperInit(), 0);
    const int id = shmget(kKeeperKey, 200, 0);
    shmid_ds status{};
    ASSERT_EQ(shmctl(id, IPC_STAT, &status), 0);
    EXPECT_TRUE(status.shm_segsz == 200 && (status.shm_perm.mode & 0777) == 0777 && status.shm_nattch == 0);
    ShmAttachment block(id);
    memset(block.get(), 0xA5, 200);
    const auto before = static_cast<uint32_t>(time(nullptr));
    EXPECT_EQ(KeeperDataWrite(16), 0);
    EXPECT_GE(LoadLe<uint32_t>(block.get() + 128), before);
    EXPECT_LE(LoadLe<uint32_t>(block.get() + 128), time(nullptr));
    for (int i = 0; i < 200; ++i)
        EXPECT_TRUE(block.get()[i] == 0xA5 || (i >= 128 && i < 132)) << i;

    block.reset();
    shmctl(id, IPC_RMID, nullptr); // as a keeper that ends does
    EXPECT_EQ(KeeperDataWrite(16), 0);
    const ShmAttachment held(shmget(kKeeperKey, 200, 0)); // by somebody who does not notice what follows
    EXPECT_GE(LoadLe<uint32_t>(held.get() + 128), before);
    shmctl(shmget(kKeeperKey, 200, 0), IPC_RMID, nullptr);
    const ShmAttachment another(shmget(kKeeperKey, 200, IPC_CREAT | 0777));
    EXPECT_EQ(KeeperDataWrite(16), 0);
    EXPECT_GE(LoadLe<uint32_t>(another.get() + 128), before);

    EXPECT_EQ(KeeperDataWrite(17), -1);
    EXPECT_EQ(libKeeperInit(), 0);
    EXPECT_EQ(log.Lines(), "[Trace]: KeeperDataWrite N: gShmId -1 has something wrong!\n"
                           "[Trace]: KeeperDataWrite N: source  17 is wrong!\n"
                           "[Trace]: libKeeperInit N: libKeeper has already init!\n");
}

} // namespace
