// The fuzz input: a list of events, each a kind, a place, a length (16 bits, little-endian) and so many
// bytes. Any input is a list of events: the last one has what is left.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

enum EventKind : uint8_t {
    kBytes,    // arrive in one read on the connection of that place
    kDatagram, // arrives on the search socket
    kConnect,  // a peer connects
    kEnd,      // the connection of that place ends; with an error if there are bytes
    kSettings, // bytes for the parameter block: u16 / 4 is the offset, the rest goes there; place: image
               // fields
    kTime,     // place + 1 seconds pass, and the idle detector looks; with bytes: so many milliseconds
    kWeather,  // u16: the machine's faults from now on
    kAlarm,    // motion begins or ends
    kEventKinds,
};

struct Event {
    EventKind kind;
    uint8_t place;
    std::span<const uint8_t> bytes;
};

inline constexpr size_t kEventHeaderBytes = 4;

// Takes the first event off the input, which is not empty.
inline Event TakeEvent(std::span<const uint8_t>* input)
{
    uint8_t header[kEventHeaderBytes]{};
    std::copy_n(input->begin(), std::min(input->size(), sizeof header), header);
    *input = input->subspan(std::min(input->size(), sizeof header));
    const size_t length = std::min<size_t>(header[2] + header[3] * 256U, input->size());
    const Event event{static_cast<EventKind>(header[0] % kEventKinds), header[1], input->first(length)};
    *input = input->subspan(length);
    return event;
}
