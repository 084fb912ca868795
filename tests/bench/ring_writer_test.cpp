#include <gtest/gtest.h>
#include <sys/shm.h>

#include <cstring>

#include "bench/bench_hosts.h"
#include "media/ring_layout.h"

namespace {

// A writer on a private segment that ends exactly where the ring ends.
class RingWriterTest : public testing::TestWithParam<NextRecord> {
  protected:
    void SetUp() override
    {
        const int id = shmget(IPC_PRIVATE, kRings[kSecondStream].ulRingBytes, 0600);
        writer.ring = ShmAttachment(id);
        shmctl(id, IPC_RMID, nullptr); // once detached
        writer.ringBytes = kRings[kSecondStream].ulRingBytes;
    }
    DataInfo Record(uint32_t position) const
    {
        EXPECT_LE(position + kRecordBytes, writer.ringBytes);
        DataInfo record;
        memcpy(&record, writer.ring.get() + position, sizeof record);
        return record;
    }
    RingWriter writer{.pattern = {.bitsPerSecond = 4000000}, .nextRecord = GetParam()};
};

} // namespace

TEST_P(RingWriterTest, AReaderFindsEveryFrameOfSeveralLaps)
{
    uint32_t position = 0, laps = 0;
    for (uint64_t number = 0; number < 250; ++number) {
        PublishFrame(writer);
        if (Record(position).EndFlag == kFlagWrap) {
            EXPECT_EQ(Record(position).AVDataCheck, kRecordMagic);
            position = 0;
            ++laps;
        }
        const DataInfo record = Record(position);
        ASSERT_EQ(record.AVDataCheck, kRecordMagic) << number;
        ASSERT_EQ(record.EndFlag, kFlagFrame) << number;
        EXPECT_EQ(record.SerialNumber, number + 1);
        const auto length = static_cast<uint32_t>(record.AVDataLen);
        ASSERT_EQ(length, FrameBytes(writer.pattern, number));
        const uint8_t* const payload = writer.ring.get() + position + kRecordBytes;
        FramePrefix prefix;
        memcpy(&prefix, payload, sizeof prefix);
        EXPECT_EQ(prefix.ullNumber, number);
        EXPECT_EQ(memcmp(payload + sizeof prefix, FrameTail(number, sizeof prefix), length - sizeof prefix),
                  0);
        if (IsKeyFrame(writer.pattern, number)) {
            EXPECT_EQ(writer.keyPosition, position);
        }
        position += kRecordBytes + length;

        const DataInfo next = Record(writer.position); // where a reader would start now
        EXPECT_EQ(next.AVDataCheck, GetParam() == NextRecord::Announced ? kRecordMagic : 0);
        EXPECT_EQ(next.EndFlag, 0U);
    }
    EXPECT_GE(laps, 3U);
}

INSTANTIATE_TEST_SUITE_P(Both, RingWriterTest, testing::Values(NextRecord::Blank, NextRecord::Announced));
