#include <cstdio>

#include "recorder/commands/commands.h"
#include "recorder/json.h"
#include "recorder/session.h"

CommandRun AddInfo(CLI::App&, const CommonOptions& common)
{
    return [&common] {
        Session session(common.address(), common.timeout());
        const Reply reply = session.Login();
        puts(PrintJson(reply.json.get(), !common.json).c_str());
        return 0;
    };
}
