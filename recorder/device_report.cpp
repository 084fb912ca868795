#include "recorder/device_report.h"

#include <cstdlib>
#include <iterator>

#include "recorder/failure.h"

namespace {

constexpr int kResultUnknownName = 101;

constexpr struct {
    const char* name;
    const char* answer; // member of the reply
} kAbilities[] = {
    {"MultiLanguage", "MultiLanguage"},
    {"BlindCapability", "BlindCapability"},
    {"SupportExtRecord", "SupportExtRecord"},
    {"PTZcontrol", "PTZcontrol"},
    {"SystemFunction", "SystemFunction"},
    {"EncodeCapability", "EncodeCapability"},
    {"AHDEncodeL", "AHDEncodeL"},
    {"AVEnc.EncodeStaticParam", "AVEnc.EncodeStaticParam"},
    {"EncStaticParam", "EncodeStaticParam"},
    {"MotionArea", "MotionArea"},
    {"MotionArea.[0]", "MotionArea.[0]"},
    {"TalkAudioFormat", "TalkAudioFormat"},
    {"MultiVstd", "MultiVstd"},
    {"Camera", "Camera"},
};

// Names of the picture sizes by their bit in a mask.
constexpr const char* kSizes[] = {"D1",  "HD1",    "BCIF", "CIF",  "QCIF", "VGA",   "QVGA",  "SVCD", "QQVGA",
                                  "ND1", "650TVL", "720P", "1_3M", "UXGA", "1080P", "WUXGA", "2_5M", "3M",
                                  "5M",  "1080N",  "4M",   "6M",   "8M",   "12M",   "4K",    "720N", "WSVGA"};

// Names of codecs by their bit.
constexpr struct {
    unsigned bit;
    const char* name;
} kCodecs[] = {{0x80, "H.264"}, {0x100, "H.265"}};

std::string NamedBody(const Session& session, const char* name)
{
    return std::string(R"({"Name":")") + name + R"(","SessionID":")" + session.idText() + R"("})";
}

void AddAbilities(Session& session, cJSON* abilities)
{
    for (const auto& ability : kAbilities) {
        const Reply reply = session.Request(kGetAbilityReq, NamedBody(session, ability.name));
        if (GetJsonNumber(reply.json.get(), "Ret") == kResultUnknownName)
            continue;
        session.CheckResult(reply);
        if (JsonPtr answer{cJSON_DetachItemFromObject(reply.json.get(), ability.answer)})
            SetMember(abilities, ability.name, std::move(answer));
    }
}

const cJSON* Find(const cJSON* tree, std::initializer_list<const char*> path)
{
    for (const char* key : path)
        tree = cJSON_GetObjectItem(tree, key);
    return tree;
}

// A value as a person reads it: texts without their quotes, lists joined.
std::string Value(const cJSON* value)
{
    if (const char* const text = cJSON_GetStringValue(value))
        return Printable(text);
    if (!cJSON_IsArray(value))
        return Printable(PrintJson(value, false));
    std::string text;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, value) text += (text.empty() ? "" : ", ") + Value(item);
    return text;
}

std::string Line(const std::string& label, const std::string& value)
{
    if (value.empty())
        return "";
    return "  " + label + std::string(label.size() < 20 ? 20 - label.size() : 1, ' ') + value + "\n";
}

// Lines of single members: heading, then a label for each path.
std::string SystemText(const cJSON* device)
{
    const cJSON* system = Find(device, {"SystemInfo"});
    const struct {
        const char* label;
        const cJSON* value;
    } kLines[] = {
        {"type", Find(device, {"Login", "DeviceType"})},
        {"serial number", Find(system, {"SerialNo"})},
        {"software", Find(system, {"SoftWareVersion"})},
        {"hardware", Find(system, {"HardWareVersion"})},
        {"built", Find(system, {"BuildTime"})},
        {"video inputs", Find(system, {"VideoInChannel"})},
        {"audio inputs", Find(system, {"AudioInChannel"})},
        {"alarm inputs", Find(system, {"AlarmInChannel"})},
        {"alarm outputs", Find(system, {"AlarmOutChannel"})},
        {"session", Find(device, {"Login", "SessionID"})},
    };
    std::string text = "System\n";
    for (const auto& line : kLines)
        text += Line(line.label, Value(line.value));
    return text;
}

// The partitions, however deep in lists the camera holds them.
std::string PartitionLines(const cJSON* tree, int& number)
{
    if (cJSON_IsObject(tree) && cJSON_GetObjectItem(tree, "TotalSpace") != nullptr) {
        const std::string label = "partition " + std::to_string(number++);
        return Line(label, "total " + Value(Find(tree, {"TotalSpace"})) + ", free " +
                               Value(Find(tree, {"RemainSpace"})) + ", status " +
                               Value(Find(tree, {"Status"})));
    }
    std::string text;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, tree) text += PartitionLines(item, number);
    return text;
}

