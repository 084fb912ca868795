#include "protocol/json_members.h"

namespace {

const cJSON* AddMember(cJSON* object, const JsonMember& member)
{
    switch (member.kind) {
    case JsonKind::kInt:
        return cJSON_AddNumberToObject(object, member.key, member.number);
    case JsonKind::kBool:
        return cJSON_AddBoolToObject(object, member.key, member.number != 0 ? 1 : 0);
    case JsonKind::kText:
        return cJSON_AddStringToObject(object, member.key, member.text != nullptr ? member.text : "");
    case JsonKind::kObject: {
        cJSON* const inner = cJSON_AddObjectToObject(object, member.key);
        return inner != nullptr && AddMembers(inner, member.members) ? inner : nullptr;
    }
    }
    return nullptr;
}

} // namespace

bool AddMembers(cJSON* object, std::span<const JsonMember> members)
{
    for (const JsonMember& member : members)
        if (AddMember(object, member) == nullptr)
            return false;
    return true;
}
