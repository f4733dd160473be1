// SPDX-License-Identifier: Apache-2.0
#include <android-base/thread_annotations.h>
#include <android/binder_ibinder.h>
#include <host/platform/BinderDeath.h>
#include <host/platform/BinderThreads.h>
#include <host/platform/LocalBinder.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

// A recipient is only its function. The cookie belongs to the link, so one recipient can be linked
// to many binders.
struct AIBinder_DeathRecipient {
    AIBinder_DeathRecipient_onBinderDied onBinderDied;
};

namespace qoz::host {
namespace {

// A request to call `recipient` with `cookie`. The client owns both.
struct Link {
    AIBinder_DeathRecipient* recipient;
    void* cookie;
    bool operator==(const Link&) const = default;
};

// Whether an object has died, and the links that wait for its death.
struct DeathState {
    std::weak_ptr<ndk::SharedRefBase> object;
    std::vector<Link> links;
    bool dead = false;
};

// The states by object rather than by binder, because an object may have several binders in
// succession.
struct DeathRegistry {
    std::mutex lock;
    std::map<const ndk::SharedRefBase*, DeathState> states GUARDED_BY(lock);
};

// Never destroyed, because binder threads still run when the process exits.
DeathRegistry& deaths() {
    static auto* instance = new DeathRegistry;
    return *instance;
}

// Returns the state of `object` and creates it if necessary. First discards the states of destroyed
// objects, because a new object may have the address of a destroyed one.
DeathState& stateOf(DeathRegistry& all, ndk::SharedRefBase& object) REQUIRES(all.lock) {
    std::erase_if(all.states, [](const auto& entry) { return entry.second.object.expired(); });
    DeathState& state = all.states[&object];
    state.object = object.ref();
    return state;
}

}  // namespace

void announceDeath(ndk::SharedRefBase& object) {
    std::vector<Link> links;
    {
        DeathRegistry& all = deaths();
        const std::lock_guard lock(all.lock);
        DeathState& state = stateOf(all, object);
        if (state.dead) return;
        state.dead = true;
        links.swap(state.links);
    }
    // Without the lock, because a recipient may link or unlink.
    for (const Link& link : links) {
        callOnBinderThread([&link] { link.recipient->onBinderDied(link.cookie); });
    }
}

}  // namespace qoz::host

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
    AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    return onBinderDied == nullptr ? nullptr : new AIBinder_DeathRecipient{onBinderDied};
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    delete recipient;
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    const auto object = qoz::host::objectOf(binder);
    if (object == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    auto& all = qoz::host::deaths();
    const std::lock_guard lock(all.lock);
    auto& state = qoz::host::stateOf(all, *object);
    if (state.dead) return STATUS_DEAD_OBJECT;
    state.links.push_back({recipient, cookie});
    return STATUS_OK;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    const auto object = qoz::host::objectOf(binder);
    if (object == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    auto& all = qoz::host::deaths();
    const std::lock_guard lock(all.lock);
    auto& links = qoz::host::stateOf(all, *object).links;
    const auto found = std::find(links.begin(), links.end(), qoz::host::Link{recipient, cookie});
    if (found == links.end()) return STATUS_NAME_NOT_FOUND;
    links.erase(found);
    return STATUS_OK;
}
