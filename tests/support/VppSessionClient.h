// SPDX-License-Identifier: Apache-2.0
// A client of one session of the simulated service. Like the component, it uses IVpp.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/BnVppCallbacks.h>
#include <aidl/vendor/vuq/hardware/vpp/IVppService.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <host/control.h>
#include <host/platform/ServiceRegistry.h>

#include <algorithm>
#include <optional>
#include <thread>

#include "support/Fixture.h"
#include "support/Pixels.h"
#include "vpp/RecordFields.h"

namespace qoz::test {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;
using android::setUnsigned;
using android::unsignedOf;
using vpp::IVpp;
using vpp::VppBuffer;
using vpp::VppError;
using vpp::VppPort;
using Lines = std::vector<std::string>;
using Factors = std::vector<std::pair<int64_t, int>>;  // start timestamp, interpolation factor

constexpr int64_t kOutputBit = static_cast<int64_t>(0xFFFFFFFF80000000);

// Records the events of a session as text: "output 3 at 1000, 4608 bytes", "flush 0", "drain".
// Thread-safe.
class SessionRecorder : public vpp::BnVppCallbacks {
  public:
    ~SessionRecorder() override {
        if (onEnd) onEnd();
    }
    std::function<void(const std::string&)> onSeen;  // called on the event's thread, without a lock
    std::function<void()> onEnd;                     // called by the destructor
    bool mayComeWithin = false;                      // whether events may use the client's thread

    Lines seen(const std::string& what = "") {  // lines that begin with `what`
        const std::lock_guard lock(mLock);
        return held(what);
    }
    bool await(const std::string& what, size_t times = 1) {
        std::unique_lock lock(mLock);
        return mCond.wait_for(lock, kSoon, [&] { return held(what).size() >= times; });
    }

    using Status = ndk::ScopedAStatus;
    Status eventDrainDone(VppError* r) override { return note("drain", r); }
    Status eventError(VppError, VppError* r) override { return note("error", r); }
    Status eventFlushDone(const vpp::FlushDone& done, VppError* r) override {
        return note("flush " + std::to_string(done.port), r);
    }
    Status eventReconfigDone(const vpp::ReconfigDone& done, VppError* r) override {
        return note("reconfig " + std::to_string(done.status), r);
    }
    Status inputBufferDone(const VppBuffer& b, VppError* r) override {
        return note("input " + textOf(b, 0), r);
    }
    Status outputBufferDone(const VppBuffer& b, VppError* r) override {
        return note((b.pixelFilledLen != 0 ? "output " : "unfilled ") + textOf(b, kOutputBit), r);
    }

  private:
    static std::string textOf(const VppBuffer& b, int64_t bit) {
        return std::to_string(b.cookie - bit) + " at " + std::to_string(unsignedOf(b.timestamp)) +
               ", " + std::to_string(unsignedOf(b.pixelFilledLen)) + " bytes";
    }
    Lines held(const std::string& what) const {
        Lines lines = mSeen;
        std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(what); });
        return lines;
    }
    Status note(const std::string& line, VppError* result) {
        const bool within = std::this_thread::get_id() == mClient;
        EXPECT_FALSE(within && !mayComeWithin) << "called back from within a call";
        *result = VppError::VPP_OK;
        if (onSeen) onSeen(line);
        const std::lock_guard lock(mLock);
        mSeen.push_back(line);
        mCond.notify_all();
        return Status::ok();
    }

    const std::thread::id mClient = std::this_thread::get_id();
    std::mutex mLock;
    std::condition_variable mCond;
    Lines mSeen;
};

constexpr int32_t kFrameMode = 2;  // the mode that sessions accept

struct Size {
    int width, height;
};
constexpr Size kSmall{64, 48};

inline vpp::VppPortParam port(Size size) {
    return {size.height, size.width, size.width, size.height, 3};
}
inline sp<GraphicBuffer> frame(Size size, const Picture& luma = flat(0),
                               const Picture& chroma = flat(128)) {
    return painted(size.width, size.height, kNv12Vemo, luma, chroma);
}

