// cJSON trees for people and for machines: printing, reading, comparing.
//
// Keys are found whatever their letter case, as the camera finds them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "protocol/json_fields.h"

// The tree as text: indented for people, or compact.
inline std::string PrintJson(const cJSON* tree, bool indented)
{
    const JsonText text(indented ? cJSON_Print(tree) : cJSON_PrintUnformatted(tree));
    return text == nullptr ? "" : text.get();
}

// Reads a whole text; throws kExitUsage when it is not JSON, naming it as `what`.
JsonPtr ParseJson(const std::string& text, const std::string& what);

// A text from a camera as a terminal may see it: what is not printable ASCII shows as a dot.
std::string Printable(std::string_view text);

inline JsonPtr CopyJson(const cJSON* tree)
{
    return JsonPtr(cJSON_Duplicate(tree, true));
}
// Puts the member in the place of one of its name, or adds it.
void SetMember(cJSON* object, const char* key, JsonPtr value);
// Adds the member unless the object has it. A null value adds nothing.
void AddMissing(cJSON* object, const char* key, const cJSON* value);

// One place in which two trees differ.
struct JsonDifference {
    std::string path;        // keys and indices joined by "/", for names have dots in them
    std::string before, now; // compact JSON, empty where there is nothing
};

std::string DifferenceLine(const JsonDifference& difference);
// An array of {"path", "before", "now"}.
JsonPtr DifferencesJson(const std::vector<JsonDifference>& differences);

// Every leaf that is not the same in both; `path` begins each of the paths.
std::vector<JsonDifference> CompareJson(const cJSON* before, const cJSON* now, const std::string& path = "");
// The same, but only for what `wanted` holds; hexadecimal texts are compared as numbers.
std::vector<JsonDifference> CompareWanted(const cJSON* wanted, const cJSON* now,
                                          const std::string& path = "");

// The members of `wanted`, objects within objects too, that `now` does not have so; null when there are
// none. A list is taken whole.
JsonPtr ChangedMembers(const cJSON* wanted, const cJSON* now);
