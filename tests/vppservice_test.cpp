// The simulated service, driven as its client drives it: through IVpp, with buffers in memory of
// the test's own.
#include <aidl/vendor/vuq/hardware/vpp/BnVppCallbacks.h>
#include <aidl/vendor/vuq/hardware/vpp/IVppService.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <host/control.h>
#include <host/converter/MotionField.h>
#include <host/platform/BufferLayout.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

namespace qoz::test {
namespace {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;
using host::nv12Layout;
using vpp::VppBuffer;
using vpp::VppError;
using vpp::VppPort;

constexpr std::chrono::seconds kLimit{20};
constexpr int64_t kOutputBit = static_cast<int64_t>(0xFFFFFFFF80000000);

int duplicate(int fd) {
    return fcntl(fd, F_DUPFD_CLOEXEC, 0);
}

// Shared memory with room for `bytes`, and the test's view of it.
class Memory {
  public:
    explicit Memory(size_t bytes) : mBytes(bytes), mFd(memfd_create("test", MFD_CLOEXEC)) {
        EXPECT_EQ(ftruncate(mFd.get(), static_cast<off_t>(bytes)), 0);
        void* at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, mFd.get(), 0);
        EXPECT_NE(at, MAP_FAILED);
        mData = static_cast<uint8_t*>(at);
    }
    ~Memory() { munmap(mData, mBytes); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    int fd() const { return mFd.get(); }
    uint8_t* data() const { return mData; }
    size_t bytes() const { return mBytes; }

  private:
    size_t mBytes;
    ndk::ScopedFileDescriptor mFd;
    uint8_t* mData = nullptr;
};

struct Size {
    int width;
    int height;
};

constexpr auto flat(int value) {
    return [value](int, int) { return value; };
}

class Frame : public Memory {
  public:
    explicit Frame(Size size)
        : Memory(layout(size).size), stride(layout(size).stride), mSize(size) {}

    // The picture: luma at each pixel, and U and V at each second one.
    template <typename Luma, typename Chroma>
    Frame& paint(const Luma& luma, const Chroma& chroma) {
        for (int y = 0; y < mSize.height; ++y) {
            for (int x = 0; x < mSize.width; ++x) {
                data()[stride * y + x] = static_cast<uint8_t>(luma(x, y));
                uint8_t* pair = chromaAt(x, y);
                pair[0] = pair[1] = static_cast<uint8_t>(chroma(x & ~1, y & ~1));
            }
        }
        return *this;
    }
    template <typename Luma>
    Frame& paint(const Luma& luma) {
        return paint(luma, flat(128));
    }
    int luma(int x, int y) const { return data()[stride * y + x]; }
    int chroma(int x, int y) const { return *chromaAt(x, y); }

    // Share of the pixels that are, within a little, those of the picture.
    template <typename Luma, typename Chroma>
    double likeness(const Luma& wantLuma, const Chroma& wantChroma) const {
        int alike = 0;
        for (int y = 0; y < mSize.height; ++y) {
            for (int x = 0; x < mSize.width; ++x) {
                alike += std::abs(luma(x, y) - wantLuma(x, y)) <= 6;
                alike += std::abs(chroma(x, y) - wantChroma(x & ~1, y & ~1)) <= 6;
            }
        }
        return alike / (2.0 * mSize.width * mSize.height);
    }

    const size_t stride;

  private:
    uint8_t* chromaAt(int x, int y) const {
        return data() + layout(mSize).chromaOffset + stride * (y / 2) + (x & ~1);
    }
    static host::Nv12Layout layout(Size size) {
        return nv12Layout(static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height));
    }
    Size mSize;
};

struct Field : Memory {
    explicit Field(Size size)
        : Memory(size_t{host::fieldWidth(static_cast<uint32_t>(size.width))} *
                 host::fieldHeight(static_cast<uint32_t>(size.height)) *
                 sizeof(host::MotionVector)),
          across(static_cast<int>(host::fieldWidth(static_cast<uint32_t>(size.width)))) {}

    template <typename Paint>
    Field& paint(const Paint& vector) {
        auto* to = reinterpret_cast<host::MotionVector*>(data());
        const int blocks = static_cast<int>(bytes() / sizeof(host::MotionVector));
        for (int i = 0; i < blocks; ++i)
            to[i] = vector(i % across, i / across);
        return *this;
    }
    const int across;
};

struct Seen {
    std::string what;
    int64_t cookie = 0;
    uint64_t timestamp = 0;
    uint32_t filled = 0;
    int32_t value = 0;  // port or status

    bool isOutput() const { return what == "output"; }
};

class Recorder : public vpp::BnVppCallbacks {
  public:
    std::function<void(const Seen&)> onSeen;  // on the thread of the call, no lock held
    std::function<void()> onEnd;              // from the destructor

    ~Recorder() override {
        if (onEnd) onEnd();
    }

    using Status = ndk::ScopedAStatus;
    Status eventDrainDone(VppError* r) override { return note({"drain"}, r); }
    Status eventError(VppError error, VppError* r) override {
        return note({.what = "error", .value = static_cast<int32_t>(error)}, r);
    }
    Status eventFlushDone(const vpp::FlushDone& done, VppError* r) override {
        return note({.what = "flush", .value = done.port}, r);
    }
    Status eventReconfigDone(const vpp::ReconfigDone& done, VppError* r) override {
        return note({.what = "reconfig", .value = done.status}, r);
    }
    Status inputBufferDone(const VppBuffer& b, VppError* r) override {
        return note({"input", b.cookie, b.timestamp, b.pixelFilledLen}, r);
    }
    Status outputBufferDone(const VppBuffer& b, VppError* r) override {
        EXPECT_EQ(b.pixelHandle.fds.size(), 1U);
        return note({"output", b.cookie, b.timestamp, b.pixelFilledLen}, r);
    }

