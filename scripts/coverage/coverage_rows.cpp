// Prints a row for everything that the server's tables define: its kind, a tab, its name.

#include <cstdio>

#include "camera/camera_access.h"
#include "config/ability_report.h"
#include "config/get_config.h"
#include "config/set_config.h"
#include "config/system_information.h"
#include "media/encoder_commands.h"
#include "server/ProtocolAccess.h"

namespace {

void PrintNames(const char* kind, std::span<const NamedAnswer> answers)
{
    for (const NamedAnswer& answer : answers)
        printf("%s\t%s\n", kind, answer.name);
}

// Those without an operation are all answered alike.
void PrintCameraOperations()
{
    int unsupported = 0;
    for (const CameraRow& row : CameraAccessTable()) {
        if (row.operation != nullptr)
            printf("camera operation\t%s (%u)\n", row.name, row.Camera_command);
        else
            ++unsupported;
    }
    printf("camera operation\tnot supported (%d rows)\n", unsupported);
}

} // namespace

int main()
{
    for (const RequestRow& row : Requests())
        printf("message\t%u\n", row.usMessageId);
    PrintNames("GetConfig", GetConfigAnswers());
    for (const SettableObject& object : SettableObjects())
        printf("SetConfig\t%s\n", object.name);
    PrintNames("ability", Abilities());
    PrintNames("system information", SystemInformationAnswers());
    PrintCameraOperations();
    for (const ControlCommand& command : kControlCommands)
        printf("encoder-host order\t0x%04X\n", command.command);
    return 0;
}
