// One recorder of the soak: does what the plan says and checks every answer. Used by one thread; its media is
// received on another.
#pragma once

#include <memory>
#include <string>

#include "bench/soak_plan.h"
#include "bench/soak_watch.h"
#include "recorder/session.h"

// What the recorders know of the camera at the moment.
struct SoakScene {
    HostPort camera;
    std::string interface; // that searches go out on
    double slowness = 1;   // of the server; bounds are multiplied by it
    // Holds answers up while it lasts.
    std::atomic<bool> disturbed{false};
    std::atomic<int64_t> disturbedMs{0}; // so far, of all that is over
    // The parameter host is gone and what it shows may be missing for a moment.
    std::atomic<bool> settingsUnsure{false};
};

class SoakRecorder {
  public:
    SoakRecorder(SoakVerdict& verdict, const SoakScene& scene, size_t index);

    // Does the steps in turn, and keeps the session alive between them.
    void Run(const std::vector<Step>& steps);
    // Logs in when it is not. Complains when it cannot.
    void EnsureSession();
    void LogOut();
    // Stays logged in for a while.
    void Stay(milliseconds time);

    SoakWatch& watch() { return watch_; }
    // That the server has of this recorder.
    [[nodiscard]] size_t Connections() const { return (session_ ? 1 : 0) + watch_.Connections(); }

  private:
    friend struct SoakOperations;

    void Do(const Step& step);
    // Sends a request, takes the time of its answer and checks the result.
    Reply Ask(uint16_t id, const std::string& body, int result = 100);
    // Runs what waits for an answer of the camera and takes the time.
    template <typename Action> auto Timed(const char* what, const Action& action);

    SoakVerdict& verdict_;
    const SoakScene& scene_;
    const size_t index_;
    const std::string name_;
    std::unique_ptr<Session> session_;
    SoakWatch watch_;
    bool alarmsOn_ = false;
};