    std::vector<Seen> seen() {
        const std::lock_guard lock(mLock);
        return mSeen;
    }
    int count(const std::string& what) {
        const auto all = seen();
        return static_cast<int>(
            std::count_if(all.begin(), all.end(), [&](const Seen& s) { return s.what == what; }));
    }
    bool await(const std::string& what, int times = 1) {
        std::unique_lock lock(mLock);
        return mCond.wait_for(lock, kLimit, [&] {
            return std::count_if(mSeen.begin(), mSeen.end(),
                                 [&](const Seen& s) { return s.what == what; }) >= times;
        });
    }
    std::vector<uint64_t> outputTimes() {
        std::vector<uint64_t> times;
        for (const Seen& one : seen()) {
            if (one.isOutput() && one.filled > 0) times.push_back(one.timestamp);
        }
        return times;
    }

  private:
    Status note(const Seen& one, VppError* result) {
        EXPECT_NE(std::this_thread::get_id(), mClient) << "called back from within a call";
        *result = VppError::VPP_OK;
        if (onSeen) onSeen(one);
        const std::lock_guard lock(mLock);
        mSeen.push_back(one);
        mCond.notify_all();
        return Status::ok();
    }

    const std::thread::id mClient = std::this_thread::get_id();
    std::mutex mLock;
    std::condition_variable mCond;
    std::vector<Seen> mSeen;
};

// The time of the nth source, from 0.
uint64_t after(int n) {
    return 1000 * (static_cast<uint64_t>(n) + 1);
}

VppBuffer record(const Memory& memory, int64_t cookie, uint64_t timestamp, bool filled) {
    VppBuffer buffer;
    buffer.pixelHandle.fds.emplace_back(duplicate(memory.fd()));
    buffer.pixelAllocLen = buffer.pixelSize = static_cast<uint32_t>(memory.bytes());
    buffer.pixelFilledLen = filled ? buffer.pixelAllocLen : 0;
    buffer.cookie = cookie;
    buffer.timestamp = timestamp;
    return buffer;
}

void attach(VppBuffer* buffer, const std::string& name, const Memory& memory) {
    vpp::VppMetaBuffer& side = buffer->metaBuffers.emplace_back();
    side.metaName = name;
    side.metaAllocLen = static_cast<uint32_t>(memory.bytes());
    side.metaHandle.fds.emplace_back(duplicate(memory.fd()));
}

vpp::VppPortParam port(Size size) {
    return {size.height, size.width, size.width, size.height, 3};
}

vpp::VppCtrlFrcSegment segment(int64_t start, int factor) {
    vpp::VppCtrlFrcSegment made;
    made.mode = 5;
    made.interpLevel = factor > 0 ? 3 : 0;
    made.interpFactor = factor;
    made.startTimestamp = start;
    return made;
}

class VppServiceTest : public ::testing::Test {
  protected:
    static constexpr Size kSmall{64, 48};

    void SetUp() override {
        ABinderProcess_startThreadPool();
        mDescriptors = host::openDescriptors();
        mService.emplace();
        mSession = newSession();
        ASSERT_NE(mSession, nullptr);
    }

    void TearDown() override {
        host::clearFaults();
        mSession = nullptr;
        mRecorder = nullptr;
        mService.reset();
        mFrames.clear();
        EXPECT_EQ(host::openDescriptors(), mDescriptors);
        EXPECT_EQ(host::counters().sessionsLive, 0U);
    }

    static std::shared_ptr<vpp::IVpp> newSession() {
        const std::string name = std::string(vpp::IVppService::descriptor) + "/default";
        const ndk::SpAIBinder binder(AServiceManager_checkService(name.c_str()));
        const auto factory = vpp::IVppService::fromBinder(binder);
        std::shared_ptr<vpp::IVpp> session;
        if (factory != nullptr) factory->getNewVppSession(0, &session);
        return session;
    }

    // Calls an operation of the session; its result, or -1 when it failed below that.
    template <typename... Formal, typename... Given>
    int ask(ndk::ScopedAStatus (vpp::IVpp::*operation)(Formal...), const Given&... given) {
        VppError result = VppError::VPP_OK;
        const bool ok = (mSession.get()->*operation)(given..., &result).isOk();
        return ok ? static_cast<int>(result) : -1;
    }

    // A session of its own for a row of a table.
    void reopenAt(Size in, Size out, const std::vector<vpp::VppCtrlFrcSegment>& segments) {
        mRecorder = ndk::SharedRefBase::make<Recorder>();
        mSession = newSession();
        ASSERT_NE(mSession, nullptr);
        openAt(in, out, segments);
    }

    void openAt(Size in, Size out, const std::vector<vpp::VppCtrlFrcSegment>& segments) {
        mIn = in;
        mOut = out;
        ASSERT_EQ(ask(&vpp::IVpp::initSession, 0, mRecorder), 0);
        ASSERT_EQ(ask(&vpp::IVpp::setCtrlFrc, segments), 0);
        ASSERT_EQ(ask(&vpp::IVpp::setParameter, VppPort::INPUT, port(in)), 0);
        ASSERT_EQ(ask(&vpp::IVpp::setParameter, VppPort::OUTPUT, port(out)), 0);
        ASSERT_EQ(ask(&vpp::IVpp::open), 0);
    }

