// SPDX-License-Identifier: Apache-2.0
// The operations of a component. Each one forwards to the part that does the work.
#include <aidl/vendor/vuq/hardware/vpp/VppPortParam.h>
#include <cutils/properties.h>
#include <qoz/VppComponent.h>
#include <ui/GraphicBufferMapper.h>

#include <algorithm>
#include <array>
#include <new>

#include "session/Parts.h"
#include "session/ServiceLookup.h"
#include "session/StateDump.h"
#include "stream/VppUtils.h"

namespace android {
namespace {

// Converts the value of a numeric property with std::stoul and returns the low 32 bits.
uint32_t numericProperty(const char* name, int base) {
    std::array<char, PROPERTY_VALUE_MAX> value{};
    property_get(name, value.data(), "0");
    return static_cast<uint32_t>(std::stoul(value.data(), nullptr, base));
}

// Compares the longer side with the larger limit and the shorter side with the smaller one,
// whatever the orientation of either. A limit of 0 means no limit.
bool exceedsLimit(uint32_t width, uint32_t height, uint32_t maxWidth, uint32_t maxHeight) {
    if (maxWidth == 0 || maxHeight == 0) return false;
    if (std::max(width, height) > std::max(maxWidth, maxHeight)) return true;
    return std::min(width, height) > std::min(maxWidth, maxHeight);
}

// Refuses an operation that is called from within a callback of the same component, because it
// would wait for that callback.
bool isRefused(const ClientCallback& client, const SessionLog& mLog, const char* operation) {
    if (!client.isOnThisThread()) return false;
    VPP_LOGE("%s: called from within a callback of its own component", operation);
    return true;
}

}  // namespace

// Reads the properties once; their values apply for the object's lifetime. An invalid numeric
// property throws here, before any part has been constructed.
VppComponent::VppComponent()
    : mMapper(Singleton<GraphicBufferMapper>::getInstance()), mNeedDownscale(exceedsLimit) {
    mLogFlags = numericProperty("vendor.qoz.log.msg", 16);
    mMaxWidth = numericProperty("vendor.qoz.maxw", 10);
    mMaxHeight = numericProperty("vendor.qoz.maxh", 10);
    mDumpEnable = property_get_bool("vendor.qoz.dump.enable", 0) != 0;
    mDumpMvEnable = property_get_bool("vendor.qoz.dump.mv.enable", 0) != 0;
    mFrcSegments.resize(1);
    mParts = std::make_unique<Parts>(*this);
    const SessionLog& mLog = mParts->log;
    VPP_LOGI("VppComponent");
}

// Runs on the thread that releases the last reference, which may be the worker or a thread inside a
// callback.
VppComponent::~VppComponent() {
    const SessionLog& mLog = mParts->log;
    VPP_LOGD("~VppComponent");
    if (mStatus != UNINIT) mParts->session.disable();
}

// Operations of the client.

bool VppComponent::enable(const std::string& name, IQOZCallback* callback, bool debug) {
    if (isRefused(mParts->client, mParts->log, "enable")) return false;
    return mParts->session.enable(name, callback, debug);
}

void VppComponent::disable() {
    if (isRefused(mParts->client, mParts->log, "disable")) return;
    mParts->session.disable();
}

// Stores everything before it posts the start, so that the getters report the new settings on
// return. The gate keeps output buffers out meanwhile, because they are checked against the stored
// values.
void VppComponent::config(uint32_t width, uint32_t height, uint32_t format, ConfigParams params,
                          bool wait) {
    Parts& p = *mParts;
    const SessionLog& mLog = p.log;
    WaitBudget waits = p.waitLimit.budget();
    if (isRefused(p.client, p.log, "config")) return;
    if (!p.worker.waitForPendingStart(waits, "config")) return;
    {
        const Gate::Closure closure(p.outputGate, &waits);
        if (!closure) {
            VPP_LOGE("config: an output buffer is still being queued");
            return;
        }
        p.ports.setSource(width, height, format);
        p.settings.adoptAll(params);
        try {
            if (p.settings.motionVectors()) p.heldSlots.holdPlace();
        } catch (const std::bad_alloc&) {
            VPP_LOGE("config: out of memory, sources are released at once");
        }
        p.settings.publish();
        p.ports.announce();
        p.worker.postStart();
    }
    if (!p.worker.isRunning()) {
        VPP_LOGE("config: component is not enabled, nothing will start the session");
        return;
    }
    if (wait) p.worker.waitForFirstStart(waits);
}

// An empty packet counts as no source.
int32_t VppComponent::process(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst) {
    const bool haveSource = src != nullptr && !src->empty();
    if (!haveSource && dst == nullptr) return QOZResult::kNothingGiven;
    return processBuffer(haveSource ? src : nullptr, dst);
}

// An output buffer may be queued from within a callback, a source may not. A call with both is
// refused by FrameIntake, on any thread.
int32_t VppComponent::processBuffer(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst) {
    const bool hasSource = src != nullptr && dst == nullptr;
    if (hasSource && isRefused(mParts->client, mParts->log, "process")) return QOZResult::kRefused;
    return mParts->intake.process(src, dst);
}

void VppComponent::flushsync() {
    if (isRefused(mParts->client, mParts->log, "flushsync")) return;
    WaitBudget waits = mParts->waitLimit.budget();
    mParts->flush.flushAndDeliver(waits);
}

bool VppComponent::isInputPortEnabled(uint32_t width, uint32_t height, uint32_t format) {
    if (isRefused(mParts->client, mParts->log, "isInputPortEnabled")) return false;
    WaitBudget waits = mParts->waitLimit.budget();
    return mParts->worker.waitForPendingStart(waits, "isInputPortEnabled") &&
           mParts->intake.isInputPortEnabled(width, height, format);
}

uint32_t VppComponent::calculateOutBufferReqsPerFrame(ConfigParams params) {
    return mParts->settings.adoptOutBufReqs(params);
}

// Also logs the answer, whatever the log gate, because a client asks only once for each stream.
int VppComponent::GetFormat(int format, int& yuvFormat) {
    uint32_t portFormat = 0;
    const bool rgb = VppUtils::isConvertible(static_cast<uint32_t>(format), portFormat);
    yuvFormat = static_cast<int>(portFormat);
    return rgb ? 0 : 3;
}

VppComponent::status VppComponent::state() const {
    return mStatus.get();
}

uint32_t VppComponent::outBufReqsPerFrame() const {
    return mParts->facts.read().outBufReqsPerFrame;
}

uint32_t VppComponent::expectedOutputWidth() const {
    return mParts->facts.read().outputWidth;
}

uint32_t VppComponent::expectedOutputHeight() const {
    return mParts->facts.read().outputHeight;
}

void VppComponent::dump(int fd) const {
    StateDump(*this, *mParts).writeTo(fd);
}

// Internal operations. Each one that waits has its own wait budget, as if the client had called it.

bool VppComponent::acquireVppService() {
    return mParts->session.acquireService();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the thread keeps its own copy
void VppComponent::waitForService(std::string instance) {
    blockUntilRegistered(instance);
}

bool VppComponent::processStart_l(uint32_t width, uint32_t height, uint32_t format) {
    return mParts->start.start(width, height, format);
}

void VppComponent::checkDownscaleAndSetExpectedResolution() {
    mParts->ports.resolve();
}

void VppComponent::createVppPort(vpp::VppPortParam* port, uint32_t width, uint32_t height,
                                 uint32_t format) {
    mParts->ports.create(port, width, height, format);
}

bool VppComponent::configVppFrc(uint64_t timestamp) {
    return mParts->control.configFrc(timestamp);
}

bool VppComponent::configVppAis() {
    return mParts->control.configAis();
}

bool VppComponent::processFlush_l(bool clearYuvPool) {
    WaitBudget waits = mParts->waitLimit.budget();
    return mParts->flush.flushPorts(clearYuvPool, waits);
}

bool VppComponent::processReconfig_l(uint32_t width, uint32_t height, uint32_t format) {
    WaitBudget waits = mParts->waitLimit.budget();
    return mParts->reconfiguration.run(width, height, format, waits);
}

// Not used by any client operation: flushsync() flushes, which returns queued frames unprocessed.
bool VppComponent::processDrainDone_l() {
    Parts& p = *mParts;
    const SessionLog& mLog = p.log;
    if (!p.service.hasSession()) {
        VPP_LOGE("processDrainDone_l: component is not enabled");
        return false;
    }
    VPP_LOGI("processDrainDone_l");
    WaitBudget waits = p.waitLimit.budget();
    return p.events.drain(waits);
}

void VppComponent::onVppEFD(const vpp::FlushDone& done) {
    mParts->events.onFlushDone(done);
}

void VppComponent::onVppERD(const vpp::ReconfigDone& done) {
    mParts->events.onReconfigDone(done);
}

void VppComponent::onVppEDD() {
    mParts->events.onDrainDone();
}

bool VppComponent::requestYuvBuffer(sp<GraphicBuffer>* out, const RequestInfo& info) {
    return mParts->yuvPool.request(out, info);
}

bool VppComponent::requestExtradataBuffer(sp<GraphicBuffer>* fwOut, sp<GraphicBuffer>* bwOut,
                                          const RequestInfo& mvInfo, sp<GraphicBuffer>* dsOut,
                                          const RequestInfo& dsInfo) {
    return mParts->sidePool.request({fwOut, bwOut, dsOut}, mvInfo, dsInfo);
}

bool VppComponent::checkBufferCompatibility(const sp<GraphicBuffer>& buffer, bool skip) {
    return skip || mParts->queue.fitsOutput(buffer);
}

bool VppComponent::queueBuffer(const sp<GraphicBuffer>& buffer, SideBuffers& extradata,
                               uint32_t cookie, uint64_t timestamp, bool isInput) {
    return mParts->queue.queue(buffer, extradata, cookie, timestamp, isInput);
}

bool VppComponent::queueVppBuffer(uint32_t cookie, const sp<GraphicBuffer>& buffer,
                                  uint64_t timestamp, bool isInput) {
    return mParts->queue.send(cookie, buffer, timestamp, isInput);
}

void VppComponent::releaseNativeHandle(const native_handle_t* handle, bool closeFds) {
    ::android::releaseNativeHandle(handle, closeFds);
}

void VppComponent::onVppIBD(const vpp::VppBuffer& buffer) {
    mParts->returns.onInputDone(buffer);
}

void VppComponent::onVppOBD(const vpp::VppBuffer& buffer) {
    mParts->returns.onOutputDone(buffer);
}

void VppComponent::queueOBD() {
    mParts->worker.deliverQueued();
}

void VppComponent::VppOBDworkerThread() {
    mParts->worker.run();
}

}  // namespace android
