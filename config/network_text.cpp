#include "config/network_text.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "common/bounded_text.h"
#include "common/little_endian.h"

namespace {

constexpr size_t kMostHostCharacters = 255;

// Not those of the C library, which depend on the locale.
bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool IsLetterOrDigit(char c)
{
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Reads a decimal number off the text; false when it does not begin with one. What is too large for any
// part of an address counts as 1000.
bool TakeNumber(std::string_view* text, int* number)
{
    constexpr int kTooLarge = 1000;
    size_t digits = 0;
    *number = 0;
    for (; digits < text->size() && IsDigit((*text)[digits]); ++digits)
        *number = std::min(*number * 10 + ((*text)[digits] - '0'), kTooLarge);
    text->remove_prefix(digits);
    return digits > 0;
}

// Whether the whole text is four numbers with points between them.
bool ReadFourNumbers(std::string_view text, int (&numbers)[4])
{
    for (int& number : numbers) {
        if (&number != &numbers[0]) {
            if (!text.starts_with('.'))
                return false;
            text.remove_prefix(1);
        }
        if (!TakeNumber(&text, &number))
            return false;
    }
    return text.empty();
}

bool IsHostAddress(const int (&numbers)[4])
{
    return numbers[0] < 224 && numbers[0] != 127 && numbers[1] <= 255 && numbers[2] <= 255 &&
           numbers[3] <= 254;
}

bool IsHostName(std::string_view text)
{
    return !text.empty() && text.size() <= kMostHostCharacters && IsLetterOrDigit(text.front()) &&
           text.back() != '-' && text.back() != '.' && std::all_of(text.begin(), text.end(), [](char c) {
               return IsLetterOrDigit(c) || c == '-' || c == '.';
           });
}

} // namespace

uint32_t HexTextToNumber(const char* hex)
{
    return static_cast<uint32_t>(
        std::min<unsigned long>(strtoul(hex, nullptr, 16), std::numeric_limits<uint32_t>::max()));
}

uint32_t IpTextToNumber(const char* dotted)
{
    in_addr address{};
    if (inet_aton(dotted, &address) == 0)
        return 0xFFFFFFFF;
    return LoadLe<uint32_t>(reinterpret_cast<const uint8_t*>(&address));
}

void HexTextToIpText(const char* hex, char* dotted, size_t size)
{
    in_addr address{};
    StoreLe(reinterpret_cast<uint8_t*>(&address), HexTextToNumber(hex));
    char text[INET_ADDRSTRLEN] = "";
    (void)inet_ntop(AF_INET, &address, text, sizeof text); // every address fits
    CopyBounded(dotted, size, text, strlen(text));
}

bool IsValidHostOrIp(const char* text)
{
    int numbers[4];
    if (ReadFourNumbers(text, numbers))
        return IsHostAddress(numbers);
    return IsHostName(text);
}
