// Addresses and host names as recorders write them.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t kAddressTextBytes = 32;

// A dotted IPv4 address as the number whose lowest byte is the first octet; 0xFFFFFFFF for any other
// text. It travels as "0x%08X" (UpperHex), so 192.168.1.10 is 0x0A01A8C0.
uint32_t IpTextToNumber(const char* dotted);

// Reads a hexadecimal text ("0x" allowed): 0 when it is none, 0xFFFFFFFF when it is too large.
uint32_t HexTextToNumber(const char* hex);

// The inverse of IpTextToNumber: reads a hexadecimal text ("0x" allowed) and writes the dotted address of
// that number into `dotted`, of at least 16 bytes.
void HexTextToIpText(const char* hex, char* dotted, size_t size);

// Whether a text may be the camera's name: four numbers that are an address of a host (first below 224
// and not 127, second and third at most 255, fourth at most 254), or a name of fewer than 256 letters,
// digits, "-" and "." that begins with a letter or digit and does not end with "-" or ".".
bool IsValidHostOrIp(const char* text);
