// SPDX-License-Identifier: Apache-2.0
/// @class android::VppComponent
/// Sessions, one at a time, between a client that renders frames and the device's VPP service,
/// which interpolates frames (2x to 4x the frame rate) and scales them (1x, 1.5x, 2x); see
/// examples/minimal. Order of calls: construct (owned by a std::shared_ptr), enable(), config(),
/// process() once for each source frame and once for each output buffer, flushsync(), disable().
///
/// Threading: the client must call the operations from one thread at a time. The getters,
/// calculateOutBufferReqsPerFrame(), GetFormat(), dump() and process() with an output buffer may be
/// called on any thread at any time. Only these are allowed from within a callback; every other
/// operation is refused there at once, with a message. Callbacks run on the operation's calling
/// thread, the service's binder threads and the component's worker, possibly on several at once.
///
/// Ownership: every buffer that process() takes is returned once through
/// IQOZCallback::onBufferDone(). A refused buffer stays with the client. Two kinds might never be
/// returned: sources in slot QOZBufferInfo::kNoSlot, and buffers still with the service or held for
/// the next source when disable() is called; call flushsync() first. If the service dies, every
/// buffer that it had is returned as not filled; later ones are returned the same way, at once. The
/// state stays ACTIVE until flushsync() makes it ERROR; then call disable() and enable().
///
/// Time: config(), process(), flushsync() and isInputPortEnabled() each wait at most 3 s in total;
/// enable() and disable() state their limits. There is no limit for callbacks on any thread, for
/// the conversion and for calls into the service. After construction the class throws nothing.
#pragma once

#include <android-base/thread_annotations.h>
#include <qoz/ClientTypes.h>
#include <qoz/StorageTypes.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace android {

