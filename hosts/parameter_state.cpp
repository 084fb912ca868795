#include "hosts/parameter_state.h"

#include <cjson/cJSON.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "common/log.h"

namespace {

using JsonOwner = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;
constexpr std::string_view kHexPrefix = "hex:";

std::string HexText(const ParameterBytes& bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text(kHexPrefix);
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::optional<ParameterBytes> BytesOfHex(std::string_view digits)
{
    if (digits.size() % 2 != 0)
        return std::nullopt;
    ParameterBytes bytes(digits.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char* const pair = digits.data() + 2 * i;
        if (std::from_chars(pair, pair + 2, bytes[i], 16).ptr != pair + 2)
            return std::nullopt;
    }
    return bytes;
}

std::optional<ParameterValue> ValueOfJson(const cJSON* item)
{
    if (cJSON_IsNumber(item)) {
        const double number = item->valuedouble;
        if (number < 0 || number > std::numeric_limits<uint32_t>::max() || number != std::floor(number))
            return std::nullopt;
        return static_cast<uint32_t>(number);
    }
    if (!cJSON_IsString(item))
        return std::nullopt;
    const std::string_view text = item->valuestring;
    if (!text.starts_with(kHexPrefix))
        return std::string(text);
    if (auto bytes = BytesOfHex(text.substr(kHexPrefix.size())))
        return *std::move(bytes);
    return std::nullopt;
}

cJSON* JsonOfValue(const ParameterValue& value)
{
    if (const auto* const number = std::get_if<uint32_t>(&value))
        return cJSON_CreateNumber(*number);
    if (const auto* const bytes = std::get_if<ParameterBytes>(&value))
        return cJSON_CreateString(HexText(*bytes).c_str());
    const auto& text = std::get<std::string>(value);
    if (text.starts_with(kHexPrefix)) // would be read back as bytes
        return cJSON_CreateString(HexText(ParameterBytes(text.begin(), text.end())).c_str());
    return cJSON_CreateString(text.c_str());
}

void MoveAside(const std::string& path)
{
    const std::string aside = path + ".corrupt";
    const bool moved = rename(path.c_str(), aside.c_str()) == 0;
    LogError("%s: not a file of settings; starting from defaults%s%s\n", path.c_str(),
             moved ? ", the file is now " : "", moved ? aside.c_str() : "");
}

} // namespace

ParameterChanges LoadParameterState(const std::string& path)
{
    ParameterChanges changes;
    if (!std::filesystem::exists(path))
        return changes;
    if (!std::filesystem::is_regular_file(path))
        throw std::runtime_error(path + ": not a regular file");
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path + ": " + strerror(errno));
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const JsonOwner json(cJSON_ParseWithLength(text.data(), text.size()), cJSON_Delete);
    if (!cJSON_IsObject(json.get())) {
        MoveAside(path);
        return changes;
    }
    for (const cJSON* item = json->child; item != nullptr; item = item->next) {
        if (auto value = ValueOfJson(item))
            changes[item->string] = *std::move(value);
        else
            LogWarn("%s: \"%s\" has no usable value and is left out\n", path.c_str(), item->string);
    }
    return changes;
}

bool SaveParameterState(const std::string& path, const ParameterChanges& changes)
{
    const JsonOwner json(cJSON_CreateObject(), cJSON_Delete);
    for (const auto& [name, value] : changes)
        cJSON_AddItemToObject(json.get(), name.c_str(), JsonOfValue(value));
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(json.get()), cJSON_free);

    const std::string beside = path + ".new";
    std::ofstream file(beside, std::ios::binary | std::ios::trunc);
    file << (text ? text.get() : "") << '\n';
    file.close();
    if (text && file && rename(beside.c_str(), path.c_str()) == 0)
        return true;
    LogError("%s: the settings could not be written: %s\n", path.c_str(), strerror(errno));
    return false;
}
