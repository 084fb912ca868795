// Printing cJSON trees for people and for machines.
#pragma once

#include <string>

#include "protocol/json_fields.h"

// The tree as text: indented for people, or compact.
inline std::string PrintJson(const cJSON* tree, bool indented)
{
    const JsonText text(indented ? cJSON_Print(tree) : cJSON_PrintUnformatted(tree));
    return text == nullptr ? "" : text.get();
}
