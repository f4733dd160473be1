// SPDX-License-Identifier: Apache-2.0
// A VPP service that gives the answers in a test's script and records the calls that it receives.
#pragma once

#include <host/vppservice/SingleSessionService.h>
#include <host/vppservice/VppSessionBase.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace qoz::test {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

// The contents of one queueBuf record.
struct Queued {
    vpp::VppPort port;
    uint64_t timestamp;
    int64_t cookie;
    uint32_t allocLen;
    uint32_t filledLen;
    uint32_t size;
    size_t descriptors;
    uint64_t inode;                       // of the pixel memory; identifies the buffer
    std::vector<std::string> metas = {};  // names; "" for an entry without a descriptor
};

uint64_t inodeOf(int fd);

// The session. It answers every call with the scripted result, or else with VPP_OK, and sends the
// event that completes a command from a thread of its own.
class ScriptedVpp : public host::VppSessionBase {
  public:
    // Calls one callback; the second argument receives its result.
    using Event = std::function<void(vpp::IVppCallbacks&, vpp::VppError*)>;

    ScriptedVpp() : mThread([this] { serve(); }) {}
    ~ScriptedVpp() override;

    // The script. It must be set before the component uses the session.
    std::map<std::string, vpp::VppError> results;  // by operation; "flush0" and "flush1" by port
    std::set<std::string> silent;  // events never sent: "flush0", "flush1", "reconfigure", "drain"
    vpp::VppError reconfigStatus = vpp::VppError::VPP_OK;
    std::function<void(const std::string&)> onCall;  // called first, on the caller's thread

    std::vector<std::string> calls() const { return read(mCalls); }
    std::vector<Queued> queued() const { return read(mQueued); }
    // The parameters of setParameter and reconfigure, in order.
    std::vector<vpp::VppPortParam> ports() const { return read(mPorts); }
    std::vector<vpp::VppCtrlFrcSegment> segments() const { return read(mSegments); }  // last sent
    std::vector<vpp::VppCtrlAis> aisControls() const { return read(mAis); }
    std::vector<int32_t> modes() const { return read(mModes); }

    // Return a buffer to the component on the calling thread, in place of a binder thread.
    void returnInput(int64_t cookie, uint64_t timestamp);
    void returnOutput(int64_t cookie, uint64_t timestamp, uint32_t filledLen);

    // Makes every later call fail with a transport error. Returns after the death recipients have
    // been notified.
    void die();

    // Sends any event from this session's own thread.
    void send(Event event);
    vpp::IVppCallbacks* callbacks() const { return callbackObject().get(); }
    std::shared_ptr<vpp::IVppCallbacks> callbackObject() const { return read(mCallbacks); }

    Status close(Error* result) override { return note("close", result); }
    Status drain(Error* result) override;
    Status flush(Port port, Error* result) override;
    Status initSession(int32_t, const std::shared_ptr<vpp::IVppCallbacks>& object,
                       Error* result) override {
        return note("initSession", result, [&] { mCallbacks = object; });
    }
    Status open(Error* result) override { return note("open", result); }
    Status queueBuf(Port port, const vpp::VppBuffer& buffer, Error* result) override;
    Status reconfigure(const PortParam& input, const PortParam& output, Error* result) override;
    Status setCtrlAis(const vpp::VppCtrlAis& ctrl, Error* result) override {
        return note("setCtrlAis", result, [&] { mAis.push_back(ctrl); });
    }
    Status setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& list, Error* result) override {
        return note("setCtrlFrc", result, [&] { mSegments = list; });
    }
    Status setCtrlVppMode(int32_t mode, Error* result) override {
        return note("setCtrlVppMode", result, [&] { mModes.push_back(mode); });
    }
    Status setParameter(Port port, const PortParam& param, Error* result) override {
        return note(onPort("setParameter", port), result, [&] { mPorts.push_back(param); });
    }
    Status terminateSession() override;

  private:
    static std::string onPort(const char* operation, Port port) {
        return operation + std::to_string(static_cast<int32_t>(port));
    }

    // Handles one call. `record` records its arguments. `answer` is sent afterwards unless the
    // script refuses the call or silences the event.
    Status note(const std::string& call, Error* result, const std::function<void()>& record = {},
                Event answer = {});
    void serve();

    template <typename T>
    T read(const T& kept) const {
        const std::lock_guard lock(mLock);
        return kept;
    }

    mutable std::mutex mLock;
    std::condition_variable mPosted;
    std::shared_ptr<vpp::IVppCallbacks> mCallbacks;
    std::vector<std::string> mCalls;
    std::vector<Queued> mQueued;
    std::vector<vpp::VppPortParam> mPorts;
    std::vector<vpp::VppCtrlFrcSegment> mSegments;
    std::vector<vpp::VppCtrlAis> mAis;
    std::vector<int32_t> mModes;
    std::deque<Event> mEvents;
    bool mEnding = false;
    bool mDead = false;
    std::thread mThread;
};

using ScriptedService = host::SingleSessionService<ScriptedVpp>;

}  // namespace qoz::test
