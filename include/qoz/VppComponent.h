/// @class android::VppComponent
/// One post-processing session between a client that renders frames and the device's VPP service,
/// which interpolates frames (2x to 4x) and scales them (1x, 1.5x, 2x).
///
///     auto vpp = std::make_shared<android::VppComponent>();
///     if (!vpp->enable("game", &callback, false)) return;
///     vpp->config(1280, 720, 1, {.mode = 1, .interpFactor = 1}, true);
///     for (each frame) {
///         std::vector<QOZBufferInfo> source{{slot, rgba, fence, nanoseconds, {}}};
///         vpp->process(&source, nullptr);
///         for (uint32_t n = vpp->outBufReqsPerFrame(); n > 0; --n)
///             vpp->process(nullptr, &output[nextFree()]);
///     }
///     vpp->flushsync();
///     vpp->disable();
///
/// Threading: all operations are called by one thread at a time, the getters, GetFormat and dump by
/// any thread at any time. Whatever process() takes (result 0) comes back once through
/// IQOZCallback::onBufferDone(), save what disable() finds still with the service or held as the
/// motion engine's reference: flushsync() first. The component throws nothing of its own after
/// construction. Every wait for an answer of the service or of the worker ends after three seconds;
/// a callback of the client's, an acquire fence and a call into the service take the time they
/// take.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/FlushDone.h>
#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <aidl/vendor/vuq/hardware/vpp/IVppService.h>
#include <aidl/vendor/vuq/hardware/vpp/ReconfigDone.h>
#include <aidl/vendor/vuq/hardware/vpp/VppBuffer.h>
#include <aidl/vendor/vuq/hardware/vpp/VppCtrlFrcSegment.h>
#include <aidl/vendor/vuq/hardware/vpp/VppPortParam.h>
#include <android-base/thread_annotations.h>
#include <qoz/ClientTypes.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace android {

class Rgb2Yuv;

