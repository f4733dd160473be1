// SPDX-License-Identifier: Apache-2.0
#include "host/vppd/ServiceObject.h"

#include <host/control.h>
#include <sys/resource.h>

#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

#include "host/vppd/Names.h"

namespace qoz::host::vppd {
namespace {

using vppservice::kClientBudget;
using vppservice::Quota;
using vppservice::Resources;

// Returns the budget of all clients together. It contains the descriptors that this process may
// open, except those that it needs itself. The number of sessions also limits calls, events and
// mapped bytes.
Resources totalBudget() {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    const uint64_t spare = vppservice::kSpareDescriptors;
    Resources all{.sessions = vppservice::kMostSessions,
                  .calls = UINT64_MAX,
                  .descriptors = files.rlim_cur > spare ? files.rlim_cur - spare : 0,
                  .events = UINT64_MAX,
                  .buffers = vppservice::kMostBuffers,
                  .mappedBytes = UINT64_MAX};
    return all;
}

}  // namespace

ServiceObject::ServiceObject(std::shared_ptr<Bus> connection,
                             std::shared_ptr<vppservice::Service> service)
    : KeepsBus{std::move(connection)},
      AdaptorInterfaces(bus->connection(), kServicePath),
      mService(std::move(service)),
      mTotalQuota(std::make_shared<Quota>(totalBudget())) {
    registerAdaptor();
    bus->watchOwners({}, [this](const auto& name, const auto&, const auto& after) {
        if (after.empty() && !name.empty()) endSessionsOf(name);
    });
}

ServiceObject::~ServiceObject() {
    mGate->close();
    unregisterAdaptor();
    bus->stopNotifications();
    endSessionsOf({});
    const auto sessions = mSessions;
    std::unique_lock lock(sessions->lock);
    const android::base::ScopedLockAssertion held(sessions->lock);
    sessions->ended.wait_for(lock, kCallLimit,
                             [&]() REQUIRES(sessions->lock) { return sessions->byPath.empty(); });
}

void ServiceObject::GetNewVppSession(sdbus::Result<sdbus::ObjectPath>&& result, int32_t flags) {
    PendingAnswer answer(mGate, std::move(result));
    const std::string client = getObject().getCurrentlyProcessedMessage()->getSender();
    if (const auto session = makeSession(client)) {
        session->open(mService, flags, std::move(answer));
        return;
    }
    answer.give(sdbus::ObjectPath(kNoSession));
}

// Creates a session. If the client has too many sessions or no thread can be created, logs a
// message and returns null.
std::shared_ptr<SessionObject> ServiceObject::makeSession(const std::string& client) {
    const char* const operation = "getNewVppSession";
    const auto quota = quotaOf(client);
    auto reservation = quota->reserve({.sessions = 1});
    if (!reservation) {
        mRefusals.log(operation, client.c_str(), "too many sessions");
        return nullptr;
    }
    const std::string path = kSessionFolder + std::to_string(++mMade);
    const auto forget = [sessions = mSessions, path] {
        // Declared before the lock, so that the session is destroyed without it.
        std::shared_ptr<SessionObject> ended;
        const std::lock_guard lock(sessions->lock);
        const auto entry = sessions->byPath.find(path);
        if (entry != sessions->byPath.end()) {
            ended = std::move(entry->second);
            sessions->byPath.erase(entry);
        }
        sessions->ended.notify_all();
    };
    try {
        auto session = std::make_shared<SessionObject>(
            bus, path, SessionObject::Client{client, quota, std::move(*reservation)}, forget);
        const std::lock_guard lock(mSessions->lock);
        mSessions->byPath.emplace(path, session);
        return session;
    } catch (const std::system_error& error) {
        mRefusals.log(operation, client.c_str(), error.what());
        return nullptr;
    }
}

// Returns the quota of a client. A quota exists as long as the client has a session or anything
// else that counts against it.
std::shared_ptr<Quota> ServiceObject::quotaOf(const std::string& client) {
    auto quota = mQuotas[client].lock();
    if (quota != nullptr) return quota;
    quota = std::make_shared<Quota>(kClientBudget, mTotalQuota);
    std::erase_if(mQuotas, [](const auto& entry) { return entry.second.expired(); });
    mQuotas[client] = quota;
    return quota;
}

void ServiceObject::GetSessionCount(sdbus::Result<int32_t>&& result) {
    PendingAnswer answer(mGate, std::move(result));
    int32_t count = 0;
    if (mService->getSessionCount(&count).isOk()) answer.give(count);
}

void ServiceObject::GetFaultsFired(sdbus::Result<uint64_t>&& result) {
    PendingAnswer(mGate, std::move(result)).give(faultsFired());
}

void ServiceObject::endSessionsOf(const std::string& client) {
    std::vector<std::shared_ptr<SessionObject>> theirs;
    {
        const std::lock_guard lock(mSessions->lock);
        for (const auto& [path, session] : mSessions->byPath) {
            if (client.empty() || session->client() == client) theirs.push_back(session);
        }
    }
    for (const auto& session : theirs) {
        session->end();
    }
}

}  // namespace qoz::host::vppd
