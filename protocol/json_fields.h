// Readers for the members of a request body, and owners for what cJSON allocates.
//
// Keys are looked up without regard to letter case, in any order. All readers accept a null object
// and answer as if the member were missing, so a body that is not JSON needs no branch of its own.
#pragma once

#include <cjson/cJSON.h>

#include <memory>

struct JsonDelete {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
    void operator()(char* text) const { cJSON_free(text); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDelete>;
using JsonText = std::unique_ptr<char, JsonDelete>;

// The member, or null. The object stays its owner.
const cJSON* GetJsonMember(const cJSON* object, const char* key);
// The member's text if it is a JSON string, else null. Valid as long as the object.
const char* GetJsonString(const cJSON* object, const char* key);
// The member's value if it is a JSON number (cut to an integer, held within 32 bits), else -1.
int GetJsonNumber(const cJSON* object, const char* key);
// 1 if the member is true, else 0.
int GetJsonBool(const cJSON* object, const char* key);
