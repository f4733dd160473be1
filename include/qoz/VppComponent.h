// SPDX-License-Identifier: Apache-2.0
/// @class android::VppComponent
/// One post-processing session between a client that renders frames and the device's VPP service,
/// which interpolates frames (2x to 4x) and scales them (1x, 1.5x, 2x). examples/minimal is a whole
/// client. Order of calls: construct (owned by a std::shared_ptr), enable(), config(), process()
/// once for each source frame and once for each output buffer, flushsync(), disable().
///
/// Threading: one thread at a time calls the operations. Any thread may at any time call the
/// getters, GetFormat(), dump(), and process() with an output buffer. From within a callback these
/// alone are allowed; everything else is refused there at once, with a message.
///
/// Ownership: what process() takes comes back once through IQOZCallback::onBufferDone(); what it
/// refuses is still the client's. Not given back are sources of the slot QOZBufferInfo::kNoSlot,
/// and what disable() finds with the service or held as the reference frame: call flushsync()
/// first. A service that dies gives everything back without frames, at once, and what is queued
/// later too; flushsync() then leaves ERROR, and disable() and enable() begin a new session.
///
/// Time: the waits of one operation end after three seconds in all; callbacks and calls into the
/// service take the time they take. Nothing of its own is thrown after construction.
#pragma once

#include <android-base/thread_annotations.h>
#include <qoz/ClientTypes.h>
#include <qoz/StorageTypes.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace android {

