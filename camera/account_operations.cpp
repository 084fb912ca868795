#include "camera/account_operations.h"

#include <cstring>
#include <iterator>

#include "camera/camera_records.h"
#include "camera/custom_tools.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "common/bounded_text.h"
#include "common/inifile.h"
#include "common/log.h"

namespace {

constexpr uint32_t kFieldCreateUser = 8195;
constexpr uint32_t kFieldDeleteUser = 8196;
constexpr uint32_t kFieldSetUser = 8197;

// An account as the block and the messages hold it.
struct Account {
    char szName[32];
    char szPassword[32];
    uint32_t ulAuthority;
};
static_assert(sizeof(Account) == block::kUserEntryBytes);

// Sends the first account of a list.
int SendAccount(const char* operation, const void* input, uint32_t field)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto* const list = static_cast<const UserList*>(input);
    if (list->ulCount == 0)
        return kCameraFailed;
    const CameraUser& user = list->strAcount[0];
    Account account{};
    CopyBounded(account.szName, sizeof account.szName, user.szName, sizeof user.szName);
    CopyBounded(account.szPassword, sizeof account.szPassword, user.szPassword, sizeof user.szPassword);
    account.ulAuthority = user.ulAuthority;
    LogTrace("%s %d: pUserParam->strAcount[0].user      = %s\n", operation, __LINE__, account.szName);
    LogTrace("%s %d: pUserParam->strAcount[0].password  = %s\n", operation, __LINE__, account.szPassword);
    LogTrace("%s %d: pUserParam->strAcount[0].authority = %d\n", operation, __LINE__, account.ulAuthority);
    (void)ControlSystemData(field, &account, sizeof account);
    return kCameraOk;
}

void ReadUser(const SysInfo* config, size_t entry, CameraUser* user)
{
    const size_t offset = block::kUsers + entry * block::kUserEntryBytes;
    BlockText(config, offset + offsetof(Account, szName), sizeof Account{}.szName, user->szName,
              sizeof user->szName);
    BlockText(config, offset + offsetof(Account, szPassword), sizeof Account{}.szPassword, user->szPassword,
              sizeof user->szPassword);
    user->ulAuthority = BlockField<uint32_t>(config, offset + offsetof(Account, ulAuthority));
}

} // namespace

int Common_GetUsers(const void*, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (output == nullptr || config == nullptr)
        return kCameraFailed;
    auto* const list = static_cast<UserList*>(output);
    *list = {};
    static_assert(std::size(UserList{}.strAcount) == block::kUserEntries);
    for (size_t entry = 0; entry < block::kUserEntries; ++entry) {
        CameraUser user{};
        ReadUser(config, entry, &user);
        if (entry == 0) { // the maker may have renamed the administrator
            char stored[sizeof user.szName];
            memcpy(stored, user.szName, sizeof stored);
            read_profile_string(kCustomToolsSection, "AdminUser", user.szName, sizeof user.szName, stored,
                                kCustomToolsFile);
        }
        if (user.szName[0] != '\0')
            list->strAcount[list->ulCount++] = user;
    }
    return kCameraOk;
}

int Common_CreateUser(const void* list, void*)
{
    return SendAccount(__func__, list, kFieldCreateUser);
}

int Common_SetUser(const void* list, void*)
{
    return SendAccount(__func__, list, kFieldSetUser);
}

int Common_DelUser(const void* list, void*)
{
    return SendAccount(__func__, list, kFieldDeleteUser);
}
