#include "support/Fixture.h"

#include <android/binder_process.h>

#include <filesystem>

namespace qoz::test {
namespace {

size_t countThreads() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(threads), end(threads)));
}

}  // namespace

sp<GraphicBuffer> buffer(uint32_t width, uint32_t height, int32_t format, uint32_t usage) {
    return sp<GraphicBuffer>(new GraphicBuffer(width, height, format, usage));
}

void EvenTest::SetUp() {
    host::clearProperties();
    host::clearFaults();
    ABinderProcess_startThreadPool();  // its threads never end
    mBefore = host::counters();
    mDescriptors = host::openDescriptors();
    mThreads = countThreads();
}

void EvenTest::TearDown() {
    host::clearFaults();
    // Who still waits for a service that never came waits no longer.
    std::optional<ScriptedService> come;
    if (countThreads() != mThreads) {
        come.emplace();
        come->next.reset();  // its session has a thread of its own
    }
    const bool threadsEven = eventually([this] { return countThreads() == mThreads; });
    come.reset();
    EXPECT_TRUE(threadsEven) << countThreads() << " threads, " << mThreads << " before";
    const auto same = [this] {
        const host::Counters now = host::counters();
        return now.graphicBuffersLive == mBefore.graphicBuffersLive &&
               now.nativeHandlesLive == mBefore.nativeHandlesLive &&
               now.bindersLive == mBefore.bindersLive && now.sessionsLive == mBefore.sessionsLive &&
               host::openDescriptors() == mDescriptors;
    };
    if (eventually(same)) return;
    const host::Counters now = host::counters();
    EXPECT_EQ(now.graphicBuffersLive, mBefore.graphicBuffersLive);
    EXPECT_EQ(now.nativeHandlesLive, mBefore.nativeHandlesLive);
    EXPECT_EQ(now.bindersLive, mBefore.bindersLive);
    EXPECT_EQ(now.sessionsLive, mBefore.sessionsLive);
    EXPECT_EQ(host::openDescriptors(), mDescriptors);
}

void ComponentTest::SetUp() {
    EvenTest::SetUp();
    service = std::make_unique<ScriptedService>();
}

void ComponentTest::TearDown() {
    if (vpp != nullptr) vpp->disable();
    vpp.reset();
    if (service->next != nullptr) (void)service->next->terminateSession();
    service.reset();
    EvenTest::TearDown();
}

void ComponentTest::make(const char* logFlags) {
    host::setProperty("vendor.qoz.log.msg", logFlags);
    vpp = std::make_shared<VppComponent>();
}

void ComponentTest::enableAndConfig(uint32_t width, uint32_t height, ConfigParams params) {
    make();
    ASSERT_TRUE(enable());
    vpp->config(width, height, kRgba, params, true);
    ASSERT_EQ(vpp->state(), VppComponent::ACTIVE);
}

int32_t ComponentTest::processSource(int32_t slot, const sp<GraphicBuffer>& source,
                                     int64_t nanoseconds, std::optional<ConfigParams> carried) {
    std::vector<QOZBufferInfo> packet{{slot, source, nullptr, nanoseconds, carried}};
    return vpp->process(&packet, nullptr);
}

int32_t ComponentTest::processOutput(int32_t slot, const sp<GraphicBuffer>& output) {
    QOZBufferInfo info{slot, output, nullptr, 0, {}};
    return vpp->process(nullptr, &info);
}

std::vector<Queued> ComponentTest::queuedOn(vpp::VppPort port) const {
    std::vector<Queued> all = service->next->queued();
    std::erase_if(all, [port](const Queued& q) { return q.port != port; });
    return all;
}

}  // namespace qoz::test