class __attribute__((visibility("default"))) VppComponent
    : public std::enable_shared_from_this<VppComponent> {
  public:
    /// The state of a session; see toString().
    enum status : int32_t {
        UNINIT = 0,   ///< not enabled
        INIT = 1,     ///< enabled, not started
        IDLE = 2,     ///< flushed; becomes ACTIVE with the next output buffer
        ACTIVE = 3,   ///< started
        PENDING = 4,  ///< a flush is under way
        ERROR = 5,    ///< failed; ends with disable() or with a start that succeeds
    };

    /// Reads the system properties vendor.qoz.*, whose values then apply for the object's lifetime.
    /// Throws std::invalid_argument or std::out_of_range if the value of a numeric property does
    /// not begin with a number or the number exceeds 64 bits; a smaller number is cut to 32 bits.
    VppComponent();
    /// Performs disable(). Call disable() yourself: an open session keeps its component alive.
    virtual ~VppComponent();

    /// Finds the service, opens a session and starts the output worker. Messages of the session
    /// begin with `name`. `callback` may be null and must outlive the component. `debug` logs
    /// changes of state from then on. Moves the calling thread into the system's cpuset, if there
    /// is one. Returns false on failure, with the reason in the log; the state is then unchanged,
    /// or ERROR if the service refused the session (call disable() before the next enable()). Waits
    /// up to 3 s for events of the previous session, 1.4 s for the service, 3 s for the worker.
    bool enable(const std::string& name, IQOZCallback* callback, bool debug);

    /// Sets the size in pixels, the pixel format (QOZFormat) and the settings of the sources, and
    /// asks the worker to start the session. The getters report the new settings on return. With
    /// `wait`, config() also waits for the component's first start to finish, but not for later
    /// starts. The next process() or isInputPortEnabled() waits for a pending start. If the first
    /// start of a session succeeds, the state is ACTIVE. If a start fails, the log says why; the
    /// state is ERROR if the service refused the settings, else unchanged. An old ACTIVE can thus
    /// hide a failed start, unless disable() and enable() precede config(). Waits for an earlier
    /// start that is pending, output buffers being queued and up to 64 deliveries.
    void config(uint32_t width, uint32_t height, uint32_t format, ConfigParams params, bool wait);

    /// Takes a source packet (`src`: the frame and, optionally, the client's NV12 conversion
    /// target) or one output buffer (`dst`), not both, and returns a QOZResult. An empty `src`
    /// counts as none. Refuses a frame while the service has 128 frames. In INIT, an output buffer
    /// starts the session on this thread; if that fails, the buffer is refused and also passed to
    /// onBufferDone(): treat both as one return. Waits for a pending start, the conversion, the
    /// acquire fence of an unconverted NV12 source and, at a new size or ratio, for the service; an
    /// output buffer within a callback waits for none of these. May call both functions of
    /// IQOZCallback.
    int32_t process(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst);
    /// Like process(), but refuses an empty `src`, and returns kRefused if both are null.
    int32_t processBuffer(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst);

    /// Makes an ACTIVE session return every buffer, and delivers them. The state is then IDLE, or
    /// ERROR if the service refused, did not answer or died. Does nothing in other states. Waits
    /// for a pending start, queueing under way, the service and the deliveries. May call back.
    void flushsync();

    /// Closes the session, stops the worker and frees the internal buffers. Keeps a reference to
    /// the last source until the next session's first one. Buffers that the service returns late
    /// go to onBufferDone() at once. If disable() is called in ERROR, the service's session stays
    /// open, and keeps this object alive, until the next enable() or the end of the service.
    /// Waits up to 1.2 s for a pending start, up to 3 s for events being handled, and without a
    /// limit for the worker's work in progress, its last callbacks and other threads in process().
    void disable();

    /// Returns 0 for the RGB formats, else 3. Sets `yuvFormat` to the format that the input port
    /// carries for sources of `format`. Logs whether `format` is supported.
    int GetFormat(int format, int& yuvFormat);
    /// Returns whether the session is ACTIVE for exactly this source size (pixels) and format.
    /// Waits for a pending start.
    bool isInputPortEnabled(uint32_t width, uint32_t height, uint32_t format);
    /// Returns the number of output buffers needed for each source frame with these settings.
    uint32_t calculateOutBufferReqsPerFrame(ConfigParams params);
    status state() const;                   ///< any thread, never waits; likewise the other getters
    uint32_t outBufReqsPerFrame() const;    ///< output buffers to queue per source frame
    uint32_t expectedOutputWidth() const;   ///< pixels, of every output buffer; 0 if none fits
    uint32_t expectedOutputHeight() const;  ///< pixels; see expectedOutputWidth()

    /// Writes state, sizes, counts and awaited answers to `fd` as text; waits only for `fd`.
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
        std::atomic<status> mState;  // read by the frame path without mLock
        bool mDebug = false;         // set before the worker starts
    };
    /// @endcond
  private:
    friend class VppComponentPeer;  // defined by the tests

    class IVppCallbacks;   // receives the service's events
    class SessionControl;  // enables and disables
    class StateDump;       // the text of dump()
    struct Parts;          // the classes that implement the operations

    // The suffix `_l` marks a command of the session. Contrary to the platform's convention the
    // caller does not hold mLock, except in flushsync().
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

    // The storage of the parts. docs/threads.md lists its locks; mLock is the component's lock.
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
    int32_t mOBDCmd = 0;     // this and mOBDCmdCond are used under OutputWorker's own lock
    std::mutex mOBDCmdLock;  // held while a command is carried out
    std::condition_variable mOBDCmdCond;
    std::mutex mOBDStateLock;
    std::condition_variable mOBDStateCond;
    std::thread mOBDThread;
    bool mOBDLoop = false;
    std::unique_ptr<Parts> mParts;  // never null
};

/// Returns the name of a state: "UNINIT", "INIT", "IDLE", "ACTIVE", "PENDING" or "ERROR".
__attribute__((visibility("default"))) const char* toString(VppComponent::status s);

}  // namespace android
