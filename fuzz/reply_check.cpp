#include "fuzz/reply_check.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "fuzz/machine.h"
#include "protocol/message.h"

namespace {

// Reads one value off the text; false when it does not begin with one.
class JsonReader {
  public:
    explicit JsonReader(std::string_view text) : rest_(text) {}

    bool TakeValue()
    {
        SkipBlanks();
        bool isValue = false;
        if (Take('{'))
            isValue = TakeList('}', true);
        else if (Take('['))
            isValue = TakeList(']', false);
        else if (rest_.starts_with('"'))
            isValue = TakeString();
        else
            isValue = TakeWord("true") || TakeWord("false") || TakeWord("null") || TakeNumber();
        SkipBlanks();
        return isValue;
    }
    bool isAtEnd() const { return rest_.empty(); }

  private:
    bool Take(char c)
    {
        const bool isNext = rest_.starts_with(c);
        rest_.remove_prefix(isNext ? 1 : 0);
        return isNext;
    }
    bool TakeWord(std::string_view word)
    {
        const bool isNext = rest_.starts_with(word);
        rest_.remove_prefix(isNext ? word.size() : 0);
        return isNext;
    }
    void SkipBlanks() { TakeAll(" \t\n\r"); }
    bool TakeAll(std::string_view characters)
    {
        const size_t count = std::min(rest_.find_first_not_of(characters), rest_.size());
        rest_.remove_prefix(count);
        return count > 0;
    }
    bool TakeDigits() { return TakeAll("0123456789"); }
    bool TakeNumber()
    {
        (void)Take('-');
        if (!Take('0') && !TakeDigits())
            return false;
        if (Take('.') && !TakeDigits())
            return false;
        if (!Take('e') && !Take('E'))
            return true;
        (void)(Take('+') || Take('-'));
        return TakeDigits();
    }
    bool TakeEscape()
    {
        if (!Take('u')) {
            const bool isKnown = std::string_view("\"\\/bfnrt").find(rest_.front()) != std::string_view::npos;
            rest_.remove_prefix(1);
            return isKnown;
        }
        const bool isHex = rest_.find_first_not_of("0123456789abcdefABCDEF") >= 4 && rest_.size() > 4;
        rest_.remove_prefix(isHex ? 4 : 0);
        return isHex;
    }
    bool TakeString()
    {
        if (!Take('"'))
            return false;
        while (!rest_.empty()) {
            if (Take('"'))
                return true;
            const auto c = static_cast<uint8_t>(rest_.front());
            rest_.remove_prefix(1);
            if (c < ' ' || (c == '\\' && (rest_.empty() || !TakeEscape())))
                return false;
        }
        return false;
    }
    bool TakeList(char end, bool hasKeys)
    {
        SkipBlanks();
        if (Take(end))
            return true;
        do {
            SkipBlanks();
            if (hasKeys && !TakeString())
                return false;
            SkipBlanks();
            if ((hasKeys && !Take(':')) || !TakeValue())
                return false;
        } while (Take(','));
        return Take(end);
    }

    std::string_view rest_;
};

uint16_t ReplyIdOf(uint16_t requestId)
{
    switch (requestId) {
    case kUserGroupReq:
        return kUserGroupReply;
    case kForceIFrameReq:
        return kForceIFrameReply;
    default:
        return static_cast<uint16_t>(requestId + 1);
    }
}

} // namespace

bool IsStrictJson(std::string_view text)
{
    JsonReader reader(text);
    return reader.TakeValue() && reader.isAtEnd();
}

void CheckMessage(std::span<const uint8_t> message)
{
    if (message.size() < kHeaderBytes || message.size() > kReplyBytes)
        Violation("a message of an impossible length");
    const MessageHeader header = ReadHeader(message.data(), message.size());
    if (header.ulBodyLength != message.size() - kHeaderBytes)
        Violation("a message's length field is wrong");
    if (header.ucHeadFlag != kHeadFlag || header.ucVersion != kVersion || header.ucReserved2[0] != 0 ||
        header.ucReserved2[1] != 0 || header.ucReserved12[0] != 0 || header.ucReserved12[1] != 0)
        Violation("a message's fixed header fields are wrong");
    const std::string_view body(reinterpret_cast<const char*>(message.data()) + kHeaderBytes,
                                message.size() - kHeaderBytes);
    static std::string checked; // a reply is seen twice, when it is made and when it is sent
    if (body != checked && !IsStrictJson(body))
        Violation("a body that is not JSON");
    checked = body;
    const bool isForEverybody = header.usMessageId == kDevSearchReply || header.usMessageId == kAlarmInfo;
    char session[32];
    snprintf(session, sizeof session, R"("SessionID":"0x%08x")", isForEverybody ? 0 : header.ulSessionId);
    if (body.find(session) == std::string_view::npos)
        Violation("a body without its session");
}

void CheckReply(std::span<const uint8_t> request, std::span<const uint8_t> reply)
{
    CheckMessage(reply);
    const MessageHeader asked = ReadHeader(request.data(), request.size());
    const MessageHeader answered = ReadHeader(reply.data(), reply.size());
    if (answered.ulSeqNum != asked.ulSeqNum)
        Violation("a reply with another sequence number than its request");
    if (answered.usMessageId != ReplyIdOf(asked.usMessageId))
        Violation("a reply with a wrong message id");
}
