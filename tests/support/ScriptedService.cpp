#include "support/ScriptedService.h"

#include <host/platform/ServiceRegistry.h>
#include <sys/stat.h>

#include <utility>

namespace qoz::test {

using vpp::VppError;
using vpp::VppPort;

namespace {

std::string onPort(const char* operation, VppPort port) {
    return operation + std::to_string(static_cast<int32_t>(port));
}

// Set on a session's own thread when the session ended there, with the component that an event's
// callback object had kept.
thread_local bool tSessionGone = false;

uint64_t inodeOf(int fd) {
    struct stat info {};
    return fstat(fd, &info) == 0 ? info.st_ino : 0;
}

Queued describe(VppPort port, const vpp::VppBuffer& buffer) {
    Queued result{port,
                  buffer.timestamp,
                  buffer.cookie,
                  buffer.pixelAllocLen,
                  buffer.pixelFilledLen,
                  buffer.pixelSize,
                  buffer.pixelHandle.fds.size(),
                  buffer.pixelHandle.fds.empty() ? 0 : inodeOf(buffer.pixelHandle.fds[0].get()),
                  {}};
    for (const auto& meta : buffer.metaBuffers) {
        result.metas.push_back(meta.metaHandle.fds.size() == 1 ? meta.metaName : "");
    }
    return result;
}

}  // namespace

ScriptedVpp::ScriptedVpp() : mThread([this] { serve(); }) {}

ScriptedVpp::~ScriptedVpp() {
    {
        const std::lock_guard lock(mLock);
        mEnding = true;
        mPosted.notify_one();
    }
    tSessionGone = mThread.get_id() == std::this_thread::get_id();
    tSessionGone ? mThread.detach() : mThread.join();
}

ndk::ScopedAStatus ScriptedVpp::note(const std::string& call, VppError* result) {
    if (onCall) onCall(call);
    const std::lock_guard lock(mLock);
    mCalls.push_back(call);
    const auto scripted = results.find(call);
    if (result != nullptr && scripted != results.end()) *result = scripted->second;
    return ndk::ScopedAStatus::ok();
}

void ScriptedVpp::answer(const std::string& event,
                         std::function<void(vpp::IVppCallbacks&)> action) {
    const bool refused = results.contains(event) && results[event] != VppError::VPP_OK;
    if (!refused && !silent.contains(event)) send(std::move(action));
}

void ScriptedVpp::send(std::function<void(vpp::IVppCallbacks&)> event) {
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
        if (target != nullptr) event(*target);
        target.reset();
        if (tSessionGone) return;
        lock.lock();
    }
}

vpp::IVppCallbacks* ScriptedVpp::callbacks() const {
    const std::lock_guard lock(mLock);
    return mCallbacks.get();
}

void ScriptedVpp::returnInput(int64_t cookie, uint64_t timestamp) {
    vpp::VppBuffer buffer;
    buffer.cookie = cookie;
    buffer.timestamp = timestamp;
    VppError result = VppError::VPP_ERR;
    (void)callbacks()->inputBufferDone(buffer, &result);
}

void ScriptedVpp::returnOutput(int64_t cookie, uint64_t timestamp, uint32_t filledLen) {
    vpp::VppBuffer buffer;
    buffer.cookie = cookie;
    buffer.timestamp = timestamp;
    buffer.pixelFilledLen = filledLen;
    VppError result = VppError::VPP_ERR;
    (void)callbacks()->outputBufferDone(buffer, &result);
}

std::vector<std::string> ScriptedVpp::calls() const {
    const std::lock_guard lock(mLock);
    return mCalls;
}

std::vector<Queued> ScriptedVpp::queued() const {
    const std::lock_guard lock(mLock);
    return mQueued;
}

std::vector<vpp::VppPortParam> ScriptedVpp::ports() const {
    const std::lock_guard lock(mLock);
    return mPorts;
}

std::vector<vpp::VppCtrlFrcSegment> ScriptedVpp::segments() const {
    const std::lock_guard lock(mLock);
    return mSegments;
}

std::vector<vpp::VppCtrlAis> ScriptedVpp::aisControls() const {
    const std::lock_guard lock(mLock);
    return mAis;
}

ndk::ScopedAStatus ScriptedVpp::close(VppError* result) {
    return note("close", result);
}

