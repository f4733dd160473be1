// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_status.h>

extern "C" {

typedef struct AIBinder AIBinder;
typedef struct AIBinder_Weak AIBinder_Weak;

void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);

// Returns a weak reference, which the caller owns.
AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);

// Returns a strong reference, which the caller owns, or null if the binder has been destroyed.
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder);

// Receives the notification that the process behind a binder has died.
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);

[[nodiscard]] AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
    AIBinder_DeathRecipient_onBinderDied onBinderDied);
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);

// Requests one call to the recipient with `cookie`, on a binder thread, when the binder dies.
// Returns STATUS_DEAD_OBJECT if it has already died; the recipient is not called then.
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie);
// Cancels the request. Does not wait for a call in progress. Returns STATUS_NAME_NOT_FOUND if there
// is no such request.
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie);

}  // extern "C"
