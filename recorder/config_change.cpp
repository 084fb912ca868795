#include "recorder/config_change.h"

#include <cstring>

#include "recorder/config_read.h"
#include "recorder/failure.h"
#include "recorder/settings.h"

namespace {

// An encode set takes 100 ms for each stream, all of it twice, and the time of its parameter messages.
// After a start of live video the camera drops the first one.
constexpr milliseconds kEncodePatience{2000};

constexpr char kEncode[] = "Simplify.Encode";
constexpr char kNetCommon[] = "NetWork.NetCommon";

void SendSet(Session& session, const ConfigName& name, const cJSON* asked, const cJSON* shown)
{
    const std::string body = SetRequestBody(name, asked, shown, session.idText());
    if (body.empty())
        return;
    if (strcmp(name.name, kEncode) == 0)
        session.RequestTwiceOk(kSetConfigReq, body, kEncodePatience);
    else
        session.RequestOk(kSetConfigReq, body);
}

JsonPtr SetAndRead(Session& session, const ConfigName& name, const cJSON* asked, const cJSON* shown)
{
    SendSet(session, name, asked, shown);
    return ReadElement(session, name);
}

// The answer to a set that moves the camera may be lost with the connection; whether it was taken is seen
// from the search. Nothing when it was not lost.
std::optional<Failure> SendMove(Session& session, const ConfigName& name, const cJSON* asked,
                                const cJSON* shown)
{
    try {
        SendSet(session, name, asked, shown);
        return std::nullopt;
    } catch (const Failure& failure) {
        if (failure.code() != kExitTimedOut && failure.code() != kExitClosed &&
            failure.code() != kExitUnreachable)
            throw;
        return failure;
    }
}

ConfigChange SetAndFind(Session& session, const ConfigName& name, const cJSON* asked, const cJSON* shown,
                        const std::string& interface)
{
    SearchSocket socket(interface); // before the set: without it the camera would be lost
    const char* mac = GetJsonString(shown, "MAC");
    const auto lost = SendMove(session, name, asked, shown);
    auto found = SearchFor(socket, mac != nullptr ? mac : "", asked, Clock::now() + session.timeout());
    if (lost && (!found || !CompareWanted(asked, found->netCommon.get()).empty()))
        throw *lost;
    if (!found)
        throw Failure(kExitTimedOut, session.command().name() +
                                         ": the camera took the set, but no search finds it any more");
    JsonPtr now = CopyJson(found->netCommon.get());
    return {std::move(now), std::move(found)};
}

class Restorer {
  public:
    Restorer(Session& session, const cJSON* before, const std::string& interface)
        : session_(session), before_(before), interface_(interface)
    {
    }

    Restoration Run()
    {
        const JsonPtr now = ReadAllConfig(session_);
        const cJSON* item = nullptr;
        cJSON_ArrayForEach(
            item, before_) if (!CompareJson(item, cJSON_GetObjectItem(now.get(), item->string)).empty())
            RestoreOne(item, now.get());
        result_.remaining = Compare(session_);
        if (RestoreNetwork(now.get()))
            CompareAgain();
        return std::move(result_);
    }

  private:
    void RestoreOne(const cJSON* item, const cJSON* now)
    {
        const ConfigName* name = FindConfigName(item->string);
        if (name == nullptr || name->effect != SetEffect::kApplied)
            result_.readOnly.push_back(Printable(item->string));
        else if (strcmp(name->name, kNetCommon) != 0)
            Set(*name, item, cJSON_GetObjectItem(now, item->string));
    }

