// SPDX-License-Identifier: Apache-2.0
#include "support/ScriptedService.h"

#include <host/platform/BinderDeath.h>
#include <sys/stat.h>

#include <utility>

#include "vpp/RecordFields.h"

namespace qoz::test {

using android::setUnsigned;
using android::unsignedOf;

namespace {

// Set on a session's own thread if the session is destroyed there. That happens if the thread
// releases the last reference to a callback object, and thereby destroys the component and the
// session.
thread_local bool tSessionGone = false;

Queued describe(vpp::VppPort port, const vpp::VppBuffer& buffer) {
    const auto& fds = buffer.pixelHandle.fds;
    Queued result{port,
                  unsignedOf(buffer.timestamp),
                  buffer.cookie,
                  unsignedOf(buffer.pixelAllocLen),
                  unsignedOf(buffer.pixelFilledLen),
                  unsignedOf(buffer.pixelSize),
                  fds.size(),
                  fds.empty() ? 0 : inodeOf(fds[0].get())};
    for (const auto& meta : buffer.metaBuffers)
        result.metas.push_back(meta.metaHandle.fds.size() == 1 ? meta.metaName : "");
    return result;
}

vpp::VppBuffer returned(int64_t cookie, uint64_t timestamp, uint32_t filledLen) {
    vpp::VppBuffer buffer;
    buffer.cookie = cookie;
    setUnsigned(buffer.timestamp, timestamp);
    setUnsigned(buffer.pixelFilledLen, filledLen);
    return buffer;
}

}  // namespace

uint64_t inodeOf(int fd) {
    struct stat info {};
    return fstat(fd, &info) == 0 ? info.st_ino : 0;
}

ScriptedVpp::~ScriptedVpp() {
    {
        const std::lock_guard lock(mLock);
        mEnding = true;
        mPosted.notify_one();
    }
    tSessionGone = mThread.get_id() == std::this_thread::get_id();
    tSessionGone ? mThread.detach() : mThread.join();
}

ndk::ScopedAStatus ScriptedVpp::note(const std::string& call, Error* result,
                                     const std::function<void()>& record, Event answer) {
    if (read(mDead)) return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    const auto scripted = results.find(call);
    const Error code = scripted != results.end() ? scripted->second : Error::VPP_OK;
    if (scripted != results.end() && result != nullptr) *result = code;
    if (onCall) onCall(call);
    {
        const std::lock_guard lock(mLock);
        if (record) record();
        mCalls.push_back(call);
    }
    if (answer && code == Error::VPP_OK && !silent.contains(call)) send(std::move(answer));
    return ndk::ScopedAStatus::ok();
}

void ScriptedVpp::die() {
    // Destroyed without the lock, because this may destroy the component, which calls the session.
    std::shared_ptr<vpp::IVppCallbacks> dropped;
    {
        const std::lock_guard lock(mLock);
        mDead = true;
        dropped = std::move(mCallbacks);
    }
    host::announceDeath(*this);
}

void ScriptedVpp::send(Event event) {
    const std::lock_guard lock(mLock);
    mEvents.push_back(std::move(event));
    mPosted.notify_one();
}

void ScriptedVpp::serve() {
    std::unique_lock lock(mLock);
    for (;;) {
        mPosted.wait(lock, [this] { return mEnding || !mEvents.empty(); });
        if (mEnding) return;
        const auto event = std::move(mEvents.front());
        mEvents.pop_front();
        std::shared_ptr<vpp::IVppCallbacks> target = mCallbacks;
        lock.unlock();
        Error result = Error::VPP_OK;
        if (target != nullptr) event(*target, &result);
        target.reset();
        if (tSessionGone) return;
        lock.lock();
    }
}

void ScriptedVpp::returnInput(int64_t cookie, uint64_t timestamp) {
    Error result = Error::VPP_ERR;
    (void)read(mCallbacks)->inputBufferDone(returned(cookie, timestamp, 0), &result);
}

void ScriptedVpp::returnOutput(int64_t cookie, uint64_t timestamp, uint32_t filledLen) {
    Error result = Error::VPP_ERR;
    (void)read(mCallbacks)->outputBufferDone(returned(cookie, timestamp, filledLen), &result);
}

ndk::ScopedAStatus ScriptedVpp::drain(Error* result) {
    return note("drain", result, {},
                [](vpp::IVppCallbacks& to, Error* r) { return to.eventDrainDone(r); });
}

ndk::ScopedAStatus ScriptedVpp::flush(Port port, Error* result) {
    return note(onPort("flush", port), result, {}, [port](vpp::IVppCallbacks& to, Error* r) {
        return to.eventFlushDone({static_cast<int32_t>(port)}, r);
    });
}

ndk::ScopedAStatus ScriptedVpp::queueBuf(Port port, const vpp::VppBuffer& buffer, Error* result) {
    return note(onPort("queueBuf", port), result,
                [&] { mQueued.push_back(describe(port, buffer)); });
}

ndk::ScopedAStatus ScriptedVpp::reconfigure(const PortParam& input, const PortParam& output,
                                            Error* result) {
    return note(
        "reconfigure", result,
        [&] {
            mPorts.insert(mPorts.end(), {input, output});
        },
        [status = reconfigStatus](vpp::IVppCallbacks& to, Error* r) {
            return to.eventReconfigDone({static_cast<int32_t>(status)}, r);
        });
}

ndk::ScopedAStatus ScriptedVpp::terminateSession() {
    // Destroyed without the lock, because this may destroy the component, which calls the session.
    std::shared_ptr<vpp::IVppCallbacks> dropped;
    return note("terminateSession", nullptr, [&] { dropped = std::move(mCallbacks); });
}

}  // namespace qoz::test
