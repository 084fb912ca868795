#include "recorder/json.h"

#include <cstdlib>
#include <cstring>

#include "recorder/failure.h"

namespace {

struct Comparison {
    bool onlyWanted;
    std::vector<JsonDifference> found;
};

bool IsHexText(const cJSON* leaf)
{
    return cJSON_IsString(leaf) && leaf->valuestring[0] == '0' && (leaf->valuestring[1] | 0x20) == 'x' &&
           strlen(leaf->valuestring) <= 18; // 16 digits: a number of 64 bits
}

bool IsSameNumberText(const cJSON* a, const cJSON* b)
{
    char *endA = nullptr, *endB = nullptr;
    return IsHexText(a) && IsHexText(b) &&
           strtoull(a->valuestring, &endA, 16) == strtoull(b->valuestring, &endB, 16) && *endA == '\0' &&
           *endB == '\0';
}

void Walk(const std::string& path, const cJSON* before, const cJSON* now, Comparison& comparison);

void WalkObjects(const std::string& path, const cJSON* before, const cJSON* now, Comparison& comparison)
{
    const std::string prefix = path.empty() ? "" : path + "/";
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, before)
        Walk(prefix + Printable(item->string), item, cJSON_GetObjectItem(now, item->string), comparison);
    if (comparison.onlyWanted)
        return;
    cJSON_ArrayForEach(item, now) if (cJSON_GetObjectItem(before, item->string) == nullptr)
        Walk(prefix + Printable(item->string), nullptr, item, comparison);
}

void WalkArrays(const std::string& path, const cJSON* before, const cJSON* now, Comparison& comparison)
{
    const cJSON* a = before->child;
    const cJSON* b = now->child;
    for (int i = 0; a != nullptr || (b != nullptr && !comparison.onlyWanted); i++) {
        Walk(path + "/" + std::to_string(i), a, b, comparison);
        a = a != nullptr ? a->next : nullptr;
        b = b != nullptr ? b->next : nullptr;
    }
}

void Walk(const std::string& path, const cJSON* before, const cJSON* now, Comparison& comparison)
{
    if (cJSON_IsObject(before) && cJSON_IsObject(now))
        WalkObjects(path, before, now, comparison);
    else if (cJSON_IsArray(before) && cJSON_IsArray(now))
        WalkArrays(path, before, now, comparison);
    else if (!cJSON_Compare(before, now, true) && !(comparison.onlyWanted && IsSameNumberText(before, now)))
        comparison.found.push_back({path, before != nullptr ? PrintJson(before, false) : "",
                                    now != nullptr ? PrintJson(now, false) : ""});
}

} // namespace

JsonPtr ParseJson(const std::string& text, const std::string& what)
{
    // The length holds the terminating zero, so that cJSON can see that nothing follows.
    JsonPtr tree(cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, nullptr, true));
    if (tree == nullptr)
        throw Failure(kExitUsage, what + " is not JSON");
    return tree;
}

std::string Printable(std::string_view text)
{
    std::string shown(text);
    for (char& letter : shown)
        if (letter < 0x20 || letter > 0x7E)
            letter = '.';
    return shown;
}

void SetMember(cJSON* object, const char* key, JsonPtr value)
{
    cJSON_DeleteItemFromObject(object, key);
    cJSON_AddItemToObject(object, key, value.release());
}

void AddMissing(cJSON* object, const char* key, const cJSON* value)
{
    if (value != nullptr && cJSON_GetObjectItem(object, key) == nullptr)
        SetMember(object, key, CopyJson(value));
}

std::string DifferenceLine(const JsonDifference& difference)
{
    const auto shown = [](const std::string& json) { return json.empty() ? "(none)" : Printable(json); };
    return difference.path + ": " + shown(difference.before) + " -> " + shown(difference.now);
}

JsonPtr DifferencesJson(const std::vector<JsonDifference>& differences)
{
    JsonPtr list(cJSON_CreateArray());
    for (const JsonDifference& difference : differences) {
        cJSON* object = cJSON_CreateObject();
        cJSON_AddItemToArray(list.get(), object);
        cJSON_AddStringToObject(object, "path", difference.path.c_str());
        if (!difference.before.empty())
            cJSON_AddRawToObject(object, "before", difference.before.c_str());
        if (!difference.now.empty())
            cJSON_AddRawToObject(object, "now", difference.now.c_str());
    }
    return list;
}

std::vector<JsonDifference> CompareJson(const cJSON* before, const cJSON* now, const std::string& path)
{
    Comparison comparison{.onlyWanted = false, .found = {}};
    Walk(path, before, now, comparison);
    return comparison.found;
}

std::vector<JsonDifference> CompareWanted(const cJSON* wanted, const cJSON* now, const std::string& path)
{
    Comparison comparison{.onlyWanted = true, .found = {}};
    Walk(path, wanted, now, comparison);
    return comparison.found;
}

JsonPtr ChangedMembers(const cJSON* wanted, const cJSON* now)
{
    if (!cJSON_IsObject(wanted) || !cJSON_IsObject(now))
        return CompareWanted(wanted, now).empty() ? nullptr : CopyJson(wanted);
    JsonPtr changed;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, wanted)
    {
        JsonPtr member = ChangedMembers(item, cJSON_GetObjectItem(now, item->string));
        if (member == nullptr)
            continue;
        if (changed == nullptr)
            changed.reset(cJSON_CreateObject());
        SetMember(changed.get(), item->string, std::move(member));
    }
    return changed;
}
