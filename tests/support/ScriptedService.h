// A VPP service that does what a test tells it and writes down what it was sent.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVppService.h>
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
    uint64_t inode;                  // of the pixels: which buffer it was
    std::vector<std::string> metas;  // names; "" for an entry that was left empty
};

class ScriptedVpp : public host::VppSessionBase {
  public:
    ScriptedVpp();
    ~ScriptedVpp() override;

    // The script, set before the component is let loose.
    std::map<std::string, vpp::VppError> results;  // by operation; "flush0" and "flush1" by port
    std::set<std::string> silent;  // events never sent: "flush0", "flush1", "reconfigure", "drain"
    vpp::VppError reconfigStatus = vpp::VppError::VPP_OK;
    std::function<void(const std::string&)> onCall;  // at the beginning of an operation

    std::vector<std::string> calls() const;
    std::vector<Queued> queued() const;
    std::vector<vpp::VppPortParam> ports() const;  // of setParameter and reconfigure, in order
    std::vector<vpp::VppCtrlFrcSegment> segments() const;  // the list last sent
    std::vector<vpp::VppCtrlAis> aisControls() const;

    // Give buffers back on the calling thread, as a binder thread would.
    void returnInput(int64_t cookie, uint64_t timestamp);
    void returnOutput(int64_t cookie, uint64_t timestamp, uint32_t filledLen);

    // Any event, on this session's own thread.
    void send(std::function<void(vpp::IVppCallbacks&)> event);
    vpp::IVppCallbacks* callbacks() const;

    ndk::ScopedAStatus close(vpp::VppError* result) override;
    ndk::ScopedAStatus drain(vpp::VppError* result) override;
    ndk::ScopedAStatus flush(vpp::VppPort port, vpp::VppError* result) override;
    ndk::ScopedAStatus initSession(int32_t flags, const std::shared_ptr<vpp::IVppCallbacks>& object,
                                   vpp::VppError* result) override;
    ndk::ScopedAStatus open(vpp::VppError* result) override;
    ndk::ScopedAStatus queueBuf(vpp::VppPort port, const vpp::VppBuffer& buffer,
                                vpp::VppError* result) override;
    ndk::ScopedAStatus reconfigure(const vpp::VppPortParam& input, const vpp::VppPortParam& output,
                                   vpp::VppError* result) override;
    ndk::ScopedAStatus setCtrlAis(const vpp::VppCtrlAis& ctrl, vpp::VppError* result) override;
    ndk::ScopedAStatus setCtrlFrc(const std::vector<vpp::VppCtrlFrcSegment>& segments,
                                  vpp::VppError* result) override;
    ndk::ScopedAStatus setCtrlVppMode(int32_t mode, vpp::VppError* result) override;
    ndk::ScopedAStatus setParameter(vpp::VppPort port, const vpp::VppPortParam& param,
                                    vpp::VppError* result) override;
    ndk::ScopedAStatus terminateSession() override;

  private:
    ndk::ScopedAStatus note(const std::string& call, vpp::VppError* result);
    void answer(const std::string& event, std::function<void(vpp::IVppCallbacks&)> action);
    void serve();
    void dropCallbacks();

    mutable std::mutex mLock;
    std::condition_variable mPosted;
    std::shared_ptr<vpp::IVppCallbacks> mCallbacks;
    std::vector<std::string> mCalls;
    std::vector<Queued> mQueued;
    std::vector<vpp::VppPortParam> mPorts;
    std::vector<vpp::VppCtrlFrcSegment> mSegments;
    std::vector<vpp::VppCtrlAis> mAis;
    std::deque<std::function<void(vpp::IVppCallbacks&)>> mEvents;
    bool mEnding = false;
    std::thread mThread;
};

// Registered under the service's instance name while it lives.
class ScriptedService {
  public:
    ScriptedService();
    ~ScriptedService();

    // The session that the next enable gets; null makes the service give none.
    std::shared_ptr<ScriptedVpp> next;

    void unregister();
    void registerAgain();

  private:
    class Factory;
    std::shared_ptr<Factory> mFactory;
};

}  // namespace qoz::test
