// What every request handler shares: its calling convention, its trace lines, and the one way of
// building a reply.
//
// A handler runs on the receive thread (TCP) or on the search thread (UDP) and cannot tell which;
// both give it a reply buffer of kReplyBytes, cleared before the call.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "protocol/json_fields.h"
#include "protocol/json_members.h"
#include "protocol/message.h"

// Answers one request: the socket it came on, its bytes (header first; at least kHeaderBytes of them
// are readable and those beyond requestLen are zero), the reply buffer, and out the number of reply
// bytes to send, 0 for none. Returns 0; nobody looks at it.
using RequestHandler = int(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen);

inline constexpr int kRetSuccess = 100;

// The trace line with which most handlers begin: the handler's name and a line number.
void LogRequest(const char* handler, int line);

// The request's body text: up to its first zero byte or the end of the bytes received. Borrowed.
std::string_view RequestBody(const uint8_t* request, int requestLen);

// The request's body as JSON; null when it is empty or is not JSON. Text after the value is ignored.
JsonPtr ParseBody(const uint8_t* request, int requestLen);

// Fills a reply header for the socket's session, with the request's sequence number.
MessageHeader StartReply(int fd, const uint8_t* request, MessageId replyId);

// Builds the reply: the members in their order, then "Ret" 100 and "SessionID". A reply that does not
// fit the buffer, or that memory did not suffice for, is not sent and says so in the log (*replyLen 0).
// Returns 0.
int WriteReply(int fd, const uint8_t* request, MessageId replyId, std::span<const JsonMember> members,
               uint8_t* reply, int* replyLen);

// The same with a header that the handler has prepared (StartReply), for replies that do not carry
// the session that the connection had when the request came.
int WriteReply(const MessageHeader& header, std::span<const JsonMember> members, uint8_t* reply,
               int* replyLen);
