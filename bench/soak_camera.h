// The camera of the soak: the server and its siblings as processes, and what befalls them. Used by one
// thread.
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "bench/soak_child.h"
#include "bench/soak_health.h"
#include "bench/soak_log.h"

class SoakCamera {
  public:
    // Starts the siblings, then the server, in the namespaces of the caller. `program` is the soak itself.
    SoakCamera(std::string program, const std::string& server, SoakLog& log);
    ~SoakCamera();
    SoakCamera(const SoakCamera&) = delete;
    SoakCamera& operator=(const SoakCamera&) = delete;

    [[nodiscard]] pid_t server() const { return server_.pid(); }
    [[nodiscard]] bool ServerHasEnded() const { return server_.HasEnded(); }

    void EndParameterHost() { parameters_.End(); }
    void StartParameterHost() { parameters_ = Sibling("parameters"); }
    void StopMediaHost() const;
    void ContinueMediaHost() const;
    void KillMediaHost() { media_.Kill(); }
    void StartMediaHost() { media_ = Sibling("media"); }
    void KillAlarmSource() { alarms_.Kill(); }
    void StartAlarmSource() { alarms_ = Sibling("alarms"); }

  private:
    SoakChild Sibling(const char* name) const;
    void ReadLog();

    const std::string program_;
    const std::string stateFile_;
    SoakLog& log_;
    SoakChild parameters_, media_, alarms_, server_;
    std::thread logReader_;
};
