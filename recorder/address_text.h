// IPv4 addresses as people write them, "192.0.2.10", and as the protocol does: "0x0A0200C0", a
// hexadecimal number whose lowest byte is the first part.
#pragma once

#include <optional>
#include <string>

// Nothing when the text is no hexadecimal number of 32 bits.
std::optional<std::string> HexToDotted(const char* hex);
// Nothing when the text is no dotted address.
std::optional<std::string> DottedToHex(const std::string& dotted);
// "02:00:5E:00:53:01", in either letter case.
bool IsMac(const std::string& text);
