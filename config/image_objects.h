// The picture of the camera's one channel. Only the colour is a setting of the camera.
#pragma once

#include "config/named_answer.h"
#include "config/set_config.h"

ObjectBuilder BuildVideoColor; // "AVEnc.VideoColor.[0]"
ConfigApplier ApplyVideoColor;
extern const char kCameraParam[]; // "Camera.Param.[0]", with the two objects that follow it in the reply
extern const char kGuiSet[];      // "fVideo.GUISet"
extern const char kVideoWidget[]; // "AVEnc.VideoWidget"
