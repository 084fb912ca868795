#include "common/inifile.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "common/bounded_text.h"
#include "common/unique_fd.h"

namespace {

std::string_view LoadFile(const char* file, char (&storage)[kProfileFileBytes])
{
    const UniqueFd fd(open(file, O_RDONLY | O_CLOEXEC));
    size_t length = 0;
    while (fd.isValid() && length < sizeof storage) {
        const ssize_t count = read(fd.get(), storage + length, sizeof storage - length);
        if (count <= 0)
            break;
        length += static_cast<size_t>(count);
    }
    return {storage, length};
}

std::string_view TakeLine(std::string_view& text)
{
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

// The comparison of the firmware's reader: over the length of the text found in the file.
bool NameMatches(std::string_view found, const char* wanted)
{
    return strncmp(wanted, found.data(), found.size()) == 0;
}

std::optional<std::string_view> SectionOf(std::string_view line)
{
    if (line.empty() || line.front() != '[')
        return std::nullopt;
    const size_t end = line.find(']');
    return end == std::string_view::npos ? std::nullopt : std::optional(line.substr(1, end - 1));
}

std::optional<std::string_view> FindValue(std::string_view text, const char* section, const char* key)
{
    bool inSection = false;
    while (!text.empty()) {
        const std::string_view line = TakeLine(text);
        if (const auto name = SectionOf(line)) {
            if (inSection)
                break; // the wanted section ends where the next one begins
            inSection = NameMatches(*name, section);
            continue;
        }
        const size_t equals = line.find('=');
        if (inSection && !line.empty() && line.front() != ';' && equals != std::string_view::npos &&
            NameMatches(line.substr(0, equals), key))
            return line.substr(equals + 1);
    }
    return std::nullopt;
}

void CopyText(std::string_view text, char* to, size_t size)
{
    const size_t length = std::min(text.size(), size - 1);
    memcpy(to, text.data(), length);
    to[length] = '\0';
}

} // namespace

int read_profile_string(const char* section, const char* key, char* value, size_t size,
                        const char* defaultValue, const char* file)
{
    if (size == 0)
        return 0;
    char storage[kProfileFileBytes];
    if (const auto found = FindValue(LoadFile(file, storage), section, key)) {
        CopyText(*found, value, size);
        return 1;
    }
    if (defaultValue != nullptr)
        CopyText(defaultValue, value, size);
    return 0;
}

int read_profile_int(const char* section, const char* key, int defaultValue, const char* file)
{
    char value[32];
    if (read_profile_string(section, key, value, sizeof value, nullptr, file) == 0)
        return defaultValue;
    return ToNumber(value);
}
