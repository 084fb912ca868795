#include "hosts/motors.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <utility>

namespace {

constexpr size_t kPanAxis = 0;
constexpr size_t kTiltAxis = 1;
constexpr size_t kZoomAxis = 2;

// Limits and speed of an axis; the zoom moves in octaves, so that it looks even.
struct AxisRange {
    double least;
    double most;
    double speedOfStep;
};
constexpr AxisRange kRanges[] = {{-170, 170, 10}, {-30, 90, 5}, {0, 4, 0.1}};

constexpr uint8_t kFirstStep = 1;
constexpr uint8_t kLastStep = 8;
constexpr uint8_t kLeastDwell = 1;
constexpr double kSecondMs = 1e3;

enum class Does : uint8_t { kStop, kTurn, kZoom, kStopZoom, kNothing, kNeedsValue };

struct Action {
    Does does;
    int8_t pan = 0; // directions
    int8_t tilt = 0;
    int8_t zoom = 0;
};

// By action code
constexpr Action kActions[] = {
    {Does::kStop},        {Does::kTurn, -1, 0},   {Does::kTurn, 1, 0},     {Does::kTurn, 0, 1},
    {Does::kTurn, 0, -1}, {Does::kTurn, -1, 1},   {Does::kTurn, -1, -1},   {Does::kTurn, 1, 1},
    {Does::kTurn, 1, -1}, {Does::kZoom, 0, 0, 1}, {Does::kZoom, 0, 0, -1}, {Does::kNothing}, // focus far
    {Does::kNothing},                                                                        // focus near
    {Does::kNothing},                                                                        // focus stop
    {Does::kNothing},                                                                        // iris open
    {Does::kNothing},                                                                        // iris close
    {Does::kNeedsValue},                                                                     // preset set
    {Does::kNeedsValue},                                                                     // preset clear
    {Does::kNeedsValue},                                                                     // preset goto
    {Does::kNothing},                                                                        // home goto
    {Does::kNothing},                                                                        // home set
    {Does::kNothing},                                                                        // one-key focus
    {Does::kNothing},                          // lens initialised
    {Does::kNothing},                          // correction
    {Does::kStopZoom},    {Does::kNeedsValue}, // tour start
    {Does::kNeedsValue},                       // tour stop
};
static_assert(std::size(kActions) == 27);

double Within(const AxisRange& range, double value)
{
    return std::clamp(value, range.least, range.most);
}

std::array<double, 3> ValuesOf(const HeadPosition& position)
{
    return {position.pan, position.tilt, std::log2(position.zoom)};
}

} // namespace

std::string TextOfPosition(const HeadPosition& position)
{
    char text[80];
    snprintf(text, sizeof text, "pan %.2f tilt %.2f zoom %.2f", position.pan, position.tilt, position.zoom);
    return text;
}

std::optional<HeadPosition> PositionOfText(const std::string& text)
{
    HeadPosition position;
    int end = -1;
    (void)sscanf(text.c_str(), "pan %lf tilt %lf zoom %lf%n", &position.pan, &position.tilt, &position.zoom,
                 &end);
    const bool usable = std::isfinite(position.pan) && std::isfinite(position.tilt) && position.zoom > 0;
    if (end < 0 || static_cast<size_t>(end) != text.size() || !usable)
        return std::nullopt;
    return HeadPosition{Within(kRanges[kPanAxis], position.pan), Within(kRanges[kTiltAxis], position.tilt),
                        std::exp2(Within(kRanges[kZoomAxis], std::log2(position.zoom)))};
}

double Motors::Axis::After(double seconds) const
{
    const double way = speed * std::max(0.0, seconds); // whoever asks may have looked at the clock earlier
    return from < to ? std::min(from + way, to) : std::max(from - way, to);
}

double Motors::Axis::Seconds() const
{
    return from == to ? 0 : std::abs(to - from) / speed;
}

HeadPosition Motors::At(int64_t nowMs)
{
    const std::lock_guard lock(mutex_);
    Advance(nowMs);
    const double seconds = static_cast<double>(nowMs - startMs_) / kSecondMs;
    return {axes_[kPanAxis].After(seconds), axes_[kTiltAxis].After(seconds),
            std::exp2(axes_[kZoomAxis].After(seconds))};
}

bool Motors::HasMoved() const
{
    const std::lock_guard lock(mutex_);
    return hasMoved_;
}

void Motors::SetStep(uint8_t step)
{
    const std::lock_guard lock(mutex_);
    ucStep_ = std::clamp(step, kFirstStep, kLastStep);
}

