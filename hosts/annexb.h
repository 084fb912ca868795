// Annex B elementary streams (ITU-T H.264 and H.265): splitting an access unit into its NAL units and
// bringing it into the one form that goes into a ring record.
//
// That form: no leading access-unit delimiter or SEI, 4-byte start codes, a key frame begins with its
// parameter sets (SPS in H.264, VPS in H.265), every other frame with a NAL unit of type 1. Receivers
// tell the frames apart by that first unit alone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "media/media_layout.h"

using Bytes = std::vector<uint8_t>;
using NalUnit = std::span<const uint8_t>; // header and payload, without the start code

// NAL units of the bytes, in order. Zero bytes behind a unit belong to the next start code.
std::vector<NalUnit> SplitNalUnits(std::span<const uint8_t> annexB);

uint8_t NalUnitType(MediaCodec codec, NalUnit unit);

// The parameter sets last seen, to be put in front of key frames that come without them: by kind,
// VPS (H.265 only), SPS, PPS; each kind may hold several units.
struct ParameterSets {
    std::array<std::vector<Bytes>, 3> kinds;
};

// Stores what parameter sets the bytes hold (a container's codec header, an access unit).
void CollectParameterSets(MediaCodec codec, std::span<const uint8_t> annexB, ParameterSets* sets);

struct AccessUnit {
    Bytes bytes; // as it goes into the ring; empty when it does not fit the wire
    bool keyFrame = false;
    const char* problem = nullptr; // why it does not fit, as a clause for a log line
};

// Brings one access unit into the form above and refuses it when it cannot be brought there or is
// larger than `limit` bytes.
AccessUnit NormaliseAccessUnit(MediaCodec codec, std::span<const uint8_t> annexB, size_t limit,
                               ParameterSets* sets);
