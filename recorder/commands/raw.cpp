#include <CLI/Option.hpp>

#include <cstdio>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/failure.h"
#include "recorder/json.h"
#include "recorder/session.h"

namespace {

struct RawOptions {
    uint16_t id = 0;
    std::string body;
    bool noLogin = false;
};

// What came, whatever it is; the exit code says how the camera judged the request.
int Show(const Reply& reply, bool asReceived)
{
    puts(asReceived || reply.json == nullptr ? reply.text.c_str()
                                             : PrintJson(reply.json.get(), true).c_str());
    const cJSON* result = cJSON_GetObjectItem(reply.json.get(), "Ret");
    return cJSON_IsNumber(result) && result->valueint == 100 ? kExitOk : kExitCameraError;
}

} // namespace

CommandRun AddRaw(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<RawOptions>();
    app.add_option("ID", options->id, "Message id of the request, such as 1042")->required();
    app.add_option("JSON", options->body, "Body of the request; sent as it stands, empty when left out");
    app.add_flag("--no-login", options->noLogin, "Send the request on a connection that has not logged in");
    return [options, &common] {
        Session session(common.address(), common.timeout());
        if (!options->noLogin)
            session.Login();
        return Show(session.Request(options->id, options->body), common.json);
    };
}
