#include "recorder/write_queue.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <fcntl.h>

#include "recorder/failure.h"
#include "tests/recorder/clip.h"

// A reader that never reads: the queue fills, frames are dropped up to a key frame, and the end comes.
TEST(WriteQueue, GivesUpAPipeThatNobodyReads)
{
    const TemporaryDirectory folder;
    const std::string pipe = folder.File("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const UniqueFd reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK));
    WriteQueue queue(pipe);
    const auto push = [&](FrameKind kind, size_t bytes) {
        queue.Push({kind, KeyFrameHeader{}, std::vector<uint8_t>(bytes, 'x'), Clock::now()});
    };
    constexpr size_t kPiece = kQueueBytes / 4 + 1;
    for (int i = 0; i < 6; i++) // at most one is with the writer, three wait in the queue
        push(kKeyFrame, kPiece);
    EXPECT_GE(queue.dropped(), 2U);
    EXPECT_LE(queue.dropped(), 3U);
    const uint64_t before = queue.dropped();
    push(kOtherFrame, 1); // would fit, but shows nothing without the key frame before it
    EXPECT_EQ(queue.dropped(), before + 1);
    push(kKeyFrame, 1);
    push(kOtherFrame, 1);
    EXPECT_EQ(queue.dropped(), before + 1);
    EXPECT_THROW(queue.Finish(milliseconds(50)), Failure);
}

TEST(WriteQueue, TellsOfAFailureWhileItHappens)
{
    for (const std::string text :
         {"/nowhere/a.h264: No such file or directory", "/dev/full: No space left on device"}) {
        WriteQueue queue(text.substr(0, text.find(':')));
        queue.Push({kKeyFrame, KeyFrameHeader{}, {1}, Clock::now()});
        pollfd entry{queue.failedFd(), POLLIN, 0};
        EXPECT_EQ(poll(&entry, 1, 30'000), 1);
        try {
            queue.Finish(milliseconds(30'000));
            ADD_FAILURE() << text;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kExitLocal);
            EXPECT_EQ(failure.what(), "cannot write " + text);
        }
    }
}
