#include "protocol/json_fields.h"

const cJSON* GetJsonMember(const cJSON* object, const char* key)
{
    return cJSON_GetObjectItem(object, key);
}

const char* GetJsonString(const cJSON* object, const char* key)
{
    return cJSON_GetStringValue(GetJsonMember(object, key));
}

int GetJsonNumber(const cJSON* object, const char* key)
{
    const cJSON* const member = GetJsonMember(object, key);
    return cJSON_IsNumber(member) != 0 ? member->valueint : -1; // valueint is saturated, not wrapped
}

int GetJsonBool(const cJSON* object, const char* key)
{
    return cJSON_IsTrue(GetJsonMember(object, key)) != 0 ? 1 : 0;
}
