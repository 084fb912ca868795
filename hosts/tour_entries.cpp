#include "hosts/tour_entries.h"

#include <algorithm>
#include <limits>

#include "camera/parameter_block_layout.h"
#include "common/little_endian.h"

namespace {

constexpr uint8_t kChannels = 2;
constexpr uint8_t kStepUnits = 10; // recorders store a point's step ten times as large as the head's

// The cruise line record of a message
constexpr size_t kChannel = 0;
constexpr size_t kIndex = 1;
constexpr size_t kFirstPoint = 68;
constexpr size_t kPointBytes = 28;
constexpr size_t kPointReserved = 2;
constexpr size_t kPointEnable = 4;
constexpr size_t kPointPreset = 5;
constexpr size_t kPointStep = 6;
constexpr size_t kPointDwell = 8; // u32, seconds

// An entry of the block, which begins with the preset as u32
constexpr size_t kEntryDwell = 4;
constexpr size_t kEntryStep = 5;
constexpr size_t kEntryEnable = 6;
constexpr size_t kEntryReserved = 7;

size_t OffsetOf(TourPlace place)
{
    return block::kTours +
           (place.ucChannel * block::kTourCount + place.ucTour) * block::kTourPoints * block::kTourEntryBytes;
}

void StorePoint(const uint8_t* point, uint8_t* entry)
{
    constexpr uint32_t kMostDwell = std::numeric_limits<uint8_t>::max();
    StoreLe(entry, uint32_t{point[kPointPreset]});
    entry[kEntryDwell] = static_cast<uint8_t>(std::min(LoadLe<uint32_t>(point + kPointDwell), kMostDwell));
    entry[kEntryStep] = point[kPointStep];
    entry[kEntryEnable] = point[kPointEnable];
    entry[kEntryReserved] = point[kPointReserved];
}

} // namespace

TourPlace PlaceOfTour(const uint8_t* record)
{
    return {record[kChannel], record[kIndex]};
}

bool TourExists(TourPlace place)
{
    return place.ucChannel < kChannels && place.ucTour < block::kTourCount;
}

void StoreTour(const uint8_t* record, uint8_t* block)
{
    uint8_t* const entries = block + OffsetOf(PlaceOfTour(record));
    for (size_t i = 0; i < block::kTourPoints; ++i)
        StorePoint(record + kFirstPoint + i * kPointBytes, entries + i * block::kTourEntryBytes);
}

std::vector<TourPoint> ReadTour(const uint8_t* block, TourPlace place)
{
    std::vector<TourPoint> points;
    for (size_t i = 0; i < block::kTourPoints; ++i) {
        const uint8_t* const entry = block + OffsetOf(place) + i * block::kTourEntryBytes;
        if (entry[kEntryEnable] == 1)
            points.push_back({.ucPreset = entry[0],
                              .ucStep = static_cast<uint8_t>(entry[kEntryStep] / kStepUnits),
                              .ucDwell = entry[kEntryDwell]});
    }
    return points;
}
