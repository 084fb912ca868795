#include "hosts/annexb.h"

#include <algorithm>

namespace {

enum : uint8_t {
    kH264Slice = 1,
    kH264KeySlice = 5,
    kH264Sei = 6,
    kH264Sps = 7,
    kH264Pps = 8,
    kH264Delimiter = 9,
    kH265Slice = 1, // TRAIL_R
    kH265FirstKeySlice = 16,
    kH265LastKeySlice = 21,
    kH265Vps = 32,
    kH265Sps = 33,
    kH265Pps = 34,
    kH265Delimiter = 35,
    kH265Sei = 39, // prefix SEI
};

constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
constexpr int kNotAParameterSet = -1;

// Index in ParameterSets::kinds.
int ParameterSetKind(MediaCodec codec, uint8_t type)
{
    if (codec == kCodecH264)
        return type == kH264Sps ? 1 : type == kH264Pps ? 2 : kNotAParameterSet;
    return type >= kH265Vps && type <= kH265Pps ? type - kH265Vps : kNotAParameterSet;
}

bool IsKeySlice(MediaCodec codec, uint8_t type)
{
    return codec == kCodecH264 ? type == kH264KeySlice
                               : type >= kH265FirstKeySlice && type <= kH265LastKeySlice;
}

bool IsDelimiterOrSei(MediaCodec codec, uint8_t type)
{
    return codec == kCodecH264 ? type == kH264Sei || type == kH264Delimiter
                               : type == kH265Sei || type == kH265Delimiter;
}

void Append(NalUnit unit, Bytes* to)
{
    to->insert(to->end(), std::begin(kStartCode), std::end(kStartCode));
    to->insert(to->end(), unit.begin(), unit.end());
}

// A kind of which the units hold at least one is replaced; the others keep what was seen before.
void Collect(MediaCodec codec, const std::vector<NalUnit>& units, ParameterSets* sets)
{
    std::array<std::vector<Bytes>, 3> seen;
    for (const NalUnit unit : units)
        if (const int kind = ParameterSetKind(codec, NalUnitType(codec, unit)); kind != kNotAParameterSet)
            seen[static_cast<size_t>(kind)].emplace_back(unit.begin(), unit.end());
    for (size_t kind = 0; kind < seen.size(); ++kind)
        if (!seen[kind].empty())
            sets->kinds[kind] = std::move(seen[kind]);
}

bool IsComplete(MediaCodec codec, const ParameterSets& sets)
{
    const size_t first = codec == kCodecH264 ? 1 : 0; // H.264 knows no VPS
    return std::none_of(sets.kinds.begin() + static_cast<ptrdiff_t>(first), sets.kinds.end(),
                        [](const std::vector<Bytes>& units) { return units.empty(); });
}

AccessUnit Refused(const char* problem)
{
    return {.bytes = {}, .keyFrame = false, .problem = problem};
}

} // namespace

std::vector<NalUnit> SplitNalUnits(std::span<const uint8_t> annexB)
{
    static constexpr uint8_t kShortStartCode[] = {0, 0, 1};
    std::vector<NalUnit> units;
    const auto end = annexB.end();
    auto code = std::search(annexB.begin(), end, std::begin(kShortStartCode), std::end(kShortStartCode));
    while (code != end) {
        const auto first = code + 3;
        code = std::search(first, end, std::begin(kShortStartCode), std::end(kShortStartCode));
        auto last = code;
        while (last != first && *(last - 1) == 0)
            --last;
        if (last != first)
            units.emplace_back(first, last);
    }
    return units;
}

uint8_t NalUnitType(MediaCodec codec, NalUnit unit)
{
    return codec == kCodecH264 ? unit[0] & 0x1F : (unit[0] >> 1) & 0x3F;
}

void CollectParameterSets(MediaCodec codec, std::span<const uint8_t> annexB, ParameterSets* sets)
{
    Collect(codec, SplitNalUnits(annexB), sets);
}

AccessUnit NormaliseAccessUnit(MediaCodec codec, std::span<const uint8_t> annexB, size_t limit,
                               ParameterSets* sets)
{
    std::vector<NalUnit> units = SplitNalUnits(annexB);
    while (!units.empty() && IsDelimiterOrSei(codec, NalUnitType(codec, units.front())))
        units.erase(units.begin());
    if (units.empty())
        return Refused("a frame holds no picture");

    AccessUnit result;
    result.keyFrame = std::any_of(units.begin(), units.end(), [codec](NalUnit unit) {
        return IsKeySlice(codec, NalUnitType(codec, unit));
    });
    if (result.keyFrame) {
        Collect(codec, units, sets);
        if (!IsComplete(codec, *sets))
            return Refused("a key frame comes without parameter sets");
        for (const std::vector<Bytes>& kind : sets->kinds)
            for (const Bytes& unit : kind)
                Append(unit, &result.bytes);
    } else if (NalUnitType(codec, units.front()) != (codec == kCodecH264 ? kH264Slice : kH265Slice)) {
        return Refused("a frame does not begin with a slice of NAL type 1");
    }
    for (const NalUnit unit : units)
        if (!result.keyFrame || ParameterSetKind(codec, NalUnitType(codec, unit)) == kNotAParameterSet)
            Append(unit, &result.bytes);
    if (result.bytes.size() > limit)
        return Refused("a frame is larger than its stream allows");
    return result;
}
