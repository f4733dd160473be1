// SPDX-License-Identifier: Apache-2.0
#include "support/Fixture.h"

#include <android/binder_process.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace qoz::test {
namespace {

// Returns the resource counters that must not be higher after a test than before.
std::map<std::string, uint64_t> living() {
    const host::Counters now = host::counters();
    return {{"graphic buffers", now.graphicBuffersLive},
            {"native handles", now.nativeHandlesLive},
            {"binders", now.bindersLive},
            {"sessions", now.sessionsLive},
            {"descriptors", host::openDescriptors()}};
}

// The counts may have fallen: a thread that the previous test has joined may still have been
// counted at the beginning of this one.
bool isNoMore(const std::map<std::string, uint64_t>& now,
              const std::map<std::string, uint64_t>& before) {
    return std::ranges::all_of(now, [&](const auto& e) { return e.second <= before.at(e.first); });
}

}  // namespace

sp<GraphicBuffer> buffer(uint32_t width, uint32_t height, int32_t format, uint32_t usage) {
    return sp<GraphicBuffer>(new GraphicBuffer(width, height, format, usage));
}

size_t ResourceTest::countThreads() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(threads), end(threads)));
}

void ResourceTest::SetUp() {
    host::clearProperties();
    host::clearFaults();
    ABinderProcess_startThreadPool();  // its threads never end
    mBefore = living();
    mBefore["threads"] = countThreads();
    takeQueuedTwice();
}

uint64_t ResourceTest::takeQueuedTwice() {
    const uint64_t all = host::counters().memoryQueuedTwice;
    return all - std::exchange(mQueuedTwice, all);
}

void ResourceTest::TearDown() {
    host::clearFaults();
    {
        // A thread may still wait for a service that the test never registered. Registering one
        // ends the wait.
        std::optional<ScriptedService> awaited;
        if (countThreads() > mBefore["threads"]) awaited.emplace(nullptr);
        eventually([this] { return countThreads() <= mBefore["threads"]; });
    }
    eventually([this] { return isNoMore(living(), mBefore); });
    EXPECT_LE(countThreads(), mBefore["threads"]);
    EXPECT_TRUE(isNoMore(living(), mBefore))
        << testing::PrintToString(living()) << " after " << testing::PrintToString(mBefore);
    EXPECT_EQ(takeQueuedTwice(), 0U) << "memory was queued while the service held it";
}

void ComponentTest::SetUp() {
    ResourceTest::SetUp();
    service = std::make_unique<ScriptedService>();
}

void ComponentTest::TearDown() {
    renew();
    service.reset();
    ResourceTest::TearDown();
}

void ComponentTest::renew() {
    if (service->next != nullptr) service->next->onCall = nullptr;
    if (vpp != nullptr) vpp->disable();
    vpp.reset();
    if (service->next != nullptr) (void)service->next->terminateSession();
    service->next = ndk::SharedRefBase::make<ScriptedVpp>();
    host::clearFaults();
    log.clear();
    client.clear();
}

void ComponentTest::make(const char* logFlags) {
    host::setProperty("vendor.qoz.log.msg", logFlags);
    vpp = std::make_shared<VppComponent>();
}

void ComponentTest::makeEnabled() {
    make();
    ASSERT_TRUE(enable());
}

void ComponentTest::enableAndConfig(uint32_t width, uint32_t height, ConfigParams params) {
    makeEnabled();
    vpp->config(width, height, kRgba, params, true);
    ASSERT_EQ(vpp->state(), VppComponent::ACTIVE);
}

void ComponentTest::startPlain(uint32_t factor, uint32_t upscale) {
    host::setProperty("debug.vpp.frc.game.ext.mbi", "false");
    enableAndConfig(kW, kH, {1, 0, factor, upscale});
}

int32_t ComponentTest::processSource(int32_t slot, const sp<GraphicBuffer>& source,
                                     int64_t nanoseconds, std::optional<ConfigParams> carried) {
    return process({{slot, source, nullptr, nanoseconds, carried}});
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

Strings ComponentTest::lastCalls(size_t count) const {
    Strings calls = service->next->calls();
    calls.erase(calls.begin(), calls.end() - static_cast<long>(std::min(count, calls.size())));
    return calls;
}

void ComponentTest::holdDelivery(int32_t slot, Gate& gate) {
    client.onDone = [slot, &gate](const Done& done) {
        if (done.slot == slot) gate.hold();
    };
}

}  // namespace qoz::test
