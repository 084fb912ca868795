#include "server/message_assembly.h"

#include <algorithm>
#include <cstring>

bool IsFirstPart(const uint8_t* bytes, int length)
{
    if (length < static_cast<int>(kHeaderBytes))
        return false;
    const MessageHeader header = ReadHeader(bytes, kHeaderBytes);
    const auto bodyBytes = static_cast<uint32_t>(length) - static_cast<uint32_t>(kHeaderBytes);
    return header.ucHeadFlag == kHeadFlag && header.ucVersion == kVersion &&
           header.ulBodyLength > bodyBytes && header.ulBodyLength <= kMaxBodyBytes;
}

void HoldPart(HeldPart* part, int slot, int fd, const uint8_t* bytes, int length, int64_t nowMs)
{
    if (!part->connection.Take(slot) || part->connection.entry().fd != fd) {
        DropPart(part);
        return;
    }
    part->announced = static_cast<int>(kHeaderBytes + ReadHeader(bytes, kHeaderBytes).ulBodyLength);
    part->dueMs = nowMs + kHoldMs;
    part->length = length;
    memcpy(part->bytes, bytes, static_cast<size_t>(length));
    // Whoever reads the part finds zeros behind it, as behind any other message.
    memset(part->bytes + length, 0, sizeof part->bytes - static_cast<size_t>(length));
}

void AppendToPart(HeldPart* part, const uint8_t* bytes, int length)
{
    const int taken = std::min(length, part->announced - part->length);
    memcpy(part->bytes + part->length, bytes, static_cast<size_t>(taken));
    part->length += taken;
}

void DropPart(HeldPart* part)
{
    part->length = 0;
    part->connection.Release();
}