    void Set(const ConfigName& name, const cJSON* wanted, const cJSON* now)
    {
        try {
            const cJSON* shown = ConfigElement(name, now);
            JsonPtr asked = ChangedMembers(ReadAsked(name, wanted).get(), shown);
            if (asked == nullptr)
                return;
            // One port that the camera does not take must not keep it from the rest.
            if (strcmp(name.name, kNetCommon) == 0 &&
                !IsSettableHttpPort(GetJsonNumber(asked.get(), "HttpPort")))
                cJSON_DeleteItemFromObject(asked.get(), "HttpPort");
            ConfigChange change = ChangeConfig(session_, name, asked.get(), shown, interface_);
            result_.restored.emplace_back(name.name);
            result_.moved = std::move(change.moved);
            network_ = std::move(change.shown);
        } catch (const Failure& failure) {
            if (failure.code() != kExitUsage && failure.code() != kExitCameraError)
                throw;
            result_.failed.push_back(std::string(name.name) + ": " + failure.what());
        }
    }

    // All but the network, which the search may have to tell.
    std::vector<JsonDifference> Compare(Session& session) const
    {
        const JsonPtr now = ReadAllConfig(session);
        std::vector<JsonDifference> all;
        const cJSON* item = nullptr;
        cJSON_ArrayForEach(item, before_)
        {
            if (strcmp(item->string, kNetCommon) == 0)
                continue;
            const auto found =
                CompareJson(item, cJSON_GetObjectItem(now.get(), item->string), Printable(item->string));
            all.insert(all.end(), found.begin(), found.end());
        }
        return all;
    }

    // False when there was nothing to restore.
    bool RestoreNetwork(const cJSON* now)
    {
        const cJSON* wanted = cJSON_GetObjectItem(before_, kNetCommon);
        const cJSON* shown = cJSON_GetObjectItem(now, kNetCommon);
        if (wanted == nullptr || CompareJson(wanted, shown).empty())
            return false;
        network_.reset();
        Set(*FindConfigName(kNetCommon), wanted, shown);
        networkRemaining_ = CompareWanted(wanted, network_ != nullptr ? network_.get() : shown, kNetCommon);
        return true;
    }

    // Other objects show some of the network's values too. Where the camera has gone out of reach, what was
    // seen before it went stands.
    void CompareAgain()
    {
        if (!result_.moved) {
            result_.remaining = Compare(session_);
        } else {
            try {
                Session again({result_.moved->address, ParseHostPort(session_.command().name()).port},
                              session_.timeout());
                again.Login();
                result_.remaining = Compare(again);
            } catch (const Failure&) {
                return Add(networkRemaining_);
            }
        }
        Add(networkRemaining_);
    }

    void Add(const std::vector<JsonDifference>& differences)
    {
        result_.remaining.insert(result_.remaining.end(), differences.begin(), differences.end());
    }

    Session& session_;
    const cJSON* before_;
    const std::string& interface_;
    Restoration result_;
    std::vector<JsonDifference> networkRemaining_;
    JsonPtr network_; // what the last set has led to
};

} // namespace

JsonPtr ReadElement(Session& session, const ConfigName& name)
{
    const JsonPtr tree = ReadConfig(session, name.name);
    const cJSON* element = ConfigElement(name, tree.get());
    if (!cJSON_IsObject(element))
        throw Failure(kExitNotProtocol,
                      session.command().name() + ": the camera's " + name.name + " holds no object");
    return CopyJson(element);
}

ConfigChange ChangeConfig(Session& session, const ConfigName& name, const cJSON* asked, const cJSON* shown,
                          const std::string& interface)
{
    if (MovesCamera(name, asked, shown))
        return SetAndFind(session, name, asked, shown, interface);
    JsonPtr now = SetAndRead(session, name, asked, shown);
    if (strcmp(name.name, kEncode) == 0)
        if (const CodecDetour detour = FindCodecDetour(asked, now.get()); detour.away != nullptr) {
            now = SetAndRead(session, name, detour.away.get(), now.get());
            now = SetAndRead(session, name, detour.back.get(), now.get());
        }
    return {std::move(now), std::nullopt};
}

Restoration RestoreConfig(Session& session, const cJSON* before, const std::string& interface)
{
    return Restorer(session, before, interface).Run();
}
