#include <CLI/Option.hpp>

#include <cstdio>
#include <ctime>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/failure.h"
#include "recorder/json.h"
#include "recorder/session.h"

namespace {

constexpr milliseconds kRetryInterval{200};

struct TimeOptions {
    std::string set;
};
struct RebootOptions {
    double waitSeconds = 0; // 0: does not wait
};
struct FactoryOptions {
    bool yes = false;
};

// Sends a system request whose own member carries a text.
void Manage(Session& session, const std::string& name, const std::string& text)
{
    const JsonPtr body(cJSON_CreateObject());
    cJSON_AddStringToObject(body.get(), "Name", name.c_str());
    cJSON_AddStringToObject(body.get(), name.c_str(), text.c_str());
    session.RequestOk(kSysManagerReq, PrintJson(body.get(), false));
}

std::string UtcNow()
{
    const time_t now = time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    return {text, strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &utc)};
}

void SetTime(Session& session, const std::string& text)
{
    if (text == "now")
        return Manage(session, "OPUTCTimeSetting", UtcNow());
    tm parsed{};
    const char* const end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parsed);
    if (end == nullptr || *end != '\0')
        throw Failure(kExitUsage, "'" + text + "' is neither now nor a time like 2019-03-05 07:04:09");
    Manage(session, "OPTimeSetting", text);
}

int RunTime(const TimeOptions& options, const CommonOptions& common)
{
    Session session(common.address(), common.timeout());
    session.Login();
    if (!options.set.empty())
        SetTime(session, options.set);
    const Reply reply = session.RequestOk(kTimeQueryReq, R"({"Name":"OPTimeQuery"})");
    const char* const time = GetJsonString(reply.json.get(), "OPTimeQuery");
    puts(common.json ? PrintJson(reply.json.get(), false).c_str() : time != nullptr ? time : "-");
    return kExitOk;
}

// The answer may be lost when the camera goes down at once: only a camera that refuses is a failure.
void AskToGoDown(Session& session, const char* request)
{
    try {
        session.RequestOk(kSysManagerReq, request);
    } catch (const Failure& failure) {
        if (failure.code() != kExitClosed && failure.code() != kExitTimedOut)
            throw;
    }
}

bool Answers(const CommonOptions& common)
{
    try {
        Session(common.address(), kRetryInterval * 5).Login();
        return true;
    } catch (const Failure&) {
        return false;
    }
}

// Waits until the session has ended, which is when the camera goes down, and until a login works again.
void AwaitReboot(Session& session, const CommonOptions& common, TimePoint end)
{
    try {
        session.StayUntil(end);
        throw Failure(kExitTimedOut, session.command().name() + ": timed out: the camera did not go down");
    } catch (const Failure& failure) {
        if (failure.code() != kExitClosed && failure.code() != kExitUnreachable)
            throw;
    }
    const TimePoint down = Clock::now();
    while (!Answers(common)) {
        if (Clock::now() >= end)
            throw Failure(kExitTimedOut,
                          session.command().name() + ": timed out: the camera did not come back");
        timespec pause{.tv_sec = 0, .tv_nsec = std::chrono::nanoseconds(kRetryInterval).count()};
        nanosleep(&pause, nullptr);
    }
    printf("down for %.1f s\n", std::chrono::duration<double>(Clock::now() - down).count());
}

int RunReboot(const RebootOptions& options, const CommonOptions& common)
{
    Session session(common.address(), common.timeout());
    session.Login();
    AskToGoDown(session, R"({"Name":"OPMachine","OPMachine":{"Action":"Reboot"}})");
    if (options.waitSeconds > 0)
        AwaitReboot(session, common,
                    Clock::now() + milliseconds(static_cast<int64_t>(options.waitSeconds * 1000)));
    return kExitOk;
}

int RunFactoryDefault(const FactoryOptions& options, const CommonOptions& common)
{
    if (!options.yes)
        throw Failure(kExitUsage, "all settings would be lost; say --yes if that is meant");
    Session session(common.address(), common.timeout());
    session.Login();
    AskToGoDown(session, R"({"Name":"OPDefaultConfig"})");
    return kExitOk;
}

int RunKeyFrame(const CommonOptions& common)
{
    Session session(common.address(), common.timeout());
    session.Login();
    session.RequestOk(kForceIFrameReq, R"({"Name":"OPForceIFrame"})");
    return kExitOk;
}

void PrintUsers(const cJSON* users)
{
    printf("%-16s %-16s %-24s %s\n", "NAME", "GROUP", "MEMO", "RIGHTS");
    const cJSON* user = nullptr;
    cJSON_ArrayForEach(user, users)
    {
        const auto text = [user](const char* key) {
            const char* const value = GetJsonString(user, key);
            return value != nullptr ? value : "-";
        };
        printf("%-16s %-16s %-24s %d\n", text("Name"), text("Group"), text("Memo"),
               cJSON_GetArraySize(GetJsonMember(user, "AuthorityList")));
    }
}

int RunUsers(const CommonOptions& common)
{
    Session session(common.address(), common.timeout());
    session.Login();
    const Reply users = session.RequestOk(kUserUsersReq, "{}");
    if (common.json)
        puts(PrintJson(users.json.get(), false).c_str());
    else
        PrintUsers(GetJsonMember(users.json.get(), "Users"));
    return kExitOk;
}

} // namespace

CommandRun AddTime(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<TimeOptions>();
    app.add_option("--set", options->set,
                   "now, or a time like \"2019-03-05 07:04:09\"; the camera adds its time zone");
    return [options, &common] { return RunTime(*options, common); };
}

CommandRun AddReboot(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<RebootOptions>();
    app.add_option("--wait", options->waitSeconds, "Waits at most so many seconds until it is back")
        ->check(SecondsBetween(0, 3600));
    return [options, &common] { return RunReboot(*options, common); };
}

CommandRun AddFactoryDefault(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<FactoryOptions>();
    app.add_flag("--yes", options->yes, "Yes, all settings shall be lost");
    return [options, &common] { return RunFactoryDefault(*options, common); };
}

CommandRun AddKeyFrame(CLI::App&, const CommonOptions& common)
{
    return [&common] { return RunKeyFrame(common); };
}

CommandRun AddUsers(CLI::App&, const CommonOptions& common)
{
    return [&common] { return RunUsers(common); };
}