bool Motors::Act(uint8_t action, int64_t nowMs)
{
    if (action >= std::size(kActions) || kActions[action].does == Does::kNeedsValue)
        return false;
    const Action& row = kActions[action];
    if (row.does == Does::kNothing)
        return true;
    const std::lock_guard lock(mutex_);
    Settle(nowMs);
    if (row.does == Does::kStop || row.does == Does::kTurn) {
        Drive(kPanAxis, row.pan);
        Drive(kTiltAxis, row.tilt);
    }
    if (row.does != Does::kTurn)
        Drive(kZoomAxis, row.zoom);
    return true;
}

void Motors::SetPreset(uint8_t preset, const HeadPosition& position)
{
    const std::lock_guard lock(mutex_);
    presets_[preset] = position;
}

bool Motors::ClearPreset(uint8_t preset)
{
    const std::lock_guard lock(mutex_);
    const bool existed = presets_[preset].has_value();
    presets_[preset].reset();
    return existed;
}

bool Motors::GoToPreset(uint8_t preset, int64_t nowMs)
{
    const std::lock_guard lock(mutex_);
    if (!presets_[preset])
        return false;
    Settle(nowMs);
    Aim(*presets_[preset], kLastStep);
    return true;
}

bool Motors::StartTour(uint8_t tour, const std::vector<TourPoint>& points, int64_t nowMs)
{
    const std::lock_guard lock(mutex_);
    std::vector<Visit> visits;
    for (const TourPoint& point : points)
        if (const auto& position = presets_[point.ucPreset])
            visits.push_back({*position, std::clamp(point.ucStep, kFirstStep, kLastStep), point.ucDwell});
    if (visits.empty())
        return false;
    Settle(nowMs);
    tour_ = std::move(visits);
    ucTour_ = tour;
    nextPoint_ = 0;
    GoToNextPoint();
    return true;
}

bool Motors::StopTour(uint8_t tour, int64_t nowMs)
{
    const std::lock_guard lock(mutex_);
    if (tour_.empty() || ucTour_ != tour)
        return false;
    Settle(nowMs);
    return true;
}

void Motors::Reset()
{
    const std::lock_guard lock(mutex_);
    axes_ = {};
    ucStep_ = kDefaultStep;
    hasMoved_ = false;
    isAiming_ = false;
    presets_ = {};
    tour_.clear();
}

// What the head does next begins here and now. On its way to a preset, or on a tour, the head stops first; a
// direction and the zoom go together.
void Motors::Settle(int64_t nowMs)
{
    Advance(nowMs);
    Begin(nowMs);
    tour_.clear();
    if (!std::exchange(isAiming_, false))
        return;
    for (Axis& axis : axes_)
        axis.to = axis.from;
}

// The movement that is on goes on from where it is now.
void Motors::Begin(int64_t nowMs)
{
    const double seconds = static_cast<double>(nowMs - startMs_) / kSecondMs;
    for (Axis& axis : axes_)
        axis.from = axis.After(seconds);
    startMs_ = nowMs;
}

// Brings the tour to the leg that is on now.
void Motors::Advance(int64_t nowMs)
{
    while (!tour_.empty() && nowMs >= leaveMs_) {
        Begin(leaveMs_);
        GoToNextPoint();
    }
}

// To the limit in that direction; 0 stops.
void Motors::Drive(size_t axis, int direction)
{
    Axis& driven = axes_[axis];
    driven.speed = ucStep_ * kRanges[axis].speedOfStep;
    driven.to = direction < 0 ? kRanges[axis].least : direction > 0 ? kRanges[axis].most : driven.from;
    hasMoved_ = hasMoved_ || driven.to != driven.from;
}

void Motors::Aim(const HeadPosition& position, uint8_t step)
{
    const std::array<double, kAxes> values = ValuesOf(position);
    isAiming_ = true;
    for (size_t axis = 0; axis < kAxes; ++axis) {
        axes_[axis].to = values[axis];
        axes_[axis].speed = step * kRanges[axis].speedOfStep;
        hasMoved_ = hasMoved_ || axes_[axis].to != axes_[axis].from;
    }
}

void Motors::GoToNextPoint()
{
    const Visit& visit = tour_[nextPoint_];
    nextPoint_ = (nextPoint_ + 1) % tour_.size();
    Aim(visit.position, visit.ucStep);
    double seconds = 0;
    for (const Axis& axis : axes_)
        seconds = std::max(seconds, axis.Seconds());
    leaveMs_ = startMs_ + std::llround((seconds + std::max(visit.ucDwell, kLeastDwell)) * kSecondMs);
}
