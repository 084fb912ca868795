// Changes inputs of the request target as what they are: lists of events, of which many are messages, whose
// bodies are JSON. A length field that no longer fits is mended most of the time, because a message that is
// cut otherwise ends at the first test.

#include <algorithm>
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

// The pieces of JSON text that can be exchanged: strings, words and numbers, brackets, commas and colons.
std::vector<std::string_view> Tokens(std::string_view text)
{
    std::vector<std::string_view> tokens;
    while (!text.empty()) {
        size_t end = 1;
        if (text[0] == '"') {
            while (end < text.size() && text[end] != '"')
                end += text[end] == '\\' ? 2 : 1;
            ++end;
        } else if (std::string_view("{}[],:").find(text[0]) == std::string_view::npos) {
            end = text.find_first_of("\"{}[],: \n", 1);
        }
        tokens.push_back(text.substr(0, end));
        text.remove_prefix(tokens.back().size());
    }
    return tokens;
}

std::string Name()
{
    return std::string{'"'} + Pick(kRequestNames) + '"';
}

std::string Value()
{
    switch (Below(8)) {
    case 0:
        return Name();
    case 1:
        return '"' + std::string(size_t{1} << Below(12), 'x') + '"';
    case 2:
        return std::string(Below(1200), OneIn(2) ? '[' : '{');
    default:
        return Pick(kRequestValues);
    }
}

// The form with the token for each T in it, names for N and values for V.
std::string Expand(std::string_view form, std::string_view token)
{
    std::string text;
    for (const char sign : form)
        text += sign == 'T'   ? std::string(token)
                : sign == 'N' ? Name()
                : sign == 'V' ? Value()
                              : std::string(1, sign);
    return text;
}

void ChangeBody(std::string* body)
{
    static constexpr const char* kForms[] = {"", "T,T", "T:V,T", "[T]", "{N:T}", "N", "V", "V", "TN:V,"};
    const std::vector<std::string_view> tokens = Tokens(*body);
    const std::string_view token = tokens.empty() ? *body : Pick(tokens);
    const std::string changed = Expand(Pick(kForms), token);
    body->replace(static_cast<size_t>(token.data() - body->data()), token.size(), changed);
}

uint16_t MessageId()
{
    const auto requests = Requests();
    return requests[Below(requests.size())].usMessageId;
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

// Changes the bytes in any way.
void ChangeBytes(std::string* bytes, size_t most)
{
    const size_t length = bytes->size();
    bytes->resize(most);
    bytes->resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(bytes->data()), length, most));
}

std::string MessageOf(MessageHeader header, const std::string& body)
{
    if (!OneIn(8))
        header.ulBodyLength = static_cast<uint32_t>(body.size());
    uint8_t bytes[kHeaderBytes];
    WriteHeader(bytes, header);
    return std::string(std::begin(bytes), std::end(bytes)) + body;
}

void ChangeMessage(std::string* message)
{
    std::string head = message->substr(0, kHeaderBytes);
    std::string body = message->substr(kHeaderBytes);
    if (OneIn(8))
        ChangeBytes(&head, kHeaderBytes);
    head.resize(kHeaderBytes);
    MessageHeader header = ReadHeader(reinterpret_cast<const uint8_t*>(head.data()), kHeaderBytes);
    if (OneIn(8))
        header.usMessageId = MessageId();
    while (!OneIn(3))
        ChangeBody(&body);
    *message = MessageOf(header, body);
}

OwnEvent NewEvent()
{
    if (OneIn(3)) {
        std::string bytes;
        ChangeBytes(&bytes, 12);
        return {static_cast<EventKind>(Below(kEventKinds)), static_cast<uint8_t>(g_random()), bytes};
    }
    const MessageHeader header{kHeadFlag, kVersion, {}, 0, 0, {}, MessageId(), 0};
    return {OneIn(4) ? kDatagram : kBytes, static_cast<uint8_t>(Below(4)),
            MessageOf(header, Expand(R"({"Name":T,T:V})", Name()))};
}

void ChangeList(Events* events)
{
    const size_t at = Below(events->size());
    const auto here = events->begin() + static_cast<ptrdiff_t>(at);
    const size_t cut = Below(here->bytes.size() + 1);
    switch (Below(5)) {
    case 0:
        events->insert(here, NewEvent());
        break;
    case 1:
        events->erase(here);
        break;
    case 2:
        events->insert(here, OwnEvent(*here));
        break;
    case 3: // what came in one read comes in two
        events->insert(here, {here->kind, here->place, here->bytes.substr(0, cut)});
        (*events)[at + 1].bytes.erase(0, cut);
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
    else if (IsMessage(event) && !OneIn(6))
        ChangeMessage(&event.bytes);
    else
        ChangeBytes(&event.bytes, event.bytes.size() + 64);
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
