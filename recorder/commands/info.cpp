#include <cstdio>

#include "recorder/commands/commands.h"
#include "recorder/device_report.h"

CommandRun AddInfo(CLI::App&, const CommonOptions& common)
{
    return [&common] {
        Session session(common.address(), common.timeout());
        const JsonPtr device = ReadDevice(session);
        if (common.json)
            puts(PrintJson(device.get(), false).c_str());
        else
            fputs(DeviceText(device.get()).c_str(), stdout);
        return 0;
    };
}
