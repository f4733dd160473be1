// SPDX-License-Identifier: Apache-2.0
#include "pipeline/OutstandingBuffers.h"

#include <algorithm>
#include <utility>

namespace android {
namespace {

void countDown(uint32_t& count) {
    if (count > 0) --count;
}

}  // namespace

// Reserves space for every source that process() accepts, so that addInput() does not allocate.
void OutstandingBuffers::restart() {
    std::vector<Input> inputs;
    inputs.reserve(kMaxSources);
    const std::lock_guard<std::mutex> lock(mLock);
    mInputs.swap(inputs);
    mOutputs.fill(0);
    mInputCount = 0;
    mOutputCount = 0;
    mServiceGone = false;
}

bool OutstandingBuffers::addInput(const Input& input) {
    const std::lock_guard<std::mutex> lock(mLock);
    if (mServiceGone) return false;
    mInputs.push_back(input);
    ++mInputCount;
    return true;
}

bool OutstandingBuffers::addOutput(uint32_t slot) {
    const std::lock_guard<std::mutex> lock(mLock);
    if (mServiceGone) return false;
    if (slot < mOutputs.size()) ++mOutputs[slot];
    ++mOutputCount;
    return true;
}

// Called when the service has refused the buffer and will not return it. If the entry is gone, the
// service has died in between and onServiceDied() has returned the buffer.
bool OutstandingBuffers::withdrawInput(const Input& input) {
    const std::lock_guard<std::mutex> lock(mLock);
    const auto entry = find(input.id, input.internal, input.key);
    if (entry == mInputs.end()) return false;
    mInputs.erase(entry);
    countDown(mInputCount);
    return true;
}

bool OutstandingBuffers::withdrawOutput(uint32_t slot) {
    const std::lock_guard<std::mutex> lock(mLock);
    if (slot >= mOutputs.size() || mOutputs[slot] == 0) return false;
    --mOutputs[slot];
    countDown(mOutputCount);
    return true;
}

std::vector<OutstandingBuffers::Input>::iterator OutstandingBuffers::find(uint32_t id,
                                                                          bool internal,
                                                                          uint64_t key) {
    const auto isSame = [&](const Input& input) {
        return input.id == id && input.internal == internal;
    };
    const auto exact = std::find_if(mInputs.begin(), mInputs.end(), [&](const Input& input) {
        return isSame(input) && input.key == key;
    });
    return exact != mInputs.end() ? exact : std::find_if(mInputs.begin(), mInputs.end(), isSame);
}

// Returns the number of outstanding frames that share one entry of the pools.
size_t OutstandingBuffers::queuedUnder(uint64_t key) const {
    return static_cast<size_t>(std::count_if(
        mInputs.begin(), mInputs.end(), [key](const Input& input) { return input.key == key; }));
}

// Uses the key that the frame was queued under, whatever timestamp the service returns. A frame
// that was never queued does not reduce a count below zero, and frees only entries that no other
// frame uses.
OutstandingBuffers::Return OutstandingBuffers::takeInput(uint32_t id, bool internal,
                                                         uint64_t timestamp) {
    const std::lock_guard<std::mutex> lock(mLock);
    Return result{!mServiceGone, timestamp, false};
    const auto entry = find(id, internal, timestamp);
    if (entry != mInputs.end()) {
        result.key = entry->key;
        mInputs.erase(entry);
    }
    countDown(mInputCount);
    result.keyFree = queuedUnder(result.key) == 0;
    return result;
}

// An output carries the timestamp of a frame, and may be returned before that frame. The frame's
// pool entry is then free if no other frame shares it.
OutstandingBuffers::Return OutstandingBuffers::takeOutput(uint32_t id, uint64_t timestamp) {
    const std::lock_guard<std::mutex> lock(mLock);
    const Return result{!mServiceGone, timestamp, queuedUnder(timestamp) <= 1};
    if (id < mOutputs.size()) countDown(mOutputs[id]);
    countDown(mOutputCount);
    return result;
}

// Takes all buffers in one step under the lock: a buffer that is being queued meanwhile is either
// among them or is refused by addInput() or addOutput().
OutstandingBuffers::Lost OutstandingBuffers::takeAll() {
    const std::lock_guard<std::mutex> lock(mLock);
    Lost lost{std::move(mInputs), mOutputs};
    mInputs.clear();
    mOutputs.fill(0);
    mInputCount = 0;
    mOutputCount = 0;
    mServiceGone = true;
    return lost;
}

bool OutstandingBuffers::isFull() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return mInputCount >= kMaxSources;
}

bool OutstandingBuffers::isServiceGone() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return mServiceGone;
}

OutstandingBuffers::Counts OutstandingBuffers::counts() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return {mInputCount, mOutputCount};
}

}  // namespace android