    Frame& newFrame(Size size) { return *mFrames.emplace_back(std::make_unique<Frame>(size)); }

    int lend(int id) { return lend(id, newFrame(mOut)); }
    int lend(int id, const Frame& frame) {
        return ask(&vpp::IVpp::queueBuf, VppPort::OUTPUT, record(frame, id | kOutputBit, 1, false));
    }
    int source(int id, uint64_t timestamp) {
        return ask(&vpp::IVpp::queueBuf, VppPort::INPUT,
                   record(newFrame(mIn), id, timestamp, true));
    }
    // That many of each, numbered from 0, a millisecond apart.
    void feed(int outputs, int sources) {
        for (int i = 0; i < outputs; ++i)
            EXPECT_EQ(lend(i), 0);
        for (int i = 0; i < sources; ++i)
            EXPECT_EQ(source(i, after(i)), 0);
    }
    int flush(VppPort which) { return ask(&vpp::IVpp::flush, which); }
    int reconfigure(Size in, Size out) { return ask(&vpp::IVpp::reconfigure, port(in), port(out)); }

    // Output `index` of the interval between a fresh `older` and `newest`.
    const Frame& between(const Frame& older, const VppBuffer& newest, int index = 1,
                         int factor = 1) {
        EXPECT_EQ(flush(VppPort::INPUT), 0);
        EXPECT_EQ(ask(&vpp::IVpp::setCtrlFrc, std::vector{segment(0, factor)}), 0);
        const int before = mRecorder->count("output");
        std::vector<Frame*> outputs;
        for (int i = 0; i < factor + 2; ++i) {
            outputs.push_back(&newFrame(mOut));
            EXPECT_EQ(lend(i, *outputs.back()), 0);
        }
        EXPECT_EQ(ask(&vpp::IVpp::queueBuf, VppPort::INPUT, record(older, 0, 1000, true)), 0);
        EXPECT_EQ(ask(&vpp::IVpp::queueBuf, VppPort::INPUT, newest), 0);
        EXPECT_TRUE(mRecorder->await("output", before + factor + 2));
        return *outputs[static_cast<size_t>(index)];
    }

    std::optional<host::VppService> mService;
    std::shared_ptr<vpp::IVpp> mSession;
    std::shared_ptr<Recorder> mRecorder = ndk::SharedRefBase::make<Recorder>();
    std::vector<std::unique_ptr<Frame>> mFrames;
    Size mIn = kSmall;
    Size mOut = kSmall;