ndk::ScopedAStatus ScriptedVpp::drain(VppError* result) {
    auto status = note("drain", result);
    answer("drain", [](vpp::IVppCallbacks& c) {
        VppError r = VppError::VPP_OK;
        (void)c.eventDrainDone(&r);
    });
    return status;
}

ndk::ScopedAStatus ScriptedVpp::flush(VppPort port, VppError* result) {
    auto status = note(onPort("flush", port), result);
    answer(onPort("flush", port), [port](vpp::IVppCallbacks& c) {
        VppError r = VppError::VPP_OK;
        vpp::FlushDone done;
        done.port = static_cast<int32_t>(port);
        (void)c.eventFlushDone(done, &r);
    });
    return status;
}

ndk::ScopedAStatus ScriptedVpp::initSession(int32_t, const std::shared_ptr<vpp::IVppCallbacks>& o,
                                            VppError* result) {
    {
        const std::lock_guard lock(mLock);
        mCallbacks = o;
    }
    return note("initSession", result);
}

ndk::ScopedAStatus ScriptedVpp::open(VppError* result) {
    return note("open", result);
}

ndk::ScopedAStatus ScriptedVpp::queueBuf(VppPort port, const vpp::VppBuffer& buffer,
                                         VppError* result) {
    {
        const std::lock_guard lock(mLock);
        mQueued.push_back(describe(port, buffer));
    }
    return note(onPort("queueBuf", port), result);
}

ndk::ScopedAStatus ScriptedVpp::reconfigure(const vpp::VppPortParam& input,
                                            const vpp::VppPortParam& output, VppError* result) {
    {
        const std::lock_guard lock(mLock);
        mPorts.insert(mPorts.end(), {input, output});
    }
    auto status = note("reconfigure", result);
    answer("reconfigure", [this](vpp::IVppCallbacks& c) {
        VppError r = VppError::VPP_OK;
        vpp::ReconfigDone done;
        done.status = static_cast<int32_t>(reconfigStatus);
        (void)c.eventReconfigDone(done, &r);
    });
    return status;
}

ndk::ScopedAStatus ScriptedVpp::setCtrlAis(const vpp::VppCtrlAis& ctrl, VppError* result) {
    {
        const std::lock_guard lock(mLock);
        mAis.push_back(ctrl);
    }
    return note("setCtrlAis", result);
}

ndk::ScopedAStatus ScriptedVpp::setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments,
                                           VppError* result) {
    {
        const std::lock_guard lock(mLock);
        mSegments = segments;
    }
    return note("setCtrlFrc", result);
}

ndk::ScopedAStatus ScriptedVpp::setCtrlVppMode(int32_t, VppError* result) {
    return note("setCtrlVppMode", result);
}

ndk::ScopedAStatus ScriptedVpp::setParameter(VppPort port, const vpp::VppPortParam& param,
                                             VppError* result) {
    {
        const std::lock_guard lock(mLock);
        mPorts.push_back(param);
    }
    return note(onPort("setParameter", port), result);
}

ndk::ScopedAStatus ScriptedVpp::terminateSession() {
    dropCallbacks();
    return note("terminateSession", nullptr);
}

void ScriptedVpp::dropCallbacks() {
    std::shared_ptr<vpp::IVppCallbacks> dropped;  // its end may reach back here: not under the lock
    const std::lock_guard lock(mLock);
    dropped = std::move(mCallbacks);
}

class ScriptedService::Factory : public vpp::BnVppService {
  public:
    explicit Factory(ScriptedService& owner) : mOwner(owner) {}

    ndk::ScopedAStatus getNewVppSession(int32_t, std::shared_ptr<vpp::IVpp>* result) override {
        *result = mOwner.next;
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus getSessionCount(int32_t* result) override {
        *result = 1;
        return ndk::ScopedAStatus::ok();
    }

  private:
    ScriptedService& mOwner;
};

namespace {
std::string instanceName() {
    return std::string(vpp::IVppService::descriptor) + "/default";
}
}  // namespace

ScriptedService::ScriptedService()
    : next(ndk::SharedRefBase::make<ScriptedVpp>()),
      mFactory(ndk::SharedRefBase::make<Factory>(*this)) {
    registerAgain();
}

ScriptedService::~ScriptedService() {
    unregister();
}

void ScriptedService::unregister() {
    host::removeService(instanceName());
}

void ScriptedService::registerAgain() {
    host::addService(instanceName(), mFactory->asBinder());
}

}  // namespace qoz::test
