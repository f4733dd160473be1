// SPDX-License-Identifier: Apache-2.0
// A VPP service that does what a test tells it and writes down what it was sent.
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

// What a queueBuf carried.
struct Queued {
    vpp::VppPort port;
    uint64_t timestamp;
    int64_t cookie;
    uint32_t allocLen;
    uint32_t filledLen;
    uint32_t size;
    size_t descriptors;
    uint64_t inode;                       // of the pixels: which buffer it was
    std::vector<std::string> metas = {};  // names; "" for an entry that was left empty
};

uint64_t inodeOf(int fd);

class ScriptedVpp : public host::VppSessionBase {
  public:
    // Called with a result to write to.
    using Event = std::function<void(vpp::IVppCallbacks&, vpp::VppError*)>;

    ScriptedVpp() : mThread([this] { serve(); }) {}
    ~ScriptedVpp() override;

    // The script, set before the component is let loose.
    std::map<std::string, vpp::VppError> results;  // by operation; "flush0" and "flush1" by port
    std::set<std::string> silent;  // events never sent: "flush0", "flush1", "reconfigure", "drain"
    vpp::VppError reconfigStatus = vpp::VppError::VPP_OK;
    std::function<void(const std::string&)> onCall;  // at the beginning of an operation

    std::vector<std::string> calls() const { return read(mCalls); }
    std::vector<Queued> queued() const { return read(mQueued); }
    // Of setParameter and reconfigure, in order.
    std::vector<vpp::VppPortParam> ports() const { return read(mPorts); }
    std::vector<vpp::VppCtrlFrcSegment> segments() const { return read(mSegments); }  // last sent
    std::vector<vpp::VppCtrlAis> aisControls() const { return read(mAis); }

    // Give buffers back on the calling thread, as a binder thread would.
    void returnInput(int64_t cookie, uint64_t timestamp);
    void returnOutput(int64_t cookie, uint64_t timestamp, uint32_t filledLen);

    // From now on no call gets through; returns when those linked to this death have been told.
    void die();

    // Any event, on this session's own thread.
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
    Status setCtrlVppMode(int32_t, Error* result) override {
        return note("setCtrlVppMode", result);
    }
    Status setParameter(Port port, const PortParam& param, Error* result) override {
        return note(onPort("setParameter", port), result, [&] { mPorts.push_back(param); });
    }
    Status terminateSession() override;

  private:
    static std::string onPort(const char* operation, Port port) {
        return operation + std::to_string(static_cast<int32_t>(port));
    }

    // `record` writes down what the call carried; `answer` follows a call that is not refused.
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
    std::deque<Event> mEvents;
    bool mEnding = false;
    bool mDead = false;
    std::thread mThread;
};

using ScriptedService = host::SingleSessionService<ScriptedVpp>;

}  // namespace qoz::test
