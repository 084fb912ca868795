#include "app/options.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "common/bounded_text.h"
#include "common/log.h"

namespace {

using OptionSetter = bool(const char* value, Options* options);

bool SetPort(const char* value, Options* options)
{
    const long port = strtol(value, nullptr, 10); // saturates
    if (port < 1 || port > 65535)
        return false;
    options->port = static_cast<uint16_t>(port);
    return true;
}

bool SetClientType(const char* value, Options* options)
{
    options->clientType = ToNumber(value);
    return true;
}

bool SetInterface(const char* value, Options* options)
{
    CopyBounded(options->interfaceName, sizeof options->interfaceName, value, strlen(value));
    LogTrace("dev = %s\n", options->interfaceName);
    return true;
}

constexpr struct {
    const char* name;
    OptionSetter* set;
} kOptions[] = {
    {"-p", SetPort},
    {"-t", SetClientType},
    {"-i", SetInterface},
};

OptionSetter* FindOption(const char* argument)
{
    for (const auto& option : kOptions)
        if (strcasecmp(option.name, argument) == 0)
            return option.set;
    return nullptr;
}

} // namespace

bool ParseOptions(int argc, char* const* argv, Options* options)
{
    for (int i = 1; i < argc; ++i) {
        OptionSetter* const set = FindOption(argv[i]);
        if (set == nullptr)
            continue;
        if (++i == argc || !set(argv[i], options))
            return false;
    }
    return true;
}

void LogUsage(const char* program)
{
    LogError("Usage: %s [-p server port] [-i net interface like \"eth0\"...]\n", program);
}