using Handle = ::aidl::android::hardware::common::NativeHandle;
inline uint32_t share(const sp<GraphicBuffer>& buffer, Handle* with) {
    with->fds.emplace_back(fcntl(buffer->handle->data[0], F_DUPFD_CLOEXEC, 0));
    return sizeOf(buffer);
}
inline VppBuffer record(const sp<GraphicBuffer>& pixels, int64_t cookie, uint64_t timestamp) {
    VppBuffer buffer;
    buffer.pixelAllocLen = buffer.pixelSize = share(pixels, &buffer.pixelHandle);
    buffer.pixelFilledLen = cookie < 0 ? 0 : buffer.pixelAllocLen;  // a source holds a frame
    buffer.cookie = cookie;
    setUnsigned(buffer.timestamp, timestamp);
    return buffer;
}
inline vpp::VppMetaBuffer& attach(VppBuffer& buffer, const char* name,
                                  const sp<GraphicBuffer>& side) {
    vpp::VppMetaBuffer& meta = buffer.metaBuffers.emplace_back();
    meta.metaName = name;
    meta.metaAllocLen = share(side, &meta.metaHandle);
    return meta;
}
constexpr char kForward[] = "vpp.metabuf.mv.fw";
constexpr char kBackward[] = "vpp.metabuf.mv.bw";
constexpr char kHalf[] = "vpp.metabuf.scale.0p5";

inline std::shared_ptr<vpp::IVppService> registeredService() {
    const std::string name = host::defaultInstance<vpp::IVppService>();
    return vpp::IVppService::fromBinder(
        ndk::SpAIBinder(AServiceManager_checkService(name.c_str())));
}
inline std::shared_ptr<IVpp> newSession() {
    std::shared_ptr<IVpp> session;
    if (const auto service = registeredService()) service->getNewVppSession(0, &session);
    return session;
}

// A fixture for tests of the simulated service: the service, one session, and its recorder.
class VppServiceTest : public ResourceTest {
  protected:
    void SetUp() override {
        ResourceTest::SetUp();
        mService.emplace();
    }
    void TearDown() override {
        mSession = nullptr;
        mRecorder = nullptr;
        mService.reset();
        ResourceTest::TearDown();
    }

    // Calls an operation of the session. Returns its result, or -1 on a transport error.
    template <typename... Formal, typename... Given>
    int ask(ndk::ScopedAStatus (IVpp::*operation)(Formal...), const Given&... given) {
        VppError result = VppError::VPP_OK;
        const bool ok = (mSession.get()->*operation)(given..., &result).isOk();
        return ok ? static_cast<int>(result) : -1;
    }
    // Creates and opens a session for this test.
    void openAt(int factor, Size in = kSmall, Size out = kSmall) {
        mRecorder = ndk::SharedRefBase::make<SessionRecorder>();
        mSession = newSession();
        ASSERT_EQ(ask(&IVpp::initSession, 0, mRecorder), 0);
        EXPECT_EQ(ask(&IVpp::setCtrlVppMode, kFrameMode), 0);
        EXPECT_EQ(steer({{0, factor}}), 0);
        EXPECT_EQ(ask(&IVpp::setParameter, VppPort::INPUT, port(in)), 0);
        EXPECT_EQ(ask(&IVpp::setParameter, VppPort::OUTPUT, port(out)), 0);
        EXPECT_EQ(ask(&IVpp::open), 0);
    }
    int steer(const Factors& factors) {
        std::vector<vpp::VppCtrlFrcSegment> segments(factors.size());
        for (size_t i = 0; i < factors.size(); ++i) {
            segments[i].mode = 5;
            segments[i].interpLevel = 3;
            std::tie(segments[i].startTimestamp, segments[i].interpFactor) = factors[i];
        }
        return ask(&IVpp::setCtrlFrc, segments);
    }
    int flush(VppPort which) { return ask(&IVpp::flush, which); }
    int queue(VppPort to, const VppBuffer& b) { return ask(&IVpp::queueBuf, to, b); }
    int queueOutput(int id, const sp<GraphicBuffer>& output = frame(kSmall)) {
        return queue(VppPort::OUTPUT, record(output, id | kOutputBit, 1));
    }
    int source(int id, uint64_t timestamp, const sp<GraphicBuffer>& pixels = frame(kSmall)) {
        return queue(VppPort::INPUT, record(pixels, id, timestamp));
    }
    // Queues this many buffers on each port, numbered from 0. The sources have the timestamps 1000,
    // 2000 and so on.
    void feed(int outputs, int sources) {
        for (int i = 0; i < outputs; ++i)
            EXPECT_EQ(queueOutput(i), 0);
        for (int i = 0; i < sources; ++i)
            EXPECT_EQ(source(i, 1000 + 1000 * static_cast<uint64_t>(i)), 0);
    }

    std::optional<VppService> mService;
    std::shared_ptr<IVpp> mSession;
    std::shared_ptr<SessionRecorder> mRecorder;
};

}  // namespace qoz::test
