#include "recorder/settings.h"

#include <cstring>

#include "recorder/address_text.h"
#include "recorder/failure.h"

namespace {

constexpr int kMostGop = 5; // seconds; the camera takes more for 5, and shows 10 for smart encoding

using Translate = JsonPtr(const cJSON* asked, const cJSON* shown);

const char* TextOf(const cJSON* object, const char* key)
{
    const char* text = GetJsonString(object, key);
    return text != nullptr ? text : "";
}

JsonPtr ListOf(JsonPtr object)
{
    JsonPtr list(cJSON_CreateArray());
    cJSON_AddItemToArray(list.get(), object.release());
    return list;
}

// A new distance of key frames in frames must follow a new frame rate, or the one in seconds would change.
void KeepGop(cJSON* video, const cJSON* shownVideo)
{
    const cJSON* gop = cJSON_GetObjectItem(shownVideo, "GOP");
    if (cJSON_GetObjectItem(video, "FPS") != nullptr && cJSON_IsNumber(gop) && gop->valueint <= kMostGop)
        AddMissing(video, "GOP", gop);
}

// Sound is one switch for both streams. The camera reads it from the main stream, and only beside "Audio".
void CompleteAudio(cJSON* formats, const cJSON* shown)
{
    cJSON* main = cJSON_GetObjectItem(formats, "MainFormat");
    const cJSON* wanted = cJSON_GetObjectItem(main, "AudioEnable");
    if (wanted == nullptr)
        wanted = cJSON_GetObjectItem(cJSON_GetObjectItem(formats, "ExtraFormat"), "AudioEnable");
    if (wanted == nullptr && cJSON_GetObjectItem(main, "Audio") == nullptr)
        return;
    if (main == nullptr) {
        main = cJSON_CreateObject();
        cJSON_AddItemToObject(formats, "MainFormat", main);
    }
    const cJSON* shownMain = cJSON_GetObjectItem(shown, "MainFormat");
    AddMissing(main, "AudioEnable", wanted);
    AddMissing(main, "AudioEnable", cJSON_GetObjectItem(shownMain, "AudioEnable"));
    AddMissing(main, "Audio", cJSON_GetObjectItem(shownMain, "Audio"));
}

// Only what changes: some of what is read cannot be set as it is, such as the GOP of smart encoding.
JsonPtr ToEncode(const cJSON* asked, const cJSON* shown)
{
    JsonPtr formats = ChangedMembers(asked, shown);
    if (formats == nullptr)
        return nullptr;
    for (const char* format : {"ExtraFormat", "MainFormat"})
        KeepGop(cJSON_GetObjectItem(cJSON_GetObjectItem(formats.get(), format), "Video"),
                cJSON_GetObjectItem(cJSON_GetObjectItem(shown, format), "Video"));
    CompleteAudio(formats.get(), shown);
    return formats;
}

// A missing "Enable" would switch off. Level 3 may stand for the camera's level 0, which keeps detection
// off, so switching on sends the level too.
JsonPtr ToMotion(const cJSON* asked, const cJSON* shown)
{
    JsonPtr object = CopyJson(asked);
    AddMissing(object.get(), "Enable", cJSON_GetObjectItem(shown, "Enable"));
    if (GetJsonBool(object.get(), "Enable") == 1 && GetJsonBool(shown, "Enable") == 0)
        AddMissing(object.get(), "Level", cJSON_GetObjectItem(shown, "Level"));
    return object;
}

JsonPtr ToColor(const cJSON* asked, const cJSON*)
{
    return ListOf(CopyJson(asked));
}

// The camera takes any other number for -480.
JsonPtr ToTimeZone(const cJSON* asked, const cJSON* shown)
{
    JsonPtr object = CopyJson(asked);
    AddMissing(object.get(), "timeMin", cJSON_GetObjectItem(shown, "timeMin"));
    const cJSON* minutes = cJSON_GetObjectItem(object.get(), "timeMin");
    if (!cJSON_IsNumber(minutes) || minutes->valueint != minutes->valuedouble ||
        minutes->valueint % 30 != 0 || minutes->valueint < -720 || minutes->valueint > 720)
        throw Failure(kExitUsage, "timeMin is a multiple of 30 from -720 to 720");
    return object;
}

// The camera shows no state of DHCP to fill in, and answers for its active interface only.
JsonPtr ToDhcp(const cJSON* asked, const cJSON* shown)
{
    const char* active = TextOf(shown, "Interface");
    JsonPtr object = CopyJson(asked);
    AddMissing(object.get(), "Interface", cJSON_GetObjectItem(shown, "Interface"));
    if (strcmp(TextOf(object.get(), "Interface"), active) != 0)
        throw Failure(kExitUsage, "the camera's interface is '" + Printable(active) + "'");
    if (!cJSON_IsBool(cJSON_GetObjectItem(object.get(), "Enable")))
        throw Failure(kExitUsage, "NetWork.NetDHCP needs \"Enable\", true or false");
    return ListOf(std::move(object));
}

// A missing port would be taken for -1: the camera would not answer, or write 65535.
JsonPtr ToNetCommon(const cJSON* asked, const cJSON* shown)
{
    JsonPtr object = CopyJson(asked);
    for (const char* port : {"HttpPort", "TCPPort"})
        AddMissing(object.get(), port, cJSON_GetObjectItem(shown, port));
    const int httpPort = GetJsonNumber(object.get(), "HttpPort");
    if (!IsSettableHttpPort(httpPort))
        throw Failure(kExitUsage, "the camera takes HttpPort 80 or 1025 to 65534, not " +
                                      std::to_string(httpPort) +
                                      "; name another one, or use velmora set-address");
    const int tcpPort = GetJsonNumber(object.get(), "TCPPort");
    if (tcpPort < 1 || tcpPort > 65535)
        throw Failure(kExitUsage, "TCPPort is 1 to 65535, not " + std::to_string(tcpPort));
    return object;
}

constexpr struct {
    const char* name;
    Translate* translate;
} kTranslations[] = {
    {"Simplify.Encode", ToEncode},     {"Detect.MotionDetect.[0]", ToMotion},
    {"AVEnc.VideoColor.[0]", ToColor}, {"System.TimeZone", ToTimeZone},
    {"NetWork.NetDHCP", ToDhcp},       {"NetWork.NetCommon", ToNetCommon},
};

constexpr const char* kAddressKeys[] = {"GateWay", "HostIP", "Submask"};

void ReadAddresses(cJSON* object)
{
    for (const char* key : kAddressKeys) {
        const cJSON* member = cJSON_GetObjectItem(object, key);
        if (member == nullptr)
            continue;
        const std::string text = TextOf(object, key);
        const auto hex = DottedToHex(text);
        if (!hex && !HexToDotted(text.c_str()))
            throw Failure(kExitUsage, std::string(key) + " is no address");
        if (hex)
            SetMember(object, key, JsonPtr(cJSON_CreateString(hex->c_str())));
    }
}

bool IsNetCommon(const ConfigName& name)
{
    return strcmp(name.name, "NetWork.NetCommon") == 0;
}

const char* Compression(const cJSON* formats, const char* format)
{
    return TextOf(cJSON_GetObjectItem(cJSON_GetObjectItem(formats, format), "Video"), "Compression");
}

JsonPtr FormatsWith(std::initializer_list<const char*> formats, const char* compression)
{
    JsonPtr object(cJSON_CreateObject());
    for (const char* format : formats) {
        cJSON* video = cJSON_AddObjectToObject(cJSON_AddObjectToObject(object.get(), format), "Video");
        cJSON_AddStringToObject(video, "Compression", compression);
    }
    return object;
}

} // namespace

