// From what a user asks for to the request that a camera takes: the objects that are read are not quite
// those that are set.
//
// Everywhere here a list that holds one object is that object. What a request does not carry keeps its
// value in the camera, but for members that the camera takes for zero when they are missing: those are
// filled in from what the camera shows. What cannot be meant throws kExitUsage, before anything is sent.
#pragma once

#include <string>

#include "recorder/config_names.h"
#include "recorder/json.h"

// The object itself, as it is read or as a user writes it.
const cJSON* ConfigElement(const ConfigName& name, const cJSON* tree);
// The object as the camera would show it: dotted addresses as the protocol writes them. Throws when `tree`
// holds no object.
JsonPtr ReadAsked(const ConfigName& name, const cJSON* tree);

// Body of the SetConfig request that gives the camera what is asked for, where `shown` is the object as
// it is now; empty when nothing is left to be sent.
std::string SetRequestBody(const ConfigName& name, const cJSON* asked, const cJSON* shown,
                           const std::string& sessionText);

// The camera compares every codec that is asked for with the main stream's present one, so the second
// stream cannot follow the main stream while that one stays. This is what leads there: the main stream
// takes the other codec first, then both are set. Null when that is not what keeps `asked` from `shown`.
struct CodecDetour {
    JsonPtr away, back; // what to ask for in turn
};
CodecDetour FindCodecDetour(const cJSON* asked, const cJSON* shown);

// Whether a set of this object moves the camera on the network.
bool MovesCamera(const ConfigName& name, const cJSON* asked, const cJSON* shown);
// Whether the HTTP port is one that the camera takes. It leaves a network set without an answer otherwise.
bool IsSettableHttpPort(int port);
