// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_status.h>

extern "C" {

typedef struct AIBinder AIBinder;
typedef struct AIBinder_Weak AIBinder_Weak;

void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);

// A weak reference that the caller owns.
AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);

// A strong reference that the caller owns; null when the binder has ended.
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder);

// Who is told that a process that offers a binder has died.
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);

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

}  // extern "C"
