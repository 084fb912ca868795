// PTZ actions of the parameter store: they steer the head; presets and tours are settings.
#include <charconv>

#include "common/clock.h"
#include "common/log.h"
#include "hosts/parameter_store.h"
#include "hosts/tour_entries.h"

namespace {

constexpr uint8_t kTourChannel = 0; // where recorders edit the tours, whatever channel they steer

// PTZ actions with a value; the head knows the others.
enum PtzAction : uint8_t {
    kPresetSet = 16,
    kPresetClear = 17,
    kPresetGoTo = 18,
    kTourStart = 25,
    kTourStop = 26,
};

std::string PresetMember(uint8_t preset)
{
    return std::string(kPresetMembers) + std::to_string(preset);
}

} // namespace

int32_t ParameterStore::ApplyPtz(const FieldPlace& place, std::span<const uint8_t> value)
{
    const uint8_t action = value[1];
    const uint8_t number = value[4];
    const int64_t nowMs = MonotonicMs();
    LogInfo("parameter %u (%s): action %u, value %u, at %s\n", place.ulField, place.name, action, number,
            TextOfPosition(motors_.At(nowMs)).c_str());
    bool done = false;
    switch (action) {
    case kPresetSet:
        done = SetPreset(number, nowMs);
        break;
    case kPresetClear:
        done = ClearPreset(number);
        break;
    case kPresetGoTo:
        done = motors_.GoToPreset(number, nowMs);
        break;
    case kTourStart:
        done = StartTour(number, nowMs);
        break;
    case kTourStop:
        done = motors_.StopTour(number, nowMs);
        break;
    default:
        done = motors_.Act(action, nowMs);
    }
    if (!done) {
        LogWarn("parameter %u (%s): refused, there is no such action, preset or tour\n", place.ulField,
                place.name);
        return -1;
    }
    TellHead();
    return 0;
}

// Kept as it is read back, so that the head finds the same place after a restart.
bool ParameterStore::SetPreset(uint8_t preset, int64_t nowMs)
{
    const std::string text = TextOfPosition(motors_.At(nowMs));
    return LoadPreset(PresetMember(preset), text);
}

bool ParameterStore::ClearPreset(uint8_t preset)
{
    changes_.erase(PresetMember(preset));
    Save();
    return motors_.ClearPreset(preset);
}

bool ParameterStore::StartTour(uint8_t tour, int64_t nowMs)
{
    const TourPlace place{.ucChannel = kTourChannel, .ucTour = tour};
    return TourExists(place) && motors_.StartTour(tour, ReadTour(block_, place), nowMs);
}

// A preset's name is the prefix and its number.
bool ParameterStore::LoadPreset(const std::string& name, const ParameterValue& value)
{
    uint8_t preset = 0;
    const char* const end = name.data() + name.size();
    const auto* const text = std::get_if<std::string>(&value);
    const auto position = text == nullptr ? std::nullopt : PositionOfText(*text);
    const auto [last, error] = std::from_chars(name.data() + kPresetMembers.size(), end, preset);
    if (!position || error != std::errc{} || last != end)
        return false;
    motors_.SetPreset(preset, *position);
    Keep(name, value);
    return true;
}
