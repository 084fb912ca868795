// Framing of every protocol message: a fixed 20-byte header, then the body, which is JSON text for
// requests, replies and alarms and frame data for media.
//
// Both ends of the wire include this file. There is no field that a receiver may trust: the server
// takes one read as one message, whatever its length field says (docs/protocol.md, "Framing").
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "common/little_endian.h"

// Header of every protocol message. Little-endian on the wire, no padding.
struct MessageHeader {
    uint8_t ucHeadFlag;     // 0xFF in every message the server builds
    uint8_t ucVersion;      // 1
    uint8_t ucReserved2[2]; // 0 in replies and alarms; media messages set the first to 1
    uint32_t ulSessionId;   // 0 before login and in UDP replies
    uint32_t ulSeqNum;      // a reply copies the request's; else the connection's own counter
    uint8_t ucReserved12[2];
    uint16_t usMessageId;
    uint32_t ulBodyLength; // bytes that follow the header
};
static_assert(std::is_trivially_copyable_v<MessageHeader> && std::is_standard_layout_v<MessageHeader>);
static_assert(offsetof(MessageHeader, ulSessionId) == 4);
static_assert(offsetof(MessageHeader, ulSeqNum) == 8);
static_assert(offsetof(MessageHeader, usMessageId) == 14);
static_assert(offsetof(MessageHeader, ulBodyLength) == 16);
static_assert(sizeof(MessageHeader) == 20);

inline constexpr size_t kHeaderBytes = sizeof(MessageHeader);
inline constexpr uint8_t kHeadFlag = 0xFF;
inline constexpr uint8_t kVersion = 1;

inline constexpr size_t kReadBytes = 10240;  // one TCP read, one message
inline constexpr size_t kReplyBytes = 10240; // header and body of any reply
inline constexpr size_t kMaxBodyBytes = kReadBytes - kHeaderBytes;

inline constexpr uint16_t kSearchPort = 34569; // UDP, at both ends of a device search
inline constexpr size_t kDatagramBytes = 1024; // header and body of any message there

// Every message id of the protocol, requests first. A reply's id is its request's plus one, but for
// the two that the protocol answers under another request's reply id.
enum MessageId : uint16_t {
    kLoginReq = 1000,
    kKeepaliveReq = 1006,
    kSysinfoReq = 1020,
    kSetConfigReq = 1040,
    kGetConfigReq = 1042,
    kGetChanTitleReq = 1048,
    kGetAbilityReq = 1360,
    kPtzControlReq = 1400,
    kMonitorReq = 1410,
    kMonitorClaim = 1413,
    kLogQueryReq = 1442,
    kSysManagerReq = 1450,
    kTimeQueryReq = 1452,
    kUserManageReq = 1470,
    kUserUsersReq = 1472,
    kUserGroupReq = 1474,
    kUserSettingReq = 1482,
    kAlarmSubscribeReq = 1500,
    kAlarmUnsubscribeReq = 1502,
    kDevSearchReq = 1530,
    kDevIpSettingReq = 1532,
    kForceIFrameReq = 1562,
    kTimeSettingReq = 1590,

    kLoginReply = 1001,
    kKeepaliveReply = 1007,
    kSysinfoReply = 1021,
    kSetConfigReply = 1041,
    kGetConfigReply = 1043,
    kGetChanTitleReply = 1049,
    kGetAbilityReply = 1361,
    kPtzControlReply = 1401,
    kMonitorReply = 1411,
    kMonitorClaimReply = 1414,
    kLogQueryReply = 1443,
    kSysManagerReply = 1451,
    kTimeQueryReply = 1453,
    kUserManageReply = 1471,
    kUserUsersReply = 1473,
    kUserGroupReply = 1471, // not 1475
    kUserSettingReply = 1483,
    kAlarmSubscribeReply = 1501,
    kAlarmUnsubscribeReply = 1503,
    kDevSearchReply = 1531,
    kDevIpSettingReply = 1533,
    kForceIFrameReply = 1501, // not 1563
    kTimeSettingReply = 1591,

    kMediaData = 1412, // the server's own messages
    kAlarmInfo = 1504,
};

// Reads the header of a message of `length` bytes; bytes that are missing count as zero.
inline MessageHeader ReadHeader(const uint8_t* message, size_t length)
{
    MessageHeader header{};
    memcpy(&header, message, length < kHeaderBytes ? length : kHeaderBytes);
    return header;
}

// Writes the 20 header bytes.
inline void WriteHeader(uint8_t* message, const MessageHeader& header)
{
    memcpy(message, &header, kHeaderBytes);
}
