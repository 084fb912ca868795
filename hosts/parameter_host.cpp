#include "hosts/parameter_host.h"

#include <cstring>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "camera/parameter_fields.h"
#include "camera/parameter_message.h"
#include "common/log.h"

namespace {

constexpr char kName[] = "ParamHost";
constexpr int32_t kFirstRequester = 2; // 1 is the type of requests
constexpr int32_t kLastRequester = 15; // 14 and 15 have no slot, but a process may wait under them
constexpr int32_t kCodeAnsweredWithLength = 247;

// Code 221 stands for two fields; both set the time mode.
std::optional<uint32_t> FieldOfCode(int32_t code)
{
    for (const ParameterFieldRange& range : kParameterFields) {
        const int32_t count = static_cast<int32_t>(range.ulLast - range.ulFirst) + 1;
        if (code >= range.iFirstCode && code < range.iFirstCode + count)
            return range.ulFirst + static_cast<uint32_t>(code - range.iFirstCode);
    }
    return std::nullopt;
}

// An empty queue is made before the data segment is cleared: a request that waits has its value there.
Contents DataContents()
{
    AdoptQueue(kName, kParameterKey, kParameterQueueMode, kParameterRequestType);
    return QueuedMessages(kParameterKey) == 0 ? Contents::kClear : Contents::kKeep;
}

} // namespace

ParameterHost::ParameterHost(std::string stateFile, std::function<void()> onReboot,
                             const ParameterChanges& earlier)
    : block_(kName, kSysConfigKey, kSysConfigBytes, kSysConfigMode, Contents::kClear),
      data_(kName, kParameterKey, kParameterDataBytes, kParameterDataMode, DataContents()),
      store_(std::make_unique<ParameterStore>(block_.get(), std::move(stateFile), earlier)),
      onReboot_(std::move(onReboot)),
      queue_(kName, "param", kParameterKey, kParameterQueueMode, kParameterRequestType, kParameterTextBytes,
             [this](QueueText& message) { return Answer(message); })
{
}

std::optional<long> ParameterHost::Answer(QueueText& message)
{
    ParameterMessage request{};
    request.lType = message.type;
    memcpy(&request.iCode, message.word, kParameterTextBytes);
    if (request.iSource < kFirstRequester || request.iSource > kLastRequester) {
        LogWarn("%s: dropped a request of process %d, which does not exist\n", kName, request.iSource);
        return std::nullopt;
    }
    request.iLengthOrResult = Take(request);
    memcpy(message.word, &request.iCode, kParameterTextBytes);
    return request.iSource;
}

int32_t ParameterHost::Take(const ParameterMessage& request)
{
    const int64_t length = request.iLengthOrResult;
    const int64_t offset = request.iDataOffset;
    const std::optional<uint32_t> field = FieldOfCode(request.iCode);
    if (!field) {
        LogWarn("%s: process %d sent the unknown code %d\n", kName, request.iSource, request.iCode);
        return -1;
    }
    if (length < 0 || length > static_cast<int64_t>(kParameterSlotBytes) || offset < 0 ||
        offset + length > static_cast<int64_t>(kParameterDataBytes)) {
        LogWarn("%s: process %d sent a value outside the data segment (field %u, %d bytes at %d)\n", kName,
                request.iSource, *field, request.iLengthOrResult, request.iDataOffset);
        return -1;
    }
    // A copy: the segment may change under a hostile process's hands while the value is checked.
    const uint8_t* const first = data_.get() + offset;
    const std::vector<uint8_t> value(first, first + length);
    const int32_t result = store_->Apply(*field, value);
    if (result == 0 && *field == kFieldReboot)
        onReboot_();
    return result == 0 && request.iCode == kCodeAnsweredWithLength ? request.iLengthOrResult : result;
}

void ParameterHost::Release(bool always)
{
    const bool remove = always || !block_.isAttachedByOthers();
    block_.Release(remove);
    data_.Release(remove);
    if (remove)
        RemoveQueue(kParameterKey);
}

void PurgeParameterObjects()
{
    RemoveSegment(kSysConfigKey);
    RemoveSegment(kParameterKey);
    RemoveQueue(kParameterKey);
}
