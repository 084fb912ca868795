#include "recorder/config_read.h"

#include "recorder/config_names.h"
#include "recorder/failure.h"

namespace {

constexpr int kResultUnknownName = 607;

// The reply, or null when the camera does not serve the name.
JsonPtr AskConfig(Session& session, const std::string& name)
{
    const JsonPtr body(cJSON_CreateObject());
    cJSON_AddStringToObject(body.get(), "Name", name.c_str());
    cJSON_AddStringToObject(body.get(), "SessionID", session.idText().c_str());
    Reply reply = session.Request(kGetConfigReq, PrintJson(body.get(), false));
    if (GetJsonNumber(reply.json.get(), "Ret") == kResultUnknownName)
        return nullptr;
    session.CheckResult(reply);
    return std::move(reply.json);
}

// Takes the object out of the reply.
JsonPtr TakeObject(const Session& session, cJSON* reply, const std::string& name)
{
    const ConfigName* known = FindConfigName(name);
    JsonPtr object(cJSON_DetachItemFromObject(reply, known != nullptr ? known->answer : name.c_str()));
    if (object == nullptr)
        throw Failure(kExitNotProtocol,
                      session.command().name() + ": the answer for '" + name + "' does not carry it");
    return object;
}

// Moves what is left of a reply, but for what every reply has.
void MoveRest(cJSON* reply, cJSON* all)
{
    for (const char* usual : {"Name", "Ret", "SessionID"})
        cJSON_DeleteItemFromObject(reply, usual);
    while (reply->child != nullptr) {
        JsonPtr member(cJSON_DetachItemViaPointer(reply, reply->child));
        const std::string key = member->string;
        if (cJSON_GetObjectItem(all, key.c_str()) == nullptr)
            SetMember(all, key.c_str(), std::move(member));
    }
}

} // namespace

JsonPtr ReadConfig(Session& session, const std::string& name)
{
    const JsonPtr reply = AskConfig(session, name);
    if (reply == nullptr)
        throw Failure(kExitCameraError, session.command().name() +
                                            ": the camera serves no configuration object '" +
                                            Printable(name) + "'");
    return TakeObject(session, reply.get(), name);
}

JsonPtr ReadAllConfig(Session& session)
{
    JsonPtr all(cJSON_CreateObject());
    for (const ConfigName& name : ConfigNames()) {
        const JsonPtr reply = AskConfig(session, name.name);
        if (reply == nullptr)
            continue;
        SetMember(all.get(), name.name, TakeObject(session, reply.get(), name.name));
        MoveRest(reply.get(), all.get());
    }
    return all;
}
