// Fuzz target: shared blocks whose owner lies. The input fills the parameter block and the alarm block, texts
// without an end among it, and chooses their sizes; every configuration object is then read through its
// request, and the alarm sources are polled. Each block ends where memory that cannot be read begins. Every
// reply must be whole JSON.
#include <sys/mman.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "camera/alarm_block.h"
#include "camera/alarm_polling.h"
#include "camera/camera_commands.h"
#include "camera/parameter_block.h"
#include "common/keeper_block.h"
#include "config/get_config.h"
#include "fuzz/fuzz_input.h"
#include "server/keeper_feed.h"

#pragma GCC diagnostic ignored "-Wmissing-declarations" // what the linker puts in place of functions
extern "C" FILE* __real_fopen(const char* path, const char* mode);
#define WRAPPED(type, name, ...) extern "C" type __wrap_##name(__VA_ARGS__)

namespace {

constexpr size_t kPage = 4096;
constexpr size_t kRoomBytes = (kSysConfigBytes / kPage + 2) * kPage;
enum Block : int { kParameters, kAlarm, kKeeper, kBlocks }; // places of their ids

uint8_t* g_end[kBlocks];
size_t g_bytes[kBlocks];
bool g_isServing = false;
int g_life = 1; // of the blocks: ids of earlier ones are gone

[[noreturn]] void Die(const char* what)
{
    fputs("VIOLATION: ", stderr);
    fputs(what, stderr);
    abort();
}

void Fill(FuzzInput* input)
{
    static constexpr int kFillings[] = {0, 0xFF, 'A', '"', '\\', 1, 0x80, '%'};
    for (const Block block : {kParameters, kAlarm})
        memset(g_end[block] - g_bytes[block], kFillings[input->Byte() % std::size(kFillings)],
               g_bytes[block]);
    while (!input->IsAtEnd()) {
        const uint32_t head = input->Word(); // 18 bits of place, the block, the number of bytes
        const Block block = (head >> 18 & 7) == 0 ? kAlarm : kParameters;
        const size_t place = (head & 0x3FFFF) % g_bytes[block];
        for (size_t i = 0; i < (head >> 21) % 64 && place + i < g_bytes[block]; i++)
            (g_end[block] - g_bytes[block])[place + i] = input->Byte();
    }
}

// Each object by its request, as a recorder asks for it.
void ReadObjects()
{
    for (const NamedAnswer& answer : GetConfigAnswers()) {
        const std::string body = "{\"Name\":\"" + std::string(answer.name) + "\"}";
        std::string request(kHeaderBytes, '\0');
        request += body;
        const MessageHeader header{.ucHeadFlag = kHeadFlag,
                                   .ucVersion = kVersion,
                                   .ucReserved2 = {},
                                   .ulSessionId = 1,
                                   .ulSeqNum = 2,
                                   .ucReserved12 = {},
                                   .usMessageId = 1042,
                                   .ulBodyLength = static_cast<uint32_t>(body.size())};
        memcpy(request.data(), &header, sizeof header);
        static uint8_t reply[10240];
        int replyLen = 0;
        (void)ProcessGetConfigReq(0, reinterpret_cast<const uint8_t*>(request.data()),
                                  static_cast<int>(request.size()), reply, &replyLen);
        if (replyLen < 0 || static_cast<size_t>(replyLen) > sizeof reply)
            Die("a reply of an impossible length");
        if (replyLen > 0 && !JsonPtr(cJSON_ParseWithLength(reinterpret_cast<char*>(reply) + kHeaderBytes,
                                                           static_cast<size_t>(replyLen) - kHeaderBytes)))
            Die("a reply that is no JSON");
    }
}

void PollAlarms()
{
    AlarmRecord record{};
    AlarmPoll polls[kAlarmSlots] = {};
    for (uint32_t slot = 0; slot < kAlarmSlots; slot++)
        polls[slot].ulSlot = slot;
    for (AlarmPoll& poll : polls)
        if (AlarmDataRead(&record) == 0)
            PollAlarmSlot(record, &poll);
    for (uint32_t source = 0; source < kAlarmSources; source++)
        (void)AlarmDataWrite(source, 1);
    for (uint32_t slot = 0; slot <= kKeeperSlots; slot++)
        (void)KeeperDataWrite(slot);
}

int BlockOfId(int id)
{
    const bool isAlive = id % 4 < kBlocks && (id % 4 == kKeeper || id / 4 == g_life);
    return isAlive ? id % 4 : -1;
}

} // namespace

