// What every request handler shares: its calling convention, its trace lines, and the one way of
// building a reply.
//
// A handler runs on the receive thread (TCP) or on the search thread (UDP) and cannot tell which;
// both give it a reply buffer of kReplyBytes, cleared before the call.
#pragma once

#include <cstdint>
#include <string_view>

#include "protocol/json_fields.h"
#include "protocol/message.h"
#include "protocol/reply_text.h"

// Answers one request: the socket it came on, its bytes (header first; at least kHeaderBytes of them
// are readable and those beyond requestLen are zero), the reply buffer, and out the number of reply
// bytes to send, 0 for none. Returns 0; nobody looks at it.
using RequestHandler = int(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen);

inline constexpr int kRetSuccess = 100;

// The trace line with which most handlers begin: the handler's name and a line number.
void LogRequest(const char* handler, int line);

// A text of a request as the log shows it: "(null)" when it is missing.
constexpr const char* TextForLog(const char* text)
{
    return text != nullptr ? text : "(null)";
}

// The request's body text: up to its first zero byte or the end of the bytes received. Borrowed.
std::string_view RequestBody(const uint8_t* request, int requestLen);

// The request's body as JSON; null when it is empty or is not JSON. Text after the value is ignored.
JsonPtr ParseBody(const uint8_t* request, int requestLen);

// Fills a reply header for the socket's session, with the request's sequence number.
MessageHeader StartReply(int fd, const uint8_t* request, MessageId replyId);

// The text of a reply's body, to be written behind the header that FinishReply puts into the buffer.
ReplyText StartReplyText(uint8_t* reply);

// Completes the reply around its text, which is the whole body. A body that did not fit is not sent and
// says so in the log (*replyLen 0). Returns 0.
int FinishReply(const MessageHeader& header, const ReplyText& text, uint8_t* reply, int* replyLen);

// The usual reply, with a header that the handler has prepared (StartReply): the members, written like
// reply_text.h says and ending in a comma, then "Ret" 100 and "SessionID". Returns 0.
template <std::same_as<JsonValue>... Values>
int WriteReply(const MessageHeader& header, JsonPattern<sizeof...(Values)> members, uint8_t* reply,
               int* replyLen, Values... values)
{
    ReplyText text = StartReplyText(reply);
    Add(&text, "{");
    Add(&text, members, values...);
    Add(&text, R"("Ret":@,"SessionID":@})", Number(kRetSuccess), Hex(header.ulSessionId));
    return FinishReply(header, text, reply, replyLen);
}
