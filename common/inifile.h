// Profile-string reader for the text configuration file of the firmware: sections in brackets, then
// lines of the form key=value; a line that begins with ";" is a comment.
//
// Thread-safe: each call reads the file anew (at most 16384 bytes of it) into storage of its own.
// Section and key texts are compared over the length of the text found in the file, so a section or
// key in the file also answers for names that continue it.
#pragma once

#include <cstddef>

inline constexpr size_t kProfileFileBytes = 16384;

// Copies the value of the key (the rest of its line, not trimmed, cut to the buffer) and returns 1.
// When it is missing, copies the default, if one is given, and returns 0. The buffer ends in zero.
int read_profile_string(const char* section, const char* key, char* value, size_t size,
                        const char* defaultValue, const char* file);

// The decimal value of the key, read through a 32-byte buffer, or the default when it is missing.
int read_profile_int(const char* section, const char* key, int defaultValue, const char* file);
