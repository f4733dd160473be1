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

struct AIBinder_DeathRecipient {
    AIBinder_DeathRecipient_onBinderDied onBinderDied;
};

namespace qoz::host {
namespace {

struct Link {
    AIBinder_DeathRecipient* recipient;
    void* cookie;
    bool operator==(const Link&) const = default;
};

// What is known of one object. Entries of objects that have been destroyed are dropped whenever
// another object is looked up for a link.
struct Mortal {
    std::weak_ptr<ndk::SharedRefBase> object;
    std::vector<Link> links;
    bool dead = false;
};

// Links by the object behind the binder, of which there may be several binders. Never destroyed:
// binder threads run to the very end of the process.
struct Register {
    std::mutex lock;
    std::map<const ndk::SharedRefBase*, Mortal> mortals GUARDED_BY(lock);
};

Register& deaths() {
    static auto* instance = new Register;
    return *instance;
}

// The entry of `object`, made if need be.
Mortal& entryOf(Register& all, ndk::SharedRefBase& object) REQUIRES(all.lock) {
    std::erase_if(all.mortals, [](const auto& entry) { return entry.second.object.expired(); });
    Mortal& entry = all.mortals[&object];
    entry.object = object.ref();
    return entry;
}

}  // namespace

void announceDeath(ndk::SharedRefBase& object) {
    std::vector<Link> links;
    {
        Register& all = deaths();
        const std::lock_guard lock(all.lock);
        Mortal& entry = entryOf(all, object);
        if (entry.dead) return;
        entry.dead = true;
        links.swap(entry.links);
    }
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
    auto& entry = qoz::host::entryOf(all, *object);
    if (entry.dead) return STATUS_DEAD_OBJECT;
    entry.links.push_back({recipient, cookie});
    return STATUS_OK;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    const auto object = qoz::host::objectOf(binder);
    if (object == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    auto& all = qoz::host::deaths();
    const std::lock_guard lock(all.lock);
    auto& links = qoz::host::entryOf(all, *object).links;
    const auto found = std::find(links.begin(), links.end(), qoz::host::Link{recipient, cookie});
    if (found == links.end()) return STATUS_NAME_NOT_FOUND;
    links.erase(found);
    return STATUS_OK;
}