class __attribute__((visibility("default"))) VppComponent
    : public std::enable_shared_from_this<VppComponent> {
  public:
    /// The state of a session.
    enum status : int32_t {
        UNINIT = 0,   ///< not enabled
        INIT = 1,     ///< enabled, not started
        IDLE = 2,     ///< flushed; active again with the next output buffer
        ACTIVE = 3,   ///< started
        PENDING = 4,  ///< a flush is on its way
        ERROR = 5,    ///< left by disable(), or by a start that succeeds
    };

    /// Reads the tunables (system properties vendor.qoz.*), which hold for the object's life.
    /// Throws std::invalid_argument or std::out_of_range when a numeric one does not begin with a
    /// number.
    VppComponent();

    /// Does what disable() does when the client has not.
    virtual ~VppComponent();

    VppComponent(const VppComponent&) = delete;
    VppComponent& operator=(const VppComponent&) = delete;

    /// Finds the service, opens a session and starts the output worker. The component is owned by a
    /// std::shared_ptr. `name` stands in every log message; `callback` may be null; `debug` logs
    /// state changes. False leaves UNINIT, or ERROR when the service refused the session (then call
    /// disable() first); the reason is logged.
    /// Blocks: about 1.4 s at most for a service that is not there, and 3 s for the worker.
    bool enable(const std::string& name, IQOZCallback* callback, bool debug);

    /// Records size (pixels), pixel format and settings of the sources and has the worker start the
    /// session. `wait`: returns when that is done. Outcome: state(). Calls back: no. Does nothing,
    /// with an error message, while a start that was asked for before will not end. Blocks: for
    /// that start, 3 s at most; for a delivery in progress; with `wait`, 3 s at most.
    void config(uint32_t width, uint32_t height, uint32_t format, ConfigParams params, bool wait);

    /// Takes either one source packet (`src` with one or two entries: the frame and, if the client
    /// brings its own, the NV12 target of its conversion; `dst` null) or one output buffer (`src`
    /// null or empty, `dst` set). 0: taken; every buffer comes back through the callback. 1:
    /// refused or failed, with the reason in the log; sources stay the client's, an output buffer
    /// that met a failed start is given back at once. 2: nothing was given. Blocks: for the
    /// conversion; for a start that is pending; at a new source size or upscale ratio until the
    /// service has flushed and reconfigured. Calls back: onBufferDone, onConfigChanged.
    int32_t process(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst);

    /// The same, but an absent `src` is null, never empty, and 1 when nothing was given.
    int32_t processBuffer(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst);

    /// Has an ACTIVE session return everything it holds and delivers it: IDLE afterwards, or ERROR
    /// when the service refused or did not answer. In any other state: nothing. Blocks: for the
    /// service's answers and for the deliveries, 3 s each at most. Calls back: onBufferDone for
    /// held source slots.
    void flushsync();

    /// Closes the session, ends the worker and lets all internal buffers go. Buffers still with the
    /// service are not given back: call flushsync() first. In ERROR the session stays open, and
    /// keeps this object alive, until the next enable() or the end of the service. Blocks: 1.2 s at
    /// most for a pending start, and for the worker.
    void disable();

    /// 0 for the RGB formats 1, 2 and 277, 3 for every other; `yuvFormat` receives what the input
    /// port carries for it. Any thread, any state.
    int GetFormat(int format, int& yuvFormat);

    /// Whether the session is ACTIVE for sources of just this size and format. Blocks: for a start
    /// that is pending, 3 s at most.
    bool isInputPortEnabled(uint32_t width, uint32_t height, uint32_t format);

    /// Output buffers that one frame needs under `params`; also records whether upscaling goes with
    /// frame-rate conversion.
    uint32_t calculateOutBufferReqsPerFrame(ConfigParams params);

    /// Any thread, also from within the callbacks.
    status state() const;
    /// Output buffers to lend for each source frame. Any thread, also from within the callbacks.
    uint32_t outBufReqsPerFrame() const;
    /// Every output buffer has this size, pixels; 0 before start. Any thread, also from within the
    /// callbacks.
    uint32_t expectedOutputWidth() const;
    uint32_t expectedOutputHeight() const;  ///< see expectedOutputWidth()

    /// Writes what the component is doing to `fd` as lines of text: state, sizes, where the buffers
    /// are, what is awaited. For people; programs should not take it apart. Any thread, at any
    /// moment, also from within the callbacks and while the stream hangs. Blocks: never for the
    /// client, the service or the worker; for `fd` as long as a write to it does. What is in use at
    /// this moment is reported so, and an error of the descriptor ends the text.
    void dump(int fd) const;

  private:
    friend class VppComponentPeer;  // defined by the tests

    class IVppCallbacks;  // receives the service's notifications
    class Dump;           // the text of dump()

    using FlushDone = ::aidl::vendor::vuq::hardware::vpp::FlushDone;
    using IVpp = ::aidl::vendor::vuq::hardware::vpp::IVpp;
    using IVppService = ::aidl::vendor::vuq::hardware::vpp::IVppService;
    using ReconfigDone = ::aidl::vendor::vuq::hardware::vpp::ReconfigDone;
    using VppBuffer = ::aidl::vendor::vuq::hardware::vpp::VppBuffer;
    using VppCtrlFrcSegment = ::aidl::vendor::vuq::hardware::vpp::VppCtrlFrcSegment;
    using VppPortParam = ::aidl::vendor::vuq::hardware::vpp::VppPortParam;

    // Forward vectors, backward vectors, half-size copy; any may be null.
    using SideBuffers = std::tuple<sp<GraphicBuffer>, sp<GraphicBuffer>, sp<GraphicBuffer>>;

    // Holds the state and names its changes in the log once told to.
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

    static constexpr uint32_t kOutputSlots =
        64;  // client slots that travel through the output port

    enum OBDCmd : int32_t {
        OBD_CMD_NONE = 0,
        OBD_CMD_INIT = 1,
        OBD_CMD_START = 2,
        OBD_CMD_DELIVER = 3,
        OBD_CMD_EXIT = 5,
    };

    struct SourceFrame;  // one source packet on its way through processSource()

    // Session.
    bool acquireVppService();
    static void waitForService(std::string instance);
    bool openSession();
    bool startWorker();
    void closeSession();
    void stopWorker();
    void shutDown();
    bool onWorkerThread() const;
    void leaveWorkerThread();
    bool isEnabled(const char* operation) const;
    bool enableLocked(const std::string& name, IQOZCallback* callback, bool debug) REQUIRES(mLock);
    void adoptName(const std::string& name);
    IQOZCallback* client() const;
    void setClient(IQOZCallback* callback);

    // Stream.
    void applyMode(const ConfigParams& params);
    bool processStart_l(uint32_t width, uint32_t height, uint32_t format);
    bool startPorts();
    void checkDownscaleAndSetExpectedResolution();
    void createVppPort(VppPortParam* port, uint32_t width, uint32_t height, uint32_t format);
    static void fillVppPort(VppPortParam* port, uint32_t width, uint32_t height,
                            int32_t colorFormat);
    bool configVppFrc(uint64_t timestamp);
    bool configVppAis();
    VppCtrlFrcSegment& chooseFrcSegment(uint64_t timestamp);
    bool processFlush_l(bool withYuvPool);
    bool processReconfig_l(uint32_t width, uint32_t height, uint32_t format);
    bool processDrainDone_l();
    template <typename Done>
    bool waitForEvent(std::unique_lock<std::mutex>& lock, const char* operation, Done done);
    void onVppEFD(const FlushDone& done);
    void onVppERD(const ReconfigDone& done);
    void onVppEDD();
    bool awaitPendingStart(const char* operation);
    void publishStreamFacts();

    // Pipeline: pools.
    template <typename Buffers>
    struct PoolSpares {
        typename Buffers::node_type entry;
        std::vector<std::set<uint64_t>::node_type> keys;
    };
    bool requestYuvBuffer(sp<GraphicBuffer>* out, const RequestInfo& info);
    bool requestExtradataBuffer(sp<GraphicBuffer>* fwOut, sp<GraphicBuffer>* bwOut,
                                const RequestInfo& mvInfo, sp<GraphicBuffer>* dsOut,
                                const RequestInfo& dsInfo);
    bool allocateYuv(sp<GraphicBuffer>* out, const RequestInfo& info);
    bool allocateExtradata(sp<GraphicBuffer>* fwOut, sp<GraphicBuffer>* bwOut,
                           const RequestInfo& mvInfo, sp<GraphicBuffer>* dsOut,
                           const RequestInfo& dsInfo);
    bool drawVectors(SideBuffers& drawn, sp<GraphicBuffer>* fwOut, sp<GraphicBuffer>* bwOut,
                     const RequestInfo& info, bool* mismatch);
    bool drawDownscaled(SideBuffers& drawn, sp<GraphicBuffer>* out, const RequestInfo& info,
                        bool* mismatch);
    void clearYuvPool();
    void clearExtradataPool();
    void freeYuvEntry(uint64_t timestamp, const char* operation);
    void freeExtradataEntry(uint64_t timestamp, const char* operation);

    // Pipeline: intake.
    int32_t processOutput(const QOZBufferInfo& output);
    int32_t processSource(const std::vector<QOZBufferInfo>& packet);
    int32_t convertAndQueue(SourceFrame& frame);
    int32_t queueUnconverted(const SourceFrame& frame);
    int32_t acceptDummy(SourceFrame& frame);
    void adoptSourceSize(SourceFrame& frame);
    void setUpMotionEngine(SourceFrame& frame);
    bool hasReference(const SourceFrame& frame) const;
    void configureConverter(SourceFrame& frame);
    bool requestBuffers(SourceFrame& frame);
    bool convert(SourceFrame& frame);
    void dumpFrame(SourceFrame& frame);
    void holdSlot(int32_t slot);
    void releaseFrontSlot();
    void releaseHeldSlots();
    void giveBack(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp);
    void applyInBandConfig(SourceFrame& frame, const ConfigParams& params);
    uint32_t adoptInBandConfig(const ConfigParams& params);
    void applyUpscaleIndex(uint32_t upscaleIndex);
    void reshapeForUpscale(SourceFrame& frame);

    // Pipeline: queueing.
    class QueueRecord;  // a VppBuffer on its way to the service, with its temporary handles
    enum class Shared { Ok, NoHandle, NoDescriptor };  // how sharing a buffer's descriptor went
    bool queueBuffer(const sp<GraphicBuffer>& buffer, SideBuffers& extradata, uint32_t cookie,
                     uint64_t timestamp, bool isInput);
    bool queueInput(const sp<GraphicBuffer>& buffer, SideBuffers& extradata, uint32_t cookie,
                    uint64_t timestamp);
    bool queueOutput(const sp<GraphicBuffer>& buffer, uint32_t cookie, uint64_t timestamp);
    bool isQueueableId(uint32_t id, bool isInput);
    bool recordExtradata(SideBuffers& extradata, uint64_t timestamp);
    bool queueVppBuffer(uint32_t cookie, const sp<GraphicBuffer>& buffer, uint64_t timestamp,
                        bool isInput);
    bool checkBufferCompatibility(const sp<GraphicBuffer>& buffer, bool skip);
    bool attachMetaBuffers(QueueRecord& record, uint64_t timestamp);
    Shared attachVectors(QueueRecord& record, const sp<GraphicBuffer>& forward,
                         const sp<GraphicBuffer>& backward);
    Shared attachDownscaled(QueueRecord& record, const sp<GraphicBuffer>& downscaled);
    bool attachPixels(QueueRecord& record, uint32_t cookie, const sp<GraphicBuffer>& buffer,
                      uint64_t timestamp, bool isInput);
    bool queueRecord(const VppBuffer& record, bool isInput);
    void traceBuffersInVpp();
    static void releaseNativeHandle(const native_handle_t* handle, bool closeFds);

    // Pipeline: what comes back, and the worker that hands it on.
    struct Delivery;
    void onVppIBD(const VppBuffer& buffer);
    void onVppOBD(const VppBuffer& buffer);
    void countDone(bool isInput);
    void enqueueOBD(uint32_t id, const VppBuffer& buffer);
    bool storeOBD(uint32_t id, const VppBuffer& buffer);
    void queueOBD();
    bool takeOBD(Delivery* delivery);
    void finishOBD();
    void postOBDCmd(int32_t cmd);
    void storeOBDCmd(int32_t cmd);
    void requestDeliver();
    bool drainOBDQueue();
    void VppOBDworkerThread();
    void nameWorker();
    bool workUntilExit();
    void awaitOBDWork();
    void carryOutPosted();
    void carryOut(int32_t cmd) REQUIRES(mOBDCmdLock);
    void carryOutInit();
    void carryOutStart();
    void carryOutExit();

    // Fixed at construction.
    GraphicBufferMapper& mMapper;
    uint32_t mLogFlags = 0;
    bool mDumpEnable = false;
    bool mDumpMvEnable = false;

    // The client's thread; config hands them to the worker's Start with the command.
    uint32_t mDumpFrameCount = 0;
    std::string mName = "unname";
    uint32_t mWidth = 0;
    uint32_t mHeight = 0;
    uint32_t mFormat = 0;
    uint32_t mInputFormat = 0;
    float mUpscaleRatio = 1.0F;
    uint32_t mUpscaleIndex = 0;
    bool mNeedAdditionalBuffer = false;
    bool mAisEnabled = false;
    uint32_t mInPortWidth = 0;
    uint32_t mInPortHeight = 0;
    uint32_t mExpectedOutWidth = 0;
    uint32_t mExpectedOutHeight = 0;
    bool mMvEnabled = false;
    bool mDsEnabled = false;
    std::list<int32_t> mSlotList;  // source slots held back; -1: a place without a slot
    uint32_t mOutBufReqsPerFrame = 1;
    uint32_t mInterpFactor = 0;
    sp<GraphicBuffer> mPrevSourceBuffer;
    SideBuffers mExtraBuffers;
    bool mDoubleOutput = false;
    bool mNeedDownscaleResult = false;
    bool mIsFirstFrame = true;
    IQOZCallback* mCallback = nullptr;  // borrowed; through client() and setClient() only

    // Answers of the service.
    bool mReconfigDone GUARDED_BY(mEventLock) = false;
    bool mInputFlushDone GUARDED_BY(mEventLock) = false;
    bool mOutputFlushDone GUARDED_BY(mEventLock) = false;
    bool mDrainDone GUARDED_BY(mEventLock) = false;

    // The client's thread and the worker's Start.
    uint32_t mMaxWidth = 0;
    uint32_t mMaxHeight = 0;
    std::function<bool(uint32_t, uint32_t, uint32_t, uint32_t)> mNeedDownscale;
    std::vector<VppCtrlFrcSegment> mFrcSegments;
    std::atomic<uint64_t> mLastOutputTimestamp{0};  // a stale value only picks another segment

    bool mOBDThreadReady GUARDED_BY(mOBDStateLock) = false;
    bool mStartDone GUARDED_BY(mOBDStateLock) = false;
    std::atomic<bool> mOBDThreadRunning{false};  // the worker looks before each wait
    std::atomic<bool> mStartPending{false};      // disable polls it

    // The client's thread; stable while a worker runs.
    std::shared_ptr<IVppService> mVppService;
    std::shared_ptr<IVpp> mVpp;
    Rgb2Yuv* mRgb2Yuv = nullptr;  // owned; deleted by disable

    // Locks. mLock serialises state changes and session calls of enable, flushsync and queueing.
    std::mutex mLock;
    mutable std::mutex mEventLock;
    std::condition_variable mEventCond;
    mutable std::mutex mBufferDoneLock;
    uint32_t mInputBuffersInVpp GUARDED_BY(mBufferDoneLock) = 0;
    uint32_t mOutputBuffersInVpp GUARDED_BY(mBufferDoneLock) = 0;

    // The pools: buffers by the timestamp (microseconds) they were queued under, and the keys of
    // those that have come back.
    std::unordered_map<uint64_t, SideBuffers> mExtradataBufferMap GUARDED_BY(mExtradataLock);
    mutable std::mutex mExtradataLock;
    std::set<uint64_t> mFreeExtradataIndex GUARDED_BY(mExtradataLock);
    std::unordered_map<uint64_t, sp<GraphicBuffer>> mYuvBufferMap GUARDED_BY(mYuvLock);
    mutable std::mutex mYuvLock;
    std::set<uint64_t> mFreeYuvIndex GUARDED_BY(mYuvLock);

    VppStatus mStatus{UNINIT};

    // Delivery: one record for each client slot, and those waiting for the worker.
    std::array<VppBuffer, kOutputSlots> mOBDBuffers GUARDED_BY(mVppOBDQueueLock);
    mutable std::mutex mVppOBDQueueLock;
    VppBuffer* mCurrentOBD GUARDED_BY(mVppOBDQueueLock) = nullptr;
    std::deque<VppBuffer*> mVppOBDQueue GUARDED_BY(mVppOBDQueueLock);

    // The worker holds mOBDCmdLock while it carries a command out, so that a post waits for that.
    // What has been posted is under mOBDPostLock, a leaf that is only ever held for a moment, and
    // that the worker sleeps under: who only asks for a delivery waits for no command, and no
    // wake-up falls between the worker's look and its sleep.
    int32_t mOBDCmd GUARDED_BY(mOBDPostLock) = OBD_CMD_NONE;
    std::mutex mOBDCmdLock;
    std::condition_variable mOBDCmdCond;  // with mOBDPostLock
    mutable std::mutex mOBDStateLock;
    std::condition_variable mOBDStateCond;
    std::thread mOBDThread;
    bool mOBDLoop = false;  // the worker's own

    mutable std::mutex mOBDPostLock;
    bool mDeliverRequested GUARDED_BY(mOBDPostLock) = false;
    std::condition_variable mVppOBDQueueCond;  // with mVppOBDQueueLock: everything is delivered

    bool mReconfigFailed GUARDED_BY(mEventLock) = false;  // the answer was an error

    // End of every wait for the service or the worker.
    std::chrono::nanoseconds mWaitLimit = std::chrono::seconds(3);

    // The name that messages print, and every name there has been.
    std::atomic<const char*> mLogName{"unname"};
    std::list<std::string> mLogNames;

    // What is left of drawn pool entries and released slots, for those to come.
    PoolSpares<std::unordered_map<uint64_t, SideBuffers>> mExtradataSpares
        GUARDED_BY(mExtradataLock);
    PoolSpares<std::unordered_map<uint64_t, sp<GraphicBuffer>>> mYuvSpares GUARDED_BY(mYuvLock);
    std::list<int32_t> mSpareSlots;  // the client's thread

    // What the getters answer, so that the callbacks may ask while a frame changes the stream.
    std::atomic<uint32_t> mPublishedOutBufReqs{1};
    std::atomic<uint64_t> mPublishedOutSize{0};  // width in the upper half: one consistent pair

    // What dump() tells besides: the client's thread and the worker's Start write, any reads.
    std::atomic<uint64_t> mPublishedInSize{0};  // of the input port, as above
    std::atomic<uint32_t> mPublishedFormat{0};
    std::atomic<uint32_t> mPublishedInterp{0};
    std::atomic<bool> mPublishedMv{false};
    std::atomic<bool> mPublishedDs{false};
    std::atomic<size_t> mPublishedHeld{0};         // places in mSlotList
    std::atomic<const char*> mAwaited{"nothing"};  // the command whose answer is waited for
};

}  // namespace android
