#include "recorder/address_text.h"

#include <arpa/inet.h>

#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

std::optional<std::string> HexToDotted(const char* hex)
{
    if (hex == nullptr || hex[0] != '0' || (hex[1] != 'x' && hex[1] != 'X'))
        return std::nullopt;
    uint32_t number = 0;
    const char* const end = hex + strlen(hex);
    const auto [stop, error] = std::from_chars(hex + 2, end, number, 16);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    char dotted[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &number, dotted, sizeof dotted);
    return dotted;
}

std::optional<std::string> DottedToHex(const std::string& dotted)
{
    uint32_t number = 0;
    if (inet_pton(AF_INET, dotted.c_str(), &number) != 1)
        return std::nullopt;
    char hex[11];
    snprintf(hex, sizeof hex, "0x%08X", number);
    return hex;
}

bool IsMac(const std::string& text)
{
    if (text.size() != 17)
        return false;
    for (size_t i = 0; i < text.size(); i++)
        if (i % 3 == 2 ? text[i] != ':' : isxdigit(static_cast<unsigned char>(text[i])) == 0)
            return false;
    return true;
}
