// Fuzz target: shared blocks whose owner lies. The input fills the parameter block and the alarm block, texts
// without an end among it, and chooses their sizes; every configuration object is then read through its
// request, and the alarm sources are polled. Each block ends where memory that cannot be touched begins.
// Every reply must be a whole message.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "camera/alarm_block.h"
#include "camera/alarm_polling.h"
#include "camera/parameter_block.h"
#include "common/keeper_block.h"
#include "config/get_config.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/machine.h"
#include "fuzz/reply_check.h"
#include "server/keeper_feed.h"

namespace {

// A new segment in place of the old, which is gone with its id.
void Replace(SegmentPlace place, size_t bytes)
{
    g_segments[place].id += kMostSegments;
    g_segments[place].bytes = bytes;
}

void Fill(FuzzInput* input)
{
    static constexpr int kFillings[] = {0, 0xFF, 'A', '"', '\\', 1, 0x80, '%'};
    for (const SegmentPlace block : {kParameterBlock, kAlarmBlock})
        memset(g_segments[block].hostsBase(), kFillings[input->Byte() % std::size(kFillings)],
               g_segments[block].bytes);
    while (!input->IsAtEnd()) {
        const uint32_t head = input->Word(); // 18 bits of place, the block, the number of bytes
        const Segment& block = g_segments[(head >> 18 & 7) == 0 ? kAlarmBlock : kParameterBlock];
        const size_t place = (head & 0x3FFFF) % block.bytes;
        const size_t bytes = std::min<size_t>((head >> 21) % 64, block.bytes - place);
        std::generate_n(block.hostsBase() + place, bytes, [input] { return input->Byte(); });
    }
}

// Each object by its request, as a recorder asks for it.
void ReadObjects()
{
    for (const NamedAnswer& answer : GetConfigAnswers()) {
        const std::string body = "{\"Name\":\"" + std::string(answer.name) + "\"}";
        uint8_t request[256];
        WriteHeader(request,
                    {kHeadFlag, kVersion, {}, 1, 2, {}, kGetConfigReq, static_cast<uint32_t>(body.size())});
        memcpy(request + kHeaderBytes, body.data(), body.size());
        const size_t length = kHeaderBytes + body.size();
        static uint8_t reply[kReplyBytes];
        int replyLen = 0;
        (void)ProcessGetConfigReq(0, request, static_cast<int>(length), reply, &replyLen);
        if (replyLen != 0)
            CheckReply({request, length}, {reply, static_cast<size_t>(replyLen)});
    }
}

void PollAlarms()
{
    AlarmRecord record{};
    for (uint32_t slot = 0; slot < kAlarmSlots; slot++) {
        AlarmPoll poll{};
        poll.ulSlot = slot;
        if (AlarmDataRead(&record) == 0)
            PollAlarmSlot(record, &poll);
    }
    for (uint32_t source = 0; source < kAlarmSources; source++)
        (void)AlarmDataWrite(source, 1);
    for (uint32_t slot = 0; slot <= kKeeperSlots; slot++)
        (void)KeeperDataWrite(slot);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    if (freopen("/dev/null", "w", stdout) == nullptr) // the bodies of replies
        return 1;
    StartMachine();
    return libAlarmProcessInit() == 0 && libKeeperInit() == 0 ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t bytes)
{
    FuzzInput input{data, data + bytes};
    EnterServer(true);
    SysConfigExit();
    const uint8_t first = input.Byte();
    g_machine.faults = first >= 0x80 ? 0 : kNoFiles | kNoInterface;
    Replace(kParameterBlock, kSysConfigBytes + size_t{5} * (first % 8) - 5);
    Replace(kAlarmBlock, sizeof(AlarmRecord) + input.Byte() % 66 - 1);
    Fill(&input);
    const bool isAttached = SysConfigInit() == 0;
    if (isAttached != (g_segments[kParameterBlock].bytes >= kSysConfigBytes))
        Violation("a block of the wrong size was taken, or one of the right size refused");
    ReadObjects();
    PollAlarms();
    EnterServer(false);
    return 0;
}
