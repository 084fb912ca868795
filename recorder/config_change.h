// Changes a camera's configuration objects and reads back what has become of them: the camera answers every
// set with success, whatever it took of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "recorder/config_names.h"
#include "recorder/discovery.h"
#include "recorder/json.h"
#include "recorder/session.h"

struct ConfigChange {
    JsonPtr shown;                    // the object as the camera shows it now
    std::optional<FoundCamera> moved; // where the camera is, when the set moved it; the session is over then
};

// The object as SetRequestBody() wants it.
JsonPtr ReadElement(Session& session, const ConfigName& name);

// Sets what is asked for in an object that the camera shows as `shown`. A set that moves the camera on the
// network ends when a search on `interface` finds it again.
ConfigChange ChangeConfig(Session& session, const ConfigName& name, const cJSON* asked, const cJSON* shown,
                          const std::string& interface);

struct Restoration {
    std::vector<std::string> restored;     // names that were set
    std::vector<std::string> readOnly;     // names that differ and cannot be set
    std::vector<std::string> failed;       // one line for each set that could not be made
    std::vector<JsonDifference> remaining; // what the camera shows differently afterwards
    std::optional<FoundCamera> moved;
};

// Sets everything that differs from `before`, a tree of ReadAllConfig(); the network last.
Restoration RestoreConfig(Session& session, const cJSON* before, const std::string& interface);
