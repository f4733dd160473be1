#pragma once

#include <android/binder_auto_utils.h>

// Who is told that a process that offers a binder has died.
struct AIBinder_DeathRecipient;

using AIBinder_DeathRecipient_onBinderDied = void (*)(void* cookie);

[[nodiscard]] AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
    AIBinder_DeathRecipient_onBinderDied onBinderDied);
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);

// Asks for one call of the recipient with `cookie`, on a binder thread, when the binder dies.
// STATUS_DEAD_OBJECT: it has died already, and no call will come.
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie);
// A call that is under way is not waited for. STATUS_NAME_NOT_FOUND: there is no such link.
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie);