const cJSON* ConfigElement(const ConfigName& name, const cJSON* tree)
{
    return name.isList && cJSON_IsArray(tree) ? tree->child : tree;
}

JsonPtr ReadAsked(const ConfigName& name, const cJSON* tree)
{
    const cJSON* element = ConfigElement(name, tree);
    if (!cJSON_IsObject(element))
        throw Failure(kExitUsage, std::string(name.name) + " is a JSON object");
    JsonPtr object = CopyJson(element);
    if (IsNetCommon(name))
        ReadAddresses(object.get());
    return object;
}

std::string SetRequestBody(const ConfigName& name, const cJSON* asked, const cJSON* shown,
                           const std::string& sessionText)
{
    JsonPtr object;
    bool isTranslated = false;
    for (const auto& row : kTranslations)
        if (strcmp(row.name, name.name) == 0) {
            object = row.translate(asked, shown);
            isTranslated = true;
        }
    if (!isTranslated)
        object = CopyJson(asked);
    if (object == nullptr)
        return "";
    const JsonPtr body(cJSON_CreateObject());
    cJSON_AddStringToObject(body.get(), "Name", name.setName);
    cJSON_AddStringToObject(body.get(), "SessionID", sessionText.c_str());
    if (IsNetCommon(name)) // letter by letter as the camera spells it, and beside the object
        AddMissing(body.get(), "MAC", cJSON_GetObjectItem(shown, "MAC"));
    SetMember(body.get(), name.setName, std::move(object));
    return PrintJson(body.get(), false);
}

CodecDetour FindCodecDetour(const cJSON* asked, const cJSON* shown)
{
    const char* wanted = Compression(asked, "ExtraFormat");
    const bool isH264 = strcmp(wanted, "H.264") == 0;
    if ((!isH264 && strcmp(wanted, "H.265") != 0) || strcmp(wanted, Compression(shown, "ExtraFormat")) == 0 ||
        strcmp(wanted, Compression(shown, "MainFormat")) != 0)
        return {};
    return {FormatsWith({"MainFormat"}, isH264 ? "H.265" : "H.264"),
            FormatsWith({"ExtraFormat", "MainFormat"}, wanted)};
}

bool MovesCamera(const ConfigName& name, const cJSON* asked, const cJSON* shown)
{
    if (!IsNetCommon(name))
        return false;
    for (const char* key : kAddressKeys) {
        const cJSON* member = cJSON_GetObjectItem(asked, key);
        if (member != nullptr && !CompareWanted(member, cJSON_GetObjectItem(shown, key)).empty())
            return true;
    }
    return false;
}

bool IsSettableHttpPort(int port)
{
    return port == 80 || (port > 1024 && port < 65535);
}