  private:
    int mDescriptors = 0;
};

using Times = std::vector<uint64_t>;

TEST_F(VppServiceTest, SpacesInBetweenFramesEvenlyAndInOrder) {
    struct Case {
        std::vector<vpp::VppCtrlFrcSegment> segments;
        Times sources;
        Times outputs;
    };
    const Times even{1000, 2000, 3000};
    constexpr uint64_t kQuarter = UINT64_MAX / 4;
    const std::vector<Case> cases{
        {{segment(0, 0)}, even, {1000, 2000, 3000}},
        {{segment(0, 1)}, even, {1000, 1500, 2000, 2500, 3000}},
        {{segment(0, 2)}, even, {1000, 1333, 1666, 2000, 2333, 2666, 3000}},
        {{segment(0, 3)}, even, {1000, 1250, 1500, 1750, 2000, 2250, 2500, 2750, 3000}},
        // A factor given with a frame holds from exactly that frame on, wherever it stands.
        {{segment(2000, 1), segment(0, 0)}, even, {1000, 2000, 2500, 3000}},
        {{segment(0, 1), segment(2000, 0)}, even, {1000, 1500, 2000, 3000}},
        {{segment(2001, 3), segment(0, 1)}, even, {1000, 1500, 2000, 2500, 3000}},
        // Time that stands still or runs back is a cut.
        {{segment(0, 1)}, {1000, 1000, 3000}, {1000, 1000, 2000, 3000}},
        {{segment(0, 1)}, {3000, 1000, 2000}, {3000, 1000, 1500, 2000}},
        // The longest interval there is.
        {{segment(0, 3)},
         {0, UINT64_MAX},
         {0, kQuarter, 2 * kQuarter + 1, 3 * kQuarter + 2, UINT64_MAX}},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(testing::PrintToString(one.outputs));
        reopenAt(kSmall, kSmall, one.segments);
        const int count = static_cast<int>(one.outputs.size());
        feed(count, 0);
        for (size_t i = 0; i < one.sources.size(); ++i)
            source(0, one.sources[i]);
        ASSERT_TRUE(mRecorder->await("output", count));
        flush(VppPort::INPUT);
        ASSERT_TRUE(mRecorder->await("flush"));
        EXPECT_EQ(mRecorder->outputTimes(), one.outputs);
        EXPECT_EQ(mRecorder->count("input"), static_cast<int>(one.sources.size()));
    }
}

TEST_F(VppServiceTest, FactorGivenAfterAFrameHoldsFromThatFrame) {
    openAt(kSmall, kSmall, {segment(0, 0)});
    Frame& between = newFrame(kSmall);
    EXPECT_EQ(lend(0), 0);
    EXPECT_EQ(lend(1, between), 0);
    EXPECT_EQ(lend(2), 0);
    Frame older(kSmall);
    older.paint(flat(200));
    ASSERT_EQ(ask(&vpp::IVpp::queueBuf, VppPort::INPUT, record(older, 0, 1000, true)), 0);
    ASSERT_TRUE(mRecorder->await("input")) << "nothing is wanted from it yet";
    older.paint(flat(0));  // ours again
    ASSERT_EQ(ask(&vpp::IVpp::setCtrlFrc, std::vector{segment(0, 0), segment(1000, 1)}), 0);
    EXPECT_EQ(source(1, 4000), 0);
    ASSERT_TRUE(mRecorder->await("output", 3));
    EXPECT_EQ(mRecorder->outputTimes(), (Times{1000, 2500, 4000}));
    EXPECT_NEAR(between.luma(20, 20), 100, 1);

    // The AIS control alone: frames are only scaled.
    vpp::VppCtrlAis ais;
    ais.mode = 2;
    ais.param = 30;
    ASSERT_EQ(ask(&vpp::IVpp::setCtrlAis, ais), 0);
    feed(1, 0);
    EXPECT_EQ(source(2, 5000), 0);
    ASSERT_TRUE(mRecorder->await("output", 4));
    EXPECT_EQ(mRecorder->outputTimes().back(), 5000U);
}

TEST_F(VppServiceTest, WaitsForLentOutputsAndDrainsAsFarAsTheyGo) {
    openAt(kSmall, kSmall, {segment(0, 1)});
    feed(0, 3);
    ASSERT_EQ(ask(&vpp::IVpp::drain), 0);
    ASSERT_TRUE(mRecorder->await("drain"));
    EXPECT_EQ(mRecorder->seen().size(), 1U) << "nothing to write into";

    feed(4, 0);
    ASSERT_EQ(ask(&vpp::IVpp::drain), 0);
    ASSERT_TRUE(mRecorder->await("drain", 2));
    EXPECT_EQ(mRecorder->outputTimes(), (Times{1000, 1500, 2000, 2500}));
    EXPECT_EQ(mRecorder->count("input"), 1) << "the second interval is not complete";
}

TEST_F(VppServiceTest, FlushReturnsWhatItHoldsBeforeItsEventAndStartsAfresh) {
    openAt(kSmall, kSmall, {segment(0, 1)});
    lend(9);
    feed(0, 3);
    ASSERT_TRUE(mRecorder->await("output"));
    flush(VppPort::INPUT);
    ASSERT_TRUE(mRecorder->await("flush"));
    feed(3, 0);
    flush(VppPort::OUTPUT);
    ASSERT_TRUE(mRecorder->await("flush", 2));

    const std::vector<Seen> seen = mRecorder->seen();
    ASSERT_EQ(seen.size(), 9U);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(seen[1 + i].what, "input");
        EXPECT_EQ(seen[1 + i].cookie, static_cast<int64_t>(i));
        EXPECT_EQ(seen[1 + i].timestamp, after(static_cast<int>(i)));
        EXPECT_EQ(seen[5 + i].what, "output");
        EXPECT_EQ(seen[5 + i].cookie, static_cast<int64_t>(i) | kOutputBit);
        EXPECT_EQ(seen[5 + i].filled, 0U);
    }
    EXPECT_EQ(seen[4].value, 0);
    EXPECT_EQ(seen[8].value, 1);

    lend(4);
    source(4, 9000);
    ASSERT_TRUE(mRecorder->await("output", 5));
    EXPECT_EQ(mRecorder->outputTimes(), (Times{1000, 9000})) << "no interval across a flush";
}

TEST_F(VppServiceTest, ReconfigureEmptiesBothPortsThenUsesTheNewSizes) {
    openAt(kSmall, kSmall, {segment(0, 0)});
    feed(2, 0);
    ASSERT_EQ(reconfigure({32, 32}, {96, 64}), 0);
    ASSERT_TRUE(mRecorder->await("reconfig"));
    EXPECT_EQ(mRecorder->seen().back().value, 0);
    EXPECT_EQ(mRecorder->count("output"), 2);
    EXPECT_TRUE(mRecorder->outputTimes().empty());

    EXPECT_NE(lend(2), 0) << "an output of the old size is too small now";
    mIn = {32, 32};
    mOut = {96, 64};
    Frame& to = newFrame(mOut);
    EXPECT_EQ(lend(2, to), 0);
    const Frame& from = newFrame(mIn).paint([](int x, int) { return 100 + x; }, flat(77));
    ASSERT_EQ(ask(&vpp::IVpp::queueBuf, VppPort::INPUT, record(from, 0, 1000, true)), 0);
    ASSERT_TRUE(mRecorder->await("output", 3));
    const auto seen = mRecorder->seen();
    const auto last = std::find_if(seen.rbegin(), seen.rend(), std::mem_fn(&Seen::isOutput));
    EXPECT_EQ(last->filled, nv12Layout(96, 64).size);
    EXPECT_NEAR(to.luma(48, 60), 116, 2) << "the middle of the ramp, scaled";
    EXPECT_NEAR(to.luma(94, 2), 131, 2);
    EXPECT_NEAR(to.chroma(95, 63), 77, 1);

    // A port set up anew while sources are held: nothing goes between sizes.
    mIn = {48, 40};
    ASSERT_EQ(ask(&vpp::IVpp::setCtrlFrc, std::vector{segment(0, 1)}), 0);
    ASSERT_EQ(ask(&vpp::IVpp::setParameter, VppPort::INPUT, port(mIn)), 0);
    feed(2, 0);
    EXPECT_EQ(source(1, 2000), 0);
    ASSERT_EQ(ask(&vpp::IVpp::drain), 0);
    ASSERT_TRUE(mRecorder->await("drain"));
    EXPECT_EQ(mRecorder->outputTimes(), (Times{1000, 2000}));
}