WRAPPED(int, shmget, key_t key, size_t, int)
{
    const int block = key == kAlarmKey ? kAlarm : key == kKeeperKey ? kKeeper : kParameters;
    return block == kKeeper ? kKeeper : g_life * 4 + block;
}

WRAPPED(int, shmctl, int id, int, shmid_ds* status)
{
    const int block = BlockOfId(id);
    if (block >= 0)
        status->shm_segsz = g_bytes[block];
    return block >= 0 ? 0 : -1;
}

WRAPPED(void*, shmat, int id, const void*, int)
{
    const int block = BlockOfId(id);
    errno = EINVAL;
    return block >= 0 ? g_end[block] - g_bytes[block] : reinterpret_cast<void*>(-1);
}

WRAPPED(int, shmdt, const void*)
{
    return 0;
}

// The machine's own files and network have no part in this.
WRAPPED(int, socket, int, int, int)
{
    errno = EMFILE;
    return -1;
}

WRAPPED(FILE*, fopen, const char* path, const char* mode)
{
    return g_isServing ? nullptr : __real_fopen(path, mode);
}

WRAPPED(FILE*, popen, const char*, const char*)
{
    return nullptr;
}

// What is logged is formatted, and goes nowhere.
WRAPPED(ssize_t, write, int, const void*, size_t bytes)
{
    return static_cast<ssize_t>(bytes);
}

WRAPPED(int, fprintf, FILE*, const char*, ...)
{
    return 0;
}

WRAPPED(void, perror, const char*) {}

WRAPPED(int, msgget, key_t, int)
{
    return 1;
}

WRAPPED(int, semget, key_t, int, int)
{
    return 1;
}

WRAPPED(int, _Z19StartDetachedThreadPKcPFPvS1_ES1_, const char*, void*, void*)
{
    return 0;
}

extern "C" const char* __asan_default_options()
{
    return "quarantine_size_mb=4";
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    if (freopen("/dev/null", "w", stdout) == nullptr) // the bodies of replies
        return 1;
    for (int block = 0; block < kBlocks; block++) {
        auto* const room = static_cast<uint8_t*>(
            mmap(nullptr, kRoomBytes + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(room + kRoomBytes, kPage, PROT_NONE);
        g_end[block] = room + kRoomBytes;
    }
    g_bytes[kParameters] = kSysConfigBytes;
    g_bytes[kAlarm] = sizeof(AlarmRecord);
    g_bytes[kKeeper] = kKeeperSlots * sizeof(KeeperSlot);
    return CameraInit(1, 4) == 0 && libAlarmProcessInit() == 0 && libKeeperInit() == 0 ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t bytes)
{
    FuzzInput input{data, data + bytes};
    g_isServing = true;
    SysConfigExit();
    g_life++;
    g_bytes[kParameters] = kSysConfigBytes + size_t{5} * (input.Byte() % 8) - 5;
    g_bytes[kAlarm] = sizeof(AlarmRecord) + input.Byte() % 66 - 1;
    Fill(&input);
    const bool isAttached = SysConfigInit() == 0;
    if (isAttached != (g_bytes[kParameters] >= kSysConfigBytes))
        Die("a block of the wrong size was taken, or one of the right size refused");
    ReadObjects();
    PollAlarms();
    g_isServing = false;
    return 0;
}
