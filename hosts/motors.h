// The simulated head of the bench camera: pan, tilt and zoom that move at the speed of a step, presets,
// and tours over them.
//
// Nothing runs here. A movement is a start, a target and a speed, so the position at any time is computed
// when somebody asks; the camera's clock comes with each call, in milliseconds on a clock that nobody
// sets. Thread-safe: the parameter queue's thread steers while the players film.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct HeadPosition {
    double pan = 0;  // degrees, -170 left to 170 right
    double tilt = 0; // degrees, -30 down to 90 up
    double zoom = 1; // factor, 1 to 16

    bool operator==(const HeadPosition&) const = default;
};

// A position as people read it in the state file, and back; nothing for other texts. Beyond its limits a
// value is taken to the nearest.
std::string TextOfPosition(const HeadPosition& position);
std::optional<HeadPosition> PositionOfText(const std::string& text);

inline constexpr uint8_t kDefaultStep = 5;

struct TourPoint {
    uint8_t ucPreset;
    uint8_t ucStep;  // speed on the way there
    uint8_t ucDwell; // seconds; at least one is spent
};

class Motors {
  public:
    [[nodiscard]] HeadPosition At(int64_t nowMs);
    // Whether a command has set the head in motion since the start or the last Reset.
    [[nodiscard]] bool HasMoved() const;

    // Speed of the movements that begin from now on: 1 to 8, other values are taken to the nearest.
    void SetStep(uint8_t step);
    // Actions without a value: directions, zoom and their stops; those of the lens do nothing. Returns
    // false for a code that is none of them.
    bool Act(uint8_t action, int64_t nowMs);

    void SetPreset(uint8_t preset, const HeadPosition& position);
    // False when there is no such preset, here and below.
    bool ClearPreset(uint8_t preset);
    bool GoToPreset(uint8_t preset, int64_t nowMs); // as fast as the head can
    // Visits the points endlessly, beginning with the first, until another movement is asked for. Points
    // whose preset does not exist are left out; false when none is left.
    bool StartTour(uint8_t tour, const std::vector<TourPoint>& points, int64_t nowMs);
    // The head stays where it is. False when this tour does not run.
    bool StopTour(uint8_t tour, int64_t nowMs);

    // Home, without presets, at the default step.
    void Reset();

  private:
    static constexpr size_t kPresets = std::numeric_limits<uint8_t>::max() + 1;
    static constexpr size_t kAxes = 3; // pan, tilt, zoom

    struct Axis {
        double from = 0;
        double to = 0;
        double speed = 0; // a second

        [[nodiscard]] double After(double seconds) const;
        [[nodiscard]] double Seconds() const; // until it arrives
    };
    struct Visit {
        HeadPosition position;
        uint8_t ucStep;
        uint8_t ucDwell;
    };

    void Settle(int64_t nowMs);
    void Advance(int64_t nowMs);
    void Begin(int64_t nowMs);
    void Drive(size_t axis, int direction);
    void Aim(const HeadPosition& position, uint8_t step);
    void GoToNextPoint();

    mutable std::mutex mutex_; // guards all below
    std::array<Axis, kAxes> axes_{};
    int64_t startMs_ = 0; // of the movement
    uint8_t ucStep_ = kDefaultStep;
    bool hasMoved_ = false;
    bool isAiming_ = false; // at a preset's position
    std::array<std::optional<HeadPosition>, kPresets> presets_{};
    std::vector<Visit> tour_; // that runs; empty while none does
    uint8_t ucTour_ = 0;
    size_t nextPoint_ = 0;
    int64_t leaveMs_ = 0; // when the head leaves for it
};