TEST_F(VppServiceTest, RefusesBadRecordsAndKeepsNothingOfThem) {
    openAt(kSmall, kSmall, {segment(0, 1)});
    const Frame good(kSmall);
    const Memory small(good.bytes() - 1);
    const Field field(kSmall);
    const Memory noField(field.bytes() - 1);
    struct Case {
        const char* name;
        VppPort port;
        std::function<void(VppBuffer*)> spoil;
    };
    const auto swapFd = [](VppBuffer* b, int fd) { b->pixelHandle.fds[0].set(fd); };
    const VppPort in = VppPort::INPUT;
    const VppPort out = VppPort::OUTPUT;
    const std::vector<Case> cases{
        {"port", static_cast<VppPort>(2), [](VppBuffer*) {}},
        {"no descriptor", in, [](VppBuffer* b) { b->pixelHandle.fds.clear(); }},
        {"two descriptors", in,
         [&](VppBuffer* b) { b->pixelHandle.fds.emplace_back(duplicate(0)); }},
        {"integers", in, [](VppBuffer* b) { b->pixelHandle.ints.push_back(1); }},
        {"closed descriptor", in, [&](VppBuffer* b) { swapFd(b, -1); }},
        {"no memory", in, [&](VppBuffer* b) { swapFd(b, open("/dev/null", O_RDWR | O_CLOEXEC)); }},
        {"memory too small", in, [&](VppBuffer* b) { swapFd(b, duplicate(small.fd())); }},
        {"length beyond memory", in, [](VppBuffer* b) { b->pixelAllocLen += 1U << 20; }},
        {"length too small", out, [](VppBuffer* b) { b->pixelAllocLen /= 2; }},
        {"offset", out, [](VppBuffer* b) { b->pixelOffset = 64; }},
        {"offset that wraps", in, [](VppBuffer* b) { b->pixelOffset = UINT32_MAX; }},
        {"empty source", in, [](VppBuffer* b) { b->pixelFilledLen = 0; }},
        {"overfull source", in, [](VppBuffer* b) { b->pixelFilledLen += 1; }},
        {"filled output", out, [](VppBuffer* b) { b->pixelFilledLen = 1; }},
        {"auxiliary buffer", in, [](VppBuffer* b) { b->auxHandle.fds.emplace_back(duplicate(0)); }},
        {"side of an output", out, [&](VppBuffer* b) { attach(b, "vpp.metabuf.mv.fw", field); }},
        {"unknown side", in, [&](VppBuffer* b) { attach(b, "vpp.metabuf.mv", field); }},
        {"side too small", in, [&](VppBuffer* b) { attach(b, "vpp.metabuf.mv.bw", noField); }},
        {"half too small", in, [&](VppBuffer* b) { attach(b, "vpp.metabuf.scale.0p5", field); }},
        {"side twice", in,
         [&](VppBuffer* b) {
             attach(b, "vpp.metabuf.mv.fw", field);
             attach(b, "vpp.metabuf.mv.fw", field);
         }},
        {"named side without memory", in,
         [&](VppBuffer* b) { b->metaBuffers.emplace_back().metaName = "vpp.metabuf.mv.fw"; }},
    };
    const int before = host::openDescriptors();
    for (const Case& one : cases) {
        VppBuffer buffer = record(good, 1, 1000, one.port == in);
        one.spoil(&buffer);
        EXPECT_EQ(ask(&vpp::IVpp::queueBuf, one.port, buffer), 5) << one.name;
        buffer = {};
        EXPECT_EQ(host::openDescriptors(), before) << one.name;
    }
    VppBuffer whole = record(good, 1, 1000, true);
    whole.metaBuffers.emplace_back();  // left behind empty: no reason to refuse the frame
    EXPECT_EQ(ask(&vpp::IVpp::queueBuf, in, whole), 0);
}