class __attribute__((visibility("default"))) VppComponent
    : public std::enable_shared_from_this<VppComponent> {
  public:
    /// The state of a session; see toString().
    enum status : int32_t {
        UNINIT = 0,   ///< not enabled
        INIT = 1,     ///< enabled, not started
        IDLE = 2,     ///< flushed; active again with the next output buffer
        ACTIVE = 3,   ///< started
        PENDING = 4,  ///< a flush is under way
        ERROR = 5,    ///< left by disable(), or by a start that succeeds
    };

    /// Reads the system properties vendor.qoz.*, which hold for the object's life. Throws
    /// std::invalid_argument or std::out_of_range when a numeric one does not begin with a number.
    VppComponent();
    /// Does what disable() does. But a session owns its component, too: without disable() nothing
    /// ends.
    virtual ~VppComponent();

    /// Finds the service, opens a session and starts the output worker. `name` begins every log
    /// message; `callback` may be null and outlives the component; `debug` logs changes of state.
    /// Moves the calling thread into the system's cpuset where there are cpusets. False, with the
    /// reason in the log, leaves UNINIT, or ERROR when the service refused the session: then call
    /// disable() first. Waits: about 1.4 s for a service that is not there, and for the worker.
    bool enable(const std::string& name, IQOZCallback* callback, bool debug);

    /// Sets size (pixels), pixel format (QOZFormat) and settings of the sources, and has the worker
    /// start the session. The getters answer for the new settings when this returns. `wait`:
    /// returns when the first start that this component ever made has finished; the next process()
    /// waits for later ones. state() tells whether a first start succeeded; a later one that fails
    /// leaves ACTIVE, or ERROR when its settings were refused, and an error message: to know the
    /// outcome, disable() and enable() before. Waits: also for a start under way and a delivery in
    /// progress.
    void config(uint32_t width, uint32_t height, uint32_t format, ConfigParams params, bool wait);

    /// Takes a source packet (`src`: the frame and, if the client brings its own, the NV12 target
    /// of the conversion) or one output buffer (`dst`), and answers as QOZResult says. An output
    /// buffer whose start fails is given back and refused. A frame is refused while the service
    /// keeps 128. Waits: for a start under way, the conversion, the acquire fence of an NV12 source
    /// that needs no conversion, and at a new size or upscale ratio for the service. Calls back:
    /// both.
    int32_t process(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst);
    /// The same, but an absent `src` is null, never empty, and kRefused when nothing was given.
    int32_t processBuffer(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst);

    /// Has an ACTIVE session return everything it holds, and delivers it: IDLE afterwards, or ERROR
    /// when the service refused, did not answer or died. Nothing in any other state. Waits: for the
    /// service and for the deliveries. Calls back: onBufferDone() for held source slots.
    void flushsync();

    /// Closes the session, ends the worker and lets the internal buffers go; the last source stays
    /// referenced until the next session's first. In ERROR the session stays open: it keeps this
    /// object alive, and late returns may still call the client, until the next enable() or the end
    /// of the service. Waits: 1.2 s for a start under way, and for the worker's last callbacks.
    void disable();

    /// 0 for the RGB formats, else 3; `yuvFormat` receives what the input port carries for it.
    int GetFormat(int format, int& yuvFormat);
    /// Whether the session is ACTIVE for sources of just this size and format. Waits: for a start.
    bool isInputPortEnabled(uint32_t width, uint32_t height, uint32_t format);
    /// Output buffers that one frame needs; also records whether upscaling goes with conversion.
    uint32_t calculateOutBufferReqsPerFrame(ConfigParams params);
    status state() const;                   ///< any thread, without waiting; so are the others
    uint32_t outBufReqsPerFrame() const;    ///< output buffers to queue for each source frame
    uint32_t expectedOutputWidth() const;   ///< pixels, of every output buffer; 0 before config()
    uint32_t expectedOutputHeight() const;  ///< pixels; see expectedOutputWidth()

    /// Writes state, sizes, where the buffers are and what is awaited to `fd`, as text for people.
    /// Waits for nobody but `fd`; an error of the descriptor ends the text.
    void dump(int fd) const;

    /// @cond INTERNAL
    class VppStatus {
      public:
        explicit VppStatus(status s);
        VppStatus& operator=(status s);
        bool operator==(status s) const { return get() == s; }
        bool operator!=(status s) const { return get() != s; }
        status get() const { return mState.load(); }
        void debug() { mDebug = true; }
        static const char* name(status s);

      private:
        std::atomic<status> mState;  // the frame path reads it without mLock
        bool mDebug = false;         // set before the worker starts
    };
    /// @endcond
  private:
    friend class VppComponentPeer;  // defined by the tests

    class IVppCallbacks;   // receives the service's events
    class SessionControl;  // enables and disables
    class StateDump;       // the text of dump()
    struct Parts;          // what does the work

    // `_l` marks a command of the session. Despite the platform's custom its caller does not hold
    // mLock, save flushsync() for its flush.
    bool acquireVppService() REQUIRES(mLock);
    static void waitForService(std::string instance);
    bool processStart_l(uint32_t width, uint32_t height, uint32_t format) EXCLUDES(mLock);
    void checkDownscaleAndSetExpectedResolution();
    void createVppPort(vpp::VppPortParam* port, uint32_t width, uint32_t height, uint32_t format);
    bool configVppFrc(uint64_t timestamp);
    bool configVppAis();
    bool processFlush_l(bool clearYuvPool) EXCLUDES(mEventLock, mExtradataLock, mYuvLock);
    bool processReconfig_l(uint32_t width, uint32_t height, uint32_t format) EXCLUDES(mEventLock);
    bool processDrainDone_l() EXCLUDES(mEventLock);
    void onVppEFD(const vpp::FlushDone& done) EXCLUDES(mEventLock);
    void onVppERD(const vpp::ReconfigDone& done) EXCLUDES(mEventLock);
    void onVppEDD() EXCLUDES(mEventLock);
    bool requestYuvBuffer(sp<GraphicBuffer>* out, const RequestInfo& info) EXCLUDES(mYuvLock);
    bool requestExtradataBuffer(sp<GraphicBuffer>* fw, sp<GraphicBuffer>* bw, const RequestInfo& mv,
                                sp<GraphicBuffer>* ds, const RequestInfo& dsInfo)
        EXCLUDES(mExtradataLock);
    bool checkBufferCompatibility(const sp<GraphicBuffer>& buffer, bool skip);
    bool queueBuffer(const sp<GraphicBuffer>& buffer, SideBuffers& extradata, uint32_t cookie,
                     uint64_t timestamp, bool isInput) EXCLUDES(mLock);
    bool queueVppBuffer(uint32_t cookie, const sp<GraphicBuffer>& buffer, uint64_t timestamp,
                        bool isInput) EXCLUDES(mLock);
    static void releaseNativeHandle(const native_handle_t* handle, bool closeFds);
    void onVppIBD(const vpp::VppBuffer& buffer) EXCLUDES(mBufferDoneLock, mExtradataLock, mYuvLock);
    void onVppOBD(const vpp::VppBuffer& buffer) EXCLUDES(mBufferDoneLock, mVppOBDQueueLock);
    void queueOBD() EXCLUDES(mVppOBDQueueLock);
    void VppOBDworkerThread() EXCLUDES(mOBDCmdLock);

    // The storage of the parts, which own the rules of its use; docs/threads.md has who writes
    // what.
    GraphicBufferMapper& mMapper;
    uint32_t mLogFlags = 0;
    bool mDumpEnable = false, mDumpMvEnable = false;
    uint32_t mDumpFrameCount = 0;
    std::string mName = "unname";
    uint32_t mWidth = 0, mHeight = 0, mFormat = 0, mInputFormat = 0;
    float mUpscaleRatio = 1.0F;
    uint32_t mUpscaleIndex = 0;
    bool mNeedAdditionalBuffer = false, mAisEnabled = false;
    uint32_t mInPortWidth = 0, mInPortHeight = 0, mExpectedOutWidth = 0, mExpectedOutHeight = 0;
    bool mMvEnabled = false, mDsEnabled = false;
    std::list<int32_t> mSlotList;
    uint32_t mOutBufReqsPerFrame = 1, mInterpFactor = 0;
    sp<GraphicBuffer> mPrevSourceBuffer;
    SideBuffers mExtraBuffers;
    bool mDoubleOutput = false, mNeedDownscaleResult = false, mIsFirstFrame = true;
    IQOZCallback* mCallback = nullptr;
    bool mReconfigDone GUARDED_BY(mEventLock) = false, mInputFlushDone
                                                       GUARDED_BY(mEventLock) = false;
    bool mOutputFlushDone GUARDED_BY(mEventLock) = false, mDrainDone GUARDED_BY(mEventLock) = false;
    uint32_t mMaxWidth = 0, mMaxHeight = 0;
    std::function<bool(uint32_t, uint32_t, uint32_t, uint32_t)> mNeedDownscale;
    std::vector<vpp::VppCtrlFrcSegment> mFrcSegments;
    std::atomic<uint64_t> mLastOutputTimestamp{0};
    bool mOBDThreadReady GUARDED_BY(mOBDStateLock) = false, mStartDone
                                                            GUARDED_BY(mOBDStateLock) = false;
    std::atomic<bool> mOBDThreadRunning{false}, mStartPending{false};
    std::shared_ptr<vpp::IVppService> mVppService;
    std::shared_ptr<vpp::IVpp> mVpp;
    Rgb2Yuv* mRgb2Yuv = nullptr;
    std::mutex mLock, mEventLock;
    std::condition_variable mEventCond;
    std::mutex mBufferDoneLock;
    uint32_t mInputBuffersInVpp GUARDED_BY(mBufferDoneLock) = 0;
    uint32_t mOutputBuffersInVpp GUARDED_BY(mBufferDoneLock) = 0;
    std::unordered_map<uint64_t, SideBuffers> mExtradataBufferMap GUARDED_BY(mExtradataLock);
    std::mutex mExtradataLock;
    std::set<uint64_t> mFreeExtradataIndex GUARDED_BY(mExtradataLock);
    std::unordered_map<uint64_t, sp<GraphicBuffer>> mYuvBufferMap GUARDED_BY(mYuvLock);
    std::mutex mYuvLock;
    std::set<uint64_t> mFreeYuvIndex GUARDED_BY(mYuvLock);
    VppStatus mStatus{UNINIT};
    std::array<vpp::VppBuffer, 64> mOBDBuffers GUARDED_BY(mVppOBDQueueLock);
    std::mutex mVppOBDQueueLock;
    vpp::VppBuffer* mCurrentOBD GUARDED_BY(mVppOBDQueueLock) = nullptr;
    std::deque<vpp::VppBuffer*> mVppOBDQueue GUARDED_BY(mVppOBDQueueLock);
    int32_t mOBDCmd = 0;
    std::mutex mOBDCmdLock;
    std::condition_variable mOBDCmdCond;
    std::mutex mOBDStateLock;
    std::condition_variable mOBDStateCond;
    std::thread mOBDThread;
    bool mOBDLoop = false;
    std::unique_ptr<Parts> mParts;  // never null
};

/// The name of a state: "UNINIT", "INIT", "IDLE", "ACTIVE", "PENDING" or "ERROR".
__attribute__((visibility("default"))) const char* toString(VppComponent::status s);

}  // namespace android
