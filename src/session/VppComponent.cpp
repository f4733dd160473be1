#include <cutils/properties.h>
#include <qoz/VppComponent.h>

#include <algorithm>

#include "session/Log.h"

namespace android {
namespace {

// The text of a numeric property as std::stoul reads it, low 32 bits.
uint32_t numericProperty(const char* name, int base) {
    std::array<char, PROPERTY_VALUE_MAX> value{};
    property_get(name, value.data(), "0");
    return static_cast<uint32_t>(std::stoul(value.data(), nullptr, base));
}

// Long side against long limit, short side against short limit, whatever the orientation of either.
// A limit of 0 is none.
bool exceedsLimit(uint32_t width, uint32_t height, uint32_t maxWidth, uint32_t maxHeight) {
    if (maxWidth == 0 || maxHeight == 0) return false;
    if (std::max(width, height) > std::max(maxWidth, maxHeight)) return true;
    return std::min(width, height) > std::min(maxWidth, maxHeight);
}

}  // namespace

VppComponent::VppComponent()
    : mMapper(Singleton<GraphicBufferMapper>::getInstance()), mNeedDownscale(exceedsLimit) {
    mLogFlags = numericProperty("vendor.qoz.log.msg", 16);
    mMaxWidth = numericProperty("vendor.qoz.maxw", 10);
    mMaxHeight = numericProperty("vendor.qoz.maxh", 10);
    mDumpEnable = property_get_bool("vendor.qoz.dump.enable", 0) != 0;
    mDumpMvEnable = property_get_bool("vendor.qoz.dump.mv.enable", 0) != 0;
    mFrcSegments.resize(1);
    VPP_LOGI("%s", "VppComponent");
}

VppComponent::~VppComponent() {
    VPP_LOGD("%s", "~VppComponent");
    if (mStatus != UNINIT) shutDown();
}

VppComponent::status VppComponent::state() const {
    return mStatus.get();
}

uint32_t VppComponent::outBufReqsPerFrame() const {
    return mPublishedOutBufReqs.load(std::memory_order_relaxed);
}

uint32_t VppComponent::expectedOutputWidth() const {
    return static_cast<uint32_t>(mPublishedOutSize.load(std::memory_order_relaxed) >> 32);
}

uint32_t VppComponent::expectedOutputHeight() const {
    return static_cast<uint32_t>(mPublishedOutSize.load(std::memory_order_relaxed));
}

// Relaxed: each is a value of its own, no other memory is read on the strength of it.
void VppComponent::publishStreamFacts() {
    mPublishedOutBufReqs.store(mOutBufReqsPerFrame, std::memory_order_relaxed);
    mPublishedOutSize.store(static_cast<uint64_t>(mExpectedOutWidth) << 32 | mExpectedOutHeight,
                            std::memory_order_relaxed);
    mPublishedInSize.store(static_cast<uint64_t>(mInPortWidth) << 32 | mInPortHeight,
                           std::memory_order_relaxed);
    mPublishedFormat.store(mFormat, std::memory_order_relaxed);
    mPublishedInterp.store(mInterpFactor, std::memory_order_relaxed);
    mPublishedMv.store(mMvEnabled, std::memory_order_relaxed);
    mPublishedDs.store(mDsEnabled, std::memory_order_relaxed);
}

bool VppComponent::isEnabled(const char* operation) const {
    if (mVpp != nullptr && mOBDThreadRunning) return true;
    VPP_LOGE("%s: component is not enabled", operation);
    return false;
}

// A callback of the session before may still be printing the name that goes: none is freed, and the
// messages read a pointer.
void VppComponent::adoptName(const std::string& name) {
    mName = name;
    const auto known = std::find(mLogNames.begin(), mLogNames.end(), name);
    mLogName = known != mLogNames.end() ? known->c_str() : mLogNames.emplace_front(name).c_str();
}

// The pointer is plain, but a callback of the session before may still read it while enable writes
// it. (By the builtins: std::atomic_ref is not in every library that this is built with.)
IQOZCallback* VppComponent::client() const {
    return __atomic_load_n(&mCallback, __ATOMIC_ACQUIRE);
}

void VppComponent::setClient(IQOZCallback* callback) {
    __atomic_store_n(&mCallback, callback, __ATOMIC_RELEASE);
}

void VppComponent::giveBack(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) {
    IQOZCallback* callback = client();
    if (callback != nullptr) callback->onBufferDone(port, slot, valid, timestamp);
}

int32_t VppComponent::process(std::vector<QOZBufferInfo>* src, QOZBufferInfo* dst) {
    const bool haveSource = src != nullptr && !src->empty();
    if (!haveSource && dst == nullptr) return 2;
    return processBuffer(haveSource ? src : nullptr, dst);
}

}  // namespace android
