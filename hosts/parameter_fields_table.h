// What the parameter host knows of each parameter field: its name, the width of its value and where the
// value lies in the parameter block.
//
// Fields that have a message code but no row are accepted with any width and kept under their number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

enum class FieldKind : uint8_t {
    kNumber,  // unsigned, usWidth bytes in the message, ucBlockBytes in the block
    kText,    // at most usWidth bytes, with or without a terminating zero
    kBytes,   // usWidth bytes, copied as they are
    kTour,    // cruise line record, spread over the tour's points in the block
    kAccount, // account record, kept in the block's list of users
    kEvent,   // something to do, nothing to keep
};

inline constexpr uint16_t kNoBlockPlace = 0;

struct FieldPlace {
    uint32_t ulField;
    FieldKind kind;
    uint16_t usWidth;     // bytes of the value in a message; the most of them for a text
    uint16_t usBlock;     // offset in the parameter block, or kNoBlockPlace
    uint8_t ucBlockBytes; // bytes there of a number; of a text, the field with its terminating zero
    uint32_t ulMost;      // largest number that is accepted
    const char* name;
};

inline constexpr uint32_t kFieldPtzAction = 4334; // {u8 channel, u8 action, 0, 0, u8 value}
inline constexpr uint32_t kFieldPtzStep = 4339;
inline constexpr uint32_t kFieldFactoryDefault = 4395;
inline constexpr uint32_t kFieldReboot = 4396;
inline constexpr uint32_t kFieldCreateUser = 8195;
inline constexpr uint32_t kFieldDeleteUser = 8196;
inline constexpr uint32_t kFieldChangeUser = 8197;

inline constexpr uint32_t kFieldAddress = 4096; // of eth0, as the next two
inline constexpr uint32_t kFieldNetmask = 4097;
inline constexpr uint32_t kFieldGateway = 4098;

std::span<const FieldPlace> FieldPlaces();
// The row of a field, or null.
const FieldPlace* FindFieldPlace(uint32_t field);
// The stream whose video the field describes (StreamFacts), or nothing.
std::optional<size_t> StreamOfField(uint32_t field);