std::string MaskText(const cJSON* object, const char* key, const auto& nameOfBit)
{
    const char* hex = GetJsonString(object, key);
    const auto mask = static_cast<uint32_t>(hex != nullptr ? strtoul(hex, nullptr, 16) : 0);
    std::string text;
    for (unsigned bit = 0; bit < 32; bit++)
        if ((mask >> bit & 1) != 0)
            text += (text.empty() ? "" : " ") + nameOfBit(bit);
    return text.empty() ? "none" : text;
}

std::string SizeName(unsigned bit)
{
    return bit < std::size(kSizes) ? kSizes[bit] : "bit " + std::to_string(bit);
}

std::string CodecName(unsigned bit)
{
    for (const auto& codec : kCodecs)
        if (codec.bit == 1U << bit)
            return codec.name;
    return "bit " + std::to_string(bit);
}

std::string StreamLines(const cJSON* streams)
{
    std::string text;
    const cJSON* stream = nullptr;
    cJSON_ArrayForEach(stream, streams) if (GetJsonBool(stream, "Enable") == 1) text += Line(
        Value(Find(stream, {"StreamType"})), MaskText(stream, "CompressionMask", CodecName) + "; sizes " +
                                                 MaskText(stream, "ResolutionMask", SizeName) +
                                                 (GetJsonBool(stream, "HaveAudio") == 1 ? "; audio" : ""));
    return text;
}

std::string FunctionLines(const cJSON* groups)
{
    std::string text;
    const cJSON* group = nullptr;
    cJSON_ArrayForEach(group, groups)
    {
        std::string on;
        const cJSON* function = nullptr;
        cJSON_ArrayForEach(function, group) if (cJSON_IsTrue(function) && function->string != nullptr) on +=
            (on.empty() ? "" : " ") + Printable(function->string);
        text += Line(group->string != nullptr ? Printable(group->string) : "", on.empty() ? "none" : on);
    }
    return text;
}

std::string AbilityText(const cJSON* abilities)
{
    std::string text = "Streams\n" + StreamLines(Find(abilities, {"EncodeCapability", "EncodeInfo"}));
    text += "Abilities\n";
    const cJSON* motion = Find(abilities, {"MotionArea"});
    if (motion != nullptr)
        text += Line("motion grid",
                     Value(Find(motion, {"GridColumn"})) + " x " + Value(Find(motion, {"GridRow"})));
    if (const cJSON* talk = cJSON_GetArrayItem(Find(abilities, {"TalkAudioFormat"}), 0))
        text += Line("talk audio",
                     Value(Find(talk, {"EncodeType"})) + ", " + Value(Find(talk, {"SampleRate"})) + " Hz");
    text += Line("privacy covers", Value(Find(abilities, {"BlindCapability", "BlindCoverNum"})));
    text += Line("television norms", Value(Find(abilities, {"MultiVstd"})));
    text += Line("languages", Value(Find(abilities, {"MultiLanguage"})));
    return text + "Functions that are on\n" + FunctionLines(Find(abilities, {"SystemFunction"}));
}

} // namespace

JsonPtr ReadDevice(Session& session)
{
    JsonPtr device(cJSON_CreateObject());
    SetMember(device.get(), "Login", std::move(session.Login().json));
    for (const char* name : {"SystemInfo", "StorageInfo"}) {
        const Reply reply = session.RequestOk(kSysinfoReq, NamedBody(session, name));
        if (JsonPtr answer{cJSON_DetachItemFromObject(reply.json.get(), name)})
            SetMember(device.get(), name, std::move(answer));
    }
    AddAbilities(session, cJSON_AddObjectToObject(device.get(), "Abilities"));
    return device;
}

std::string DeviceText(const cJSON* device)
{
    int partitions = 0;
    const std::string storage = PartitionLines(Find(device, {"StorageInfo"}), partitions);
    return SystemText(device) + "Storage\n" + (storage.empty() ? Line("partitions", "none") : storage) +
           AbilityText(Find(device, {"Abilities"}));
}
