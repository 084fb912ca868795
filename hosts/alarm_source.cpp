#include "hosts/alarm_source.h"

#include <cstring>
#include <ctime>

#include "camera/alarm_block.h"

HostSegment MakeAlarmBlock()
{
    HostSegment segment("alarm source", kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode, Contents::kClear);
    AlarmRecord record{};
    for (AlarmEntry& entry : record.source)
        entry.ulTime = static_cast<uint32_t>(time(nullptr));
    memcpy(segment.get(), &record, sizeof record);
    return segment;
}

void PurgeAlarmBlock()
{
    RemoveSegment(kAlarmKey);
}
