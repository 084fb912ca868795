// Changes inputs of the request target as what they are: lists of events, of which many are messages, whose
// bodies are JSON. A length field that no longer fits is mended most of the time, because a message that is
// cut otherwise ends at the first test.

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/events.h"
#include "fuzz/request_words.h"
#include "protocol/message.h"
#include "server/ProtocolAccess.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* bytes, size_t length, size_t most);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* bytes, size_t length, size_t most, unsigned seed);
extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t* first, size_t firstLength, const uint8_t* second,
                                            size_t secondLength, uint8_t* out, size_t most, unsigned seed);

namespace {

std::minstd_rand g_random;

size_t Below(size_t count)
{
    return count > 0 ? g_random() % count : 0;
}

bool OneIn(size_t count)
{
    return Below(count) == 0;
}

template <typename List> auto& Pick(List& list)
{
    return list[Below(std::size(list))];
}

std::string PickName()
{
    return Pick(kRequestNames);
}

// A piece of JSON text that can be exchanged: a string, a word or number, or a bracket, comma or colon.
struct Token {
    size_t begin;
    size_t end;
};

std::vector<Token> Tokens(std::string_view text)
{
    constexpr std::string_view kPunctuation = "{}[],:";
    std::vector<Token> tokens;
    for (size_t at = 0; at < text.size();) {
        size_t end = at + 1;
        if (text[at] == '"') {
            while (end < text.size() && text[end] != '"')
                end += text[end] == '\\' ? 2 : 1;
            end = std::min(end + 1, text.size());
        } else if (kPunctuation.find(text[at]) == std::string_view::npos) {
            end = std::min(text.find_first_of("\"{}[],: \n", end), text.size());
        }
        tokens.push_back({at, end});
        at = end;
    }
    return tokens;
}

std::string Quoted(const std::string& text)
{
    return '"' + text + '"';
}

std::string RandomValue()
{
    switch (Below(8)) {
    case 0:
        return Quoted(PickName());
    case 1:
        return Quoted(std::string(size_t{1} << Below(12), 'x'));
    case 2:
        return std::to_string(static_cast<int64_t>(g_random()) - (1 << 30));
    case 3:
        return std::string(Below(1200), OneIn(2) ? '[' : '{');
    default:
        return Pick(kRequestValues);
    }
}

// The token's text, changed in one way.
std::string Changed(const std::string& token)
{
    const bool isText = token.front() == '"';
    switch (Below(7)) {
    case 0:
        return "";
    case 1:
        return token + "," + token;
    case 2:
        return isText ? token + ":" + RandomValue() + "," + token : token + token;
    case 3:
        return "[" + token + "]";
    case 4:
        return "{" + Quoted(PickName()) + ":" + token + "}";
    case 5:
        return isText ? Quoted(PickName()) : RandomValue();
    default:
        return token == "{" ? token + Quoted(PickName()) + ":" + RandomValue() + "," : RandomValue();
    }
}

void ChangeBody(std::string* body)
{
    const std::vector<Token> tokens = Tokens(*body);
    if (tokens.empty()) {
        *body = RandomValue();
        return;
    }
    const Token token = Pick(tokens);
    const Token other = Pick(tokens);
    if (OneIn(8) && other.begin > token.end) // a piece twice, or not at all
        body->insert(token.begin, OneIn(2) ? body->substr(token.begin, other.begin - token.begin) : "");
    else
        body->replace(token.begin, token.end - token.begin,
                      Changed(body->substr(token.begin, token.end - token.begin)));
}

struct Message {
    MessageHeader header;
    std::string body;
};

uint16_t PickId()
{
    const auto requests = Requests();
    return OneIn(16) ? static_cast<uint16_t>(g_random()) : requests[Below(requests.size())].usMessageId;
}

void ChangeHeader(MessageHeader* header)
{
    constexpr uint32_t kWords[] = {0,     1,     2,     3,          20,         1004,
                                   10219, 10220, 10221, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    switch (Below(5)) {
    case 0:
        header->ulSessionId = Pick(kWords);
        break;
    case 1:
        header->ulSeqNum = Pick(kWords);
        break;
    case 2:
        header->ulBodyLength = Pick(kWords);
        break;
    case 3:
        header->usMessageId = PickId();
        break;
    default:
        (OneIn(2) ? header->ucHeadFlag : header->ucVersion) = static_cast<uint8_t>(g_random());
    }
}

// An event that can be kept and changed.
struct OwnEvent {
    EventKind kind;
    uint8_t place;
    std::string bytes;
};
using Events = std::vector<OwnEvent>;

Events ReadEvents(const uint8_t* bytes, size_t length)
{
    Events events;
    for (std::span<const uint8_t> input(bytes, length); !input.empty();) {
        const Event event = TakeEvent(&input);
        events.push_back({event.kind, event.place, {event.bytes.begin(), event.bytes.end()}});
    }
    return events;
}

// Those that fit whole.
size_t WriteEvents(const Events& events, uint8_t* out, size_t most)
{
    size_t length = 0;
    for (const auto& [kind, place, bytes] : events) {
        if (bytes.size() > 0xFFFF || length + kEventHeaderBytes + bytes.size() > most)
            break;
        const uint8_t header[] = {kind, place, static_cast<uint8_t>(bytes.size()),
                                  static_cast<uint8_t>(bytes.size() >> 8)};
        std::copy(std::begin(header), std::end(header), out + length);
        std::copy(bytes.begin(), bytes.end(), out + length + sizeof header);
        length += sizeof header + bytes.size();
    }
    return length;
}

bool IsMessage(const OwnEvent& event)
{
    return (event.kind == kBytes || event.kind == kDatagram) && event.bytes.size() >= kHeaderBytes;
}

void ChangeMessage(OwnEvent* event)
{
    MessageHeader header = ReadHeader(reinterpret_cast<const uint8_t*>(event->bytes.data()), kHeaderBytes);
    std::string body = event->bytes.substr(kHeaderBytes);
    if (OneIn(4))
        ChangeHeader(&header);
    else
        do
            ChangeBody(&body);
        while (OneIn(3));
    if (!OneIn(8))
        header.ulBodyLength = static_cast<uint32_t>(body.size());
    uint8_t bytes[kHeaderBytes];
    WriteHeader(bytes, header);
    event->bytes.assign(reinterpret_cast<const char*>(bytes), sizeof bytes);
    event->bytes += body;
}

OwnEvent NewEvent()
{
    if (OneIn(3)) {
        std::string bytes;
        for (size_t left = Below(12); left > 0; --left)
            bytes += static_cast<char>(OneIn(2) ? 0 : g_random());
        return {static_cast<EventKind>(Below(kEventKinds)), static_cast<uint8_t>(g_random()), bytes};
    }
    const std::string name = PickName();
    OwnEvent event{OneIn(4) ? kDatagram : kBytes, static_cast<uint8_t>(Below(4)),
                   std::string(kHeaderBytes, '\0')};
    MessageHeader header{};
    header.ucHeadFlag = kHeadFlag;
    header.ucVersion = kVersion;
    header.usMessageId = PickId();
    const std::string body = R"({"Name":")" + name + R"(",")" + name + R"(":)" + RandomValue() + "}";
    header.ulBodyLength = static_cast<uint32_t>(body.size());
    WriteHeader(reinterpret_cast<uint8_t*>(event.bytes.data()), header);
    event.bytes += body;
    return event;
}

void ChangeBytes(OwnEvent* event)
{
    std::string bytes = event->bytes;
    bytes.resize(bytes.size() + 64);
    bytes.resize(
        LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(bytes.data()), event->bytes.size(), bytes.size()));
    event->bytes = bytes;
}

void ChangeList(Events* events)
{
    const size_t at = Below(events->size());
    const auto here = events->begin() + static_cast<ptrdiff_t>(at);
    switch (Below(6)) {
    case 0:
        events->insert(here, NewEvent());
        break;
    case 1:
        events->erase(here);
        break;
    case 2:
        events->insert(here, OwnEvent(*here));
        break;
    case 3: { // what came in one read comes in two
        OwnEvent rest = *here;
        const size_t cut = Below(here->bytes.size() + 1);
        rest.bytes.erase(0, cut);
        here->bytes.resize(cut);
        events->insert(here + 1, rest);
        break;
    }
    case 4: // and the other way round
        if (at + 1 < events->size()) {
            here->bytes += here[1].bytes;
            events->erase(here + 1);
        }
        break;
    default:
        std::swap(*here, Pick(*events));
    }
}

void ChangeOnce(Events* events)
{
    if (events->empty())
        events->push_back(NewEvent());
    OwnEvent& event = Pick(*events);
    if (OneIn(4))
        ChangeList(events);
    else if (OneIn(12))
        event.place = static_cast<uint8_t>(g_random());
    else if (IsMessage(event) && !OneIn(6))
        ChangeMessage(&event);
    else
        ChangeBytes(&event);
}

} // namespace

size_t LLVMFuzzerCustomMutator(uint8_t* bytes, size_t length, size_t most, unsigned seed)
{
    g_random.seed(seed);
    Events events = ReadEvents(bytes, length);
    do
        ChangeOnce(&events);
    while (OneIn(3));
    return WriteEvents(events, bytes, most);
}

size_t LLVMFuzzerCustomCrossOver(const uint8_t* first, size_t firstLength, const uint8_t* second,
                                 size_t secondLength, uint8_t* out, size_t most, unsigned seed)
{
    g_random.seed(seed);
    Events events = ReadEvents(first, firstLength);
    const Events others = ReadEvents(second, secondLength);
    events.resize(events.empty() ? 0 : 1 + Below(events.size()));
    const size_t from = Below(others.size());
    events.insert(events.end(), others.begin() + static_cast<ptrdiff_t>(from), others.end());
    return WriteEvents(events, out, most);
}