TEST_F(VppServiceTest, RefusesWhatCannotBeDuplicated) {
    openAt(kSmall, kSmall, {segment(0, 1)});
    const Field field(kSmall);
    VppBuffer buffer = record(newFrame(kSmall), 1, 1000, true);
    attach(&buffer, "vpp.metabuf.mv.fw", field);
    const int before = host::openDescriptors();
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<ndk::ScopedFileDescriptor> hoard;
    const rlimit tight{static_cast<rlim_t>(before) + 64, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    for (int fd = duplicate(0); fd >= 0; fd = duplicate(0))
        hoard.emplace_back(fd);
    hoard.pop_back();  // room for the pixels, not for the side buffer
    const int result = ask(&vpp::IVpp::queueBuf, VppPort::INPUT, buffer);
    hoard.clear();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(result, 7);
    EXPECT_EQ(host::openDescriptors(), before);
}

TEST_F(VppServiceTest, HoldsItsClientToTheOrderOfThings) {
    using vpp::IVpp;
    constexpr int kState = 3;
    EXPECT_EQ(ask(&IVpp::open), kState);
    EXPECT_EQ(ask(&IVpp::setParameter, VppPort::INPUT, port(kSmall)), kState);
    EXPECT_EQ(ask(&IVpp::setCtrlFrc, std::vector{segment(0, 1)}), kState);
    EXPECT_EQ(ask(&IVpp::initSession, 0, nullptr), 5);
    EXPECT_EQ(ask(&IVpp::initSession, 0, mRecorder), 0);
    EXPECT_EQ(ask(&IVpp::initSession, 0, mRecorder), kState);
    EXPECT_EQ(ask(&IVpp::setParameter, VppPort::INPUT, port(kSmall)), 0);
    EXPECT_EQ(ask(&IVpp::open), kState) << "the output port has no size";
    EXPECT_EQ(lend(0), kState);
    EXPECT_EQ(flush(VppPort::INPUT), kState);
    EXPECT_EQ(reconfigure(kSmall, kSmall), kState);
    EXPECT_EQ(ask(&IVpp::drain), kState);

    EXPECT_EQ(ask(&IVpp::setParameter, VppPort::OUTPUT, port({0, 8})), 5);
    vpp::VppPortParam wide = port(kSmall);
    wide.stride += 16;
    EXPECT_EQ(ask(&IVpp::setParameter, VppPort::OUTPUT, wide), 4);
    EXPECT_EQ(ask(&IVpp::setCtrlVppMode, 1), 4);
    EXPECT_EQ(ask(&IVpp::setCtrlFrc, std::vector<vpp::VppCtrlFrcSegment>{}), 5);
    EXPECT_EQ(ask(&IVpp::setCtrlFrc, std::vector{segment(0, -1)}), 5);
    EXPECT_EQ(ask(&IVpp::setCtrlFrc, std::vector{segment(-1, 1)}), 5);

    EXPECT_EQ(ask(&IVpp::setParameter, VppPort::OUTPUT, port(kSmall)), 0);
    EXPECT_EQ(ask(&IVpp::open), 0);
    EXPECT_EQ(ask(&IVpp::open), 0) << "a stream may be started anew";
    EXPECT_EQ(ask(&IVpp::close), 0);
    EXPECT_EQ(ask(&IVpp::close), kState);
    EXPECT_EQ(lend(0), kState);
}

// A picture without repetition, so that only the right vector matches.
int texture(int x, int y) {
    const double wave = std::sin(x * 0.21 + y * 0.13) + std::sin(x * 0.07 - y * 0.17) +
                        std::sin((x * x + 3 * y * y) * 0.0021);
    return 128 + static_cast<int>(30 * wave);
}

TEST_F(VppServiceTest, FollowsAMovingBlockWherePlainBlendingShowsItTwice) {
    constexpr Size size{128, 96};
    const auto picture = [](int left) {
        return [left](int x, int y) {
            const bool within = x >= left && x < left + 32 && y >= 32 && y < 64;
            return within ? 100 + texture(x - left, y) / 2 : 30;
        };
    };
    Frame older(size);
    older.paint(picture(32), flat(90));
    Frame newer(size);
    newer.paint(picture(48), flat(90));
    const auto field = [](int left, int8_t dx) {
        return [left, dx](int column, int row) -> host::MotionVector {
            const bool within = column >= left && column < left + 2 && row >= 2 && row < 4;
            return within ? host::MotionVector{dx, 0, 0, 20} : host::MotionVector{0, 0, 0, 0};
        };
    };
    Field forward(size);
    forward.paint(field(2, 16));
    Field backward(size);
    backward.paint(field(3, -16));

    openAt(size, size, {segment(0, 1)});
    VppBuffer newest = record(newer, 1, 2000, true);
    attach(&newest, "vpp.metabuf.mv.fw", forward);
    attach(&newest, "vpp.metabuf.mv.bw", backward);
    const Frame& followed = between(older, newest);
    EXPECT_GT(followed.likeness(picture(40), flat(90)), 0.99);

    newest.metaBuffers.clear();
    const Frame& blended = between(older, newest);
    EXPECT_LT(blended.likeness(picture(40), flat(90)), 0.95);
    for (const int x : {34, 76}) {
        const int ghost = (older.luma(x, 48) + newer.luma(x, 48)) / 2;
        EXPECT_NEAR(blended.luma(x, 48), ghost, 2) << "half there at either end, x " << x;
    }
}

// The whole picture pans; sizes that blocks and nodes do not divide, and pixels that come in at the
// edges, leave no holes.
TEST_F(VppServiceTest, FollowsAPanUpToTheEdges) {
    struct Case {
        Size size;
        int8_t dx;
        int8_t dy;
    };
    for (const Case& one : {Case{{131, 99}, 8, -8}, Case{{128, 96}, -16, 8}, Case{{17, 18}, 4, 4},
                            Case{{16, 40}, 0, 12}}) {
        SCOPED_TRACE(std::to_string(one.size.width) + "x" + std::to_string(one.size.height));
        const auto at = [&](int quarters) {
            return [&one, quarters](int x, int y) {
                return texture(x - one.dx * quarters / 4, y - one.dy * quarters / 4);
            };
        };
        const auto colourAt = [&](int quarters) {
            return [at = at(quarters)](int x, int y) { return at(x, y) / 2 + 40; };
        };
        Frame older(one.size);
        older.paint(at(0), colourAt(0));
        Frame newer(one.size);
        newer.paint(at(4), colourAt(4));
        Field forward(one.size);
        forward.paint([&](int, int) { return host::MotionVector{one.dx, one.dy, 0, 20}; });
        Field backward(one.size);
        backward.paint([&](int, int) {
            return host::MotionVector{static_cast<int8_t>(-one.dx), static_cast<int8_t>(-one.dy),
                                      255, 20};
        });
        reopenAt(one.size, one.size, {segment(0, 1)});
        VppBuffer newest = record(newer, 1, 2000, true);
        attach(&newest, "vpp.metabuf.mv.fw", forward);
        attach(&newest, "vpp.metabuf.mv.bw", backward);
        for (const int quarter : {1, 2, 3}) {
            EXPECT_GT(between(older, newest, quarter, 3).likeness(at(quarter), colourAt(quarter)),
                      0.95)
                << quarter;
        }
    }
}

TEST_F(VppServiceTest, RepeatsTheNearerSourceAtASceneCut) {
    openAt(kSmall, kSmall, {segment(0, 3)});
    Frame older(kSmall);
    older.paint(flat(20));
    Frame newer(kSmall);
    newer.paint(flat(220));
    Field lost(kSmall);
    lost.paint([](int, int) { return host::MotionVector{0, 0, 200, 20}; });
    VppBuffer newest = record(newer, 1, 2000, true);
    attach(&newest, "vpp.metabuf.mv.fw", lost);
    attach(&newest, "vpp.metabuf.mv.bw", lost);
    EXPECT_EQ(between(older, newest, 1, 3).luma(30, 20), 20);
    EXPECT_EQ(between(older, newest, 3, 3).luma(30, 20), 220);

    // Fields laid out for another size say nothing about this one: the sources are blended.
    Field large({1280, 720});
    large.paint([](int, int) { return host::MotionVector{0, 0, 200, 20}; });
    newest.metaBuffers.clear();
    attach(&newest, "vpp.metabuf.mv.fw", large);
    attach(&newest, "vpp.metabuf.mv.bw", large);
    EXPECT_NEAR(between(older, newest, 1, 3).luma(30, 20), 70, 1);
}

TEST_F(VppServiceTest, HalfSizeFrameRaisesDetailOfAllFramesOfAnUpscale) {
    constexpr Size out{96, 72};
    openAt(kSmall, out, {segment(0, 1)});
    Frame step(kSmall);
    step.paint([](int x, int) { return x < 32 ? 60 : 180; });
    Frame half({48, 36});
    half.paint([](int x, int) { return std::clamp(60 + (x - 18) * 10, 60, 180); });
    VppBuffer newest = record(step, 1, 2000, true);
    const int soft = between(step, newest, 2).luma(44, 30);
    EXPECT_NEAR(soft, 60, 2);
    attach(&newest, "vpp.metabuf.scale.0p5", half);
    const Frame& raised = between(step, newest, 2);
    EXPECT_NEAR(raised.luma(44, 30), 60 - 16, 3) << "what is dark beside the edge is darker";
    EXPECT_NEAR(raised.luma(52, 30), 180 + 16, 3);
    EXPECT_NEAR(raised.luma(10, 30), 60, 1) << "away from edges nothing changes";
}

struct Tally {
    int filled = 2;
    int unfilled = 0;
    int unknown = 0;  // of these outputs
    int inputs = 2;
    int flushes = 1;
    int errors = 0;
    int refused = 0;  // of the four buffers queued

    bool operator==(const Tally&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Tally& t) {
        return out << t.filled << " filled, " << t.unfilled << " unfilled, " << t.unknown
                   << " unknown, " << t.inputs << " inputs, " << t.flushes << " flushes, "
                   << t.errors << " errors, " << t.refused << " refused";
    }
};

Tally tallyOf(const std::vector<Seen>& seen, int refused) {
    Tally tally{.filled = 0, .inputs = 0, .flushes = 0, .refused = refused};
    for (const Seen& one : seen) {
        if (one.isOutput()) {
            ++(one.filled > 0 ? tally.filled : tally.unfilled);
            if ((one.cookie & 0x7FFEFFFF) > 1) ++tally.unknown;
        }
        tally.inputs += one.what == "input";
        tally.flushes += one.what == "flush";
        tally.errors += one.what == "error";
    }
    return tally;
}

// Two sources, two outputs, a flush; then a reconfiguration, whose event comes after all the rest.
TEST_F(VppServiceTest, ArmedFaultsDoWhatTheySay) {
    struct Case {
        const char* fault;
        Tally tally;
    };
    const std::vector<Case> cases{
        {"flush=drop@100", {}},  // not called that often
        {"outputBufferDone=drop", {.filled = 1}},
        {"outputBufferDone=transport@2", {.filled = 1}},
        {"outputBufferDone=twice", {.filled = 3}},
        {"outputBufferDone=unknown", {.unknown = 1}},
        {"outputBufferDone=8", {.filled = 1, .unfilled = 1, .errors = 1}},
        {"outputBufferDone=late:1@1+", {}},
        {"inputBufferDone=drop@1+", {.inputs = 0}},
        {"queueBuf=7@2", {.filled = 1, .refused = 1}},
        {"queueBuf=transport@2", {.filled = 1, .refused = 1}},
        {"queueBuf=drop@3", {.inputs = 1}},
        {"queueBuf=twice@1", {.filled = 3}},
        {"queueBuf=unknown@1", {.unknown = 1}},
        {"queueBuf=late:1@1+", {}},
        {"flush=drop", {.flushes = 0}},
        {"flush=twice", {.flushes = 2}},
        {"flush=3", {.flushes = 0}},
        {"eventFlushDone=drop", {.flushes = 0}},
        {"eventReconfigDone=late:1", {}},
    };
    for (const Case& one : cases) {
        reopenAt(kSmall, kSmall, {segment(0, 0)});
        std::string error;
        const auto fault = host::parseFault(one.fault, &error);
        ASSERT_TRUE(fault) << error;
        host::armFault(*fault);
        int refused = 0;
        for (int i = 0; i < 2; ++i)
            refused += lend(i) != 0;
        for (int i = 0; i < 2; ++i)
            refused += source(i, after(i)) != 0;
        ASSERT_EQ(ask(&vpp::IVpp::drain), 0);
        ASSERT_TRUE(mRecorder->await("drain"));
        flush(VppPort::INPUT);
        reconfigure(kSmall, kSmall);
        ASSERT_TRUE(mRecorder->await("reconfig")) << one.fault;
        ASSERT_TRUE(mRecorder->await("output", one.tally.filled + one.tally.unfilled));
        EXPECT_EQ(tallyOf(mRecorder->seen(), refused), one.tally) << one.fault;
        host::clearFaults();
    }
}

TEST_F(VppServiceTest, FaultsOfEventsAndSessionsReachTheClient) {
    openAt(kSmall, kSmall, {segment(0, 0)});
    host::armFault({.operation = "eventReconfigDone", .code = 8});
    host::armFault({.operation = "setCtrlVppMode", .code = 9});
    host::armFault({.operation = "getNewVppSession"});
    ASSERT_EQ(reconfigure(kSmall, kSmall), 0);
    ASSERT_TRUE(mRecorder->await("reconfig"));
    EXPECT_EQ(mRecorder->seen().back().value, 8);
    EXPECT_EQ(ask(&vpp::IVpp::setCtrlVppMode, 2), 9);
    EXPECT_EQ(newSession(), nullptr);
    EXPECT_EQ(host::faultsFired(), 3U);

    // A late answer stalls nobody: the second output comes without the first, which goes with the
    // session.
    constexpr int32_t kHour = 3600 * 1000;
    host::armFault({.operation = "outputBufferDone", .kind = host::FaultKind::Late, .code = kHour});
    feed(2, 2);
    ASSERT_TRUE(mRecorder->await("output"));
    EXPECT_EQ(mRecorder->outputTimes(), Times{2000});
}

TEST_F(VppServiceTest, DeathEndsEveryCallAndLetsGoOfEverything) {
    for (const bool byFault : {false, true}) {
        if (!mService) mService.emplace();
        reopenAt(kSmall, kSmall, {segment(0, 1)});
        const std::weak_ptr<Recorder> callbacks = mRecorder;
        feed(0, 3);
        mRecorder = nullptr;

        // A call that sleeps is woken by the death.
        host::armFault({.operation = "drain", .kind = host::FaultKind::Late, .code = 3600 * 1000});
        std::thread sleeper([this] { EXPECT_EQ(ask(&vpp::IVpp::drain), -1); });
        if (byFault) {
            host::armFault({.operation = "flush", .kind = host::FaultKind::Die});
            while (host::faultsFired() == 0)
                std::this_thread::yield();
            EXPECT_EQ(flush(VppPort::INPUT), -1);
            EXPECT_EQ(lend(0), -1) << "at once";
            EXPECT_EQ(newSession(), nullptr) << "no longer registered";
        } else {
            while (host::faultsFired() == 0)
                std::this_thread::yield();
        }
        mService.reset();
        sleeper.join();
        EXPECT_TRUE(callbacks.expired());
        EXPECT_EQ(lend(0), -1);
        EXPECT_EQ(ask(&vpp::IVpp::close), -1);
        EXPECT_EQ(host::counters().sessionsLive, 0U);
        host::clearFaults();
    }
}

// The client's object goes with the session, and what its end does in turn finds no lock held and
// no thread waited for.
TEST_F(VppServiceTest, LetsGoOfTheClientHoweverTheSessionEnds) {
    const std::vector<std::function<void()>> ends{
        [this] { mSession->terminateSession(); },
        [this] { EXPECT_EQ(ask(&vpp::IVpp::close), 0); },
        [this] { mSession = nullptr; },
        [this] { mService.reset(); },
    };
    for (size_t i = 0; i < ends.size(); ++i) {
        SCOPED_TRACE(i);
        reopenAt(kSmall, kSmall, {segment(0, 1)});
        feed(3, 3);
        bool ended = false;
        const std::weak_ptr<vpp::IVpp> session = mSession;
        mRecorder->onEnd = [&ended, session] {
            ended = true;
            const auto left = session.lock();
            if (left == nullptr) return;
            VppError ignored = VppError::VPP_OK;
            left->close(&ignored);
            left->terminateSession();
        };
        mRecorder = nullptr;
        ends[i]();
        EXPECT_TRUE(ended);
    }
}

TEST_F(VppServiceTest, MayBeEndedFromWithinACallback) {
    openAt(kSmall, kSmall, {segment(0, 0)});
    mRecorder->onSeen = [this](const Seen& one) {
        if (one.isOutput()) mSession->terminateSession();
    };
    feed(0, 2);
    for (int i = 0; i < 2; ++i)
        lend(i);  // the second may come too late
    ASSERT_TRUE(mRecorder->await("output"));
    EXPECT_EQ(lend(2), 3);
    EXPECT_EQ(mRecorder->count("output"), 1) << "nothing after the session has ended";

    // Nobody could wait for the callback; what it carried goes when it has returned.
    std::promise<void> ended;
    mRecorder->onEnd = [&ended] { ended.set_value(); };
    mRecorder = nullptr;
    EXPECT_EQ(ended.get_future().wait_for(kLimit), std::future_status::ready);
}

}  // namespace
}  // namespace qoz::test
