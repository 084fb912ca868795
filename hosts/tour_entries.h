// Tours between their three forms: the cruise line record of a message, the entries in the parameter
// block, and the points that the head visits.
#pragma once

#include <cstdint>
#include <vector>

#include "hosts/motors.h"

// Channel and tour of a cruise line record; whether such a tour exists.
struct TourPlace {
    uint8_t ucChannel;
    uint8_t ucTour;
};
TourPlace PlaceOfTour(const uint8_t* record);
bool TourExists(TourPlace place);

// Writes the record's points into the block; the tour exists.
void StoreTour(const uint8_t* record, uint8_t* block);
// The enabled points of a tour that exists.
std::vector<TourPoint> ReadTour(const uint8_t* block, TourPlace place);
