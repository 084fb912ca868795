// What a recorder asks for by name: configuration objects, abilities, system information. One row for
// each name; the three request handlers differ in their tables and in what they say to an unknown name.
//
// Stateless: any thread. Every value is read from the camera at the time of the request.
#pragma once

#include <cstdint>
#include <span>

#include "protocol/request.h"

// Where the object stands among the members of the reply.
enum class MemberOrder : uint8_t { kObjectFirst, kNameFirst, kObjectLast };
using enum MemberOrder;

// Writes the value of the object: the JSON behind its key.
using ObjectBuilder = void(ReplyText* text);

struct NamedAnswer {
    const char* name;   // as it is asked for
    const char* answer; // the object's key, and the reply's "Name"
    MemberOrder order;
    const char* fixed;    // the object as it travels; null when it is built
    ObjectBuilder* build; // null when it is fixed
};

// The first row whose name is exactly this one, or null; a null name is found nowhere.
const NamedAnswer* FindAnswer(std::span<const NamedAnswer> answers, const char* name);

// Writes the reply's body: the object, "Name", "Ret" 100 and "SessionID" in the row's order.
void WriteNamedAnswer(const NamedAnswer& row, uint32_t sessionId, ReplyText* text);

// Writes the body that says that a name is not served: an empty "Name", the result, "SessionID".
void WriteNamelessAnswer(int result, uint32_t sessionId, ReplyText* text);
