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

// With room for every source that process() lets in: addInput() then asks nothing of the heap.
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

// The service has refused the buffer, so nobody will return it. If it is not there any more, the
// death of the service came in between and has given it back.
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

// How many frames are outstanding that share one entry of the pools.
size_t OutstandingBuffers::queuedUnder(uint64_t key) const {
    return static_cast<size_t>(std::count_if(
        mInputs.begin(), mInputs.end(), [key](const Input& input) { return input.key == key; }));
}

// The key is the one that the frame was queued under, whatever timestamp the service returns it
// with. A frame that was never queued changes no count below zero and frees only what nobody else
// uses.
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

// An output carries the timestamp of a frame, which may come back before the frame itself does.
// What travelled with one frame alone is free then.
OutstandingBuffers::Return OutstandingBuffers::takeOutput(uint32_t id, uint64_t timestamp) {
    const std::lock_guard<std::mutex> lock(mLock);
    const Return result{!mServiceGone, timestamp, queuedUnder(timestamp) <= 1};
    if (id < mOutputs.size()) countDown(mOutputs[id]);
    countDown(mOutputCount);
    return result;
}

// In one step under the lock: a buffer that is being queued meanwhile is either among these or is
// refused by addInput() and addOutput().
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
