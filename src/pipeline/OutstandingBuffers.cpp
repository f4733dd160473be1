// SPDX-License-Identifier: Apache-2.0
#include "pipeline/OutstandingBuffers.h"

#include <algorithm>
#include <utility>

namespace android {
namespace {

// Whether both are the same frame. The key alone identifies a buffer of the component's own pool.
bool isSame(const OutstandingBuffers::Input& one, const OutstandingBuffers::Input& other) {
    return one.key == other.key && one.internal == other.internal &&
           (one.internal || one.id == other.id);
}

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
    withdrawAnnounced();
    mReturned.fill({0, false, kNoKey});
    mOutputs.fill(0);
    mServiceGone = false;
}

bool OutstandingBuffers::areSidesUsed(uint64_t key) const {
    const std::lock_guard<std::mutex> lock(mLock);
    return sharingSides(key) != 0;
}

bool OutstandingBuffers::isTargetUsed(uint64_t key) const {
    const std::lock_guard<std::mutex> lock(mLock);
    return sharingTarget(key) != 0;
}

bool OutstandingBuffers::addInput(const Input& input) {
    const std::lock_guard<std::mutex> lock(mLock);
    withdrawAnnounced();
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

// Called when the service has refused the buffer. If the entry is gone, the service has died in
// between and onServiceDied() has returned the buffer. The frame is remembered, because a service
// may return even a buffer that it has refused.
bool OutstandingBuffers::withdrawInput(const Input& input) {
    const std::lock_guard<std::mutex> lock(mLock);
    const auto entry = findExact(input);
    if (entry == mInputs.end()) return false;
    remember(*entry);
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

std::vector<OutstandingBuffers::Input>::iterator OutstandingBuffers::findExact(const Input& input) {
    return std::find_if(mInputs.begin(), mInputs.end(),
                        [&](const Input& queued) { return isSame(queued, input); });
}

// The oldest entry of the id stands in for a frame whose timestamp the service has changed. Slots
// are reused, so the repeated return of an earlier frame must not match that entry: it would free
// the memory of a frame that the service is still reading.
std::vector<OutstandingBuffers::Input>::iterator OutstandingBuffers::find(const Input& returned) {
    const auto exact = findExact(returned);
    if (exact != mInputs.end()) return exact;
    if (isRepeated(returned)) return mInputs.end();
    return std::find_if(mInputs.begin(), mInputs.end(), [&](const Input& input) {
        return input.id == returned.id && input.internal == returned.internal;
    });
}

// Timestamp 0 does not identify a frame: a service may return every frame with it.
bool OutstandingBuffers::isRepeated(const Input& returned) const {
    return returned.key != 0 &&
           std::any_of(mReturned.begin(), mReturned.end(),
                       [&](const Input& input) { return isSame(input, returned); });
}

bool OutstandingBuffers::wasReturned(uint64_t key) const {
    return std::any_of(mReturned.begin(), mReturned.end(),
                       [key](const Input& input) { return input.key == key; });
}

void OutstandingBuffers::remember(const Input& input) {
    mReturned[mNextReturned] = input;
    mNextReturned = (mNextReturned + 1) % mReturned.size();
}

void OutstandingBuffers::forgetInternalInputs() {
    const std::lock_guard<std::mutex> lock(mLock);
    for (const Input& input : mInputs) {
        if (input.internal) remember(input);
    }
    mInputs.erase(std::remove_if(mInputs.begin(), mInputs.end(),
                                 [](const Input& input) { return input.internal; }),
                  mInputs.end());
}

size_t OutstandingBuffers::sharingSides(uint64_t key) const {
    const auto outstanding = std::count_if(mInputs.begin(), mInputs.end(),
                                           [key](const Input& input) { return input.key == key; });
    return static_cast<size_t>(outstanding) + (mAnnounced == key ? 1 : 0);
}

size_t OutstandingBuffers::sharingTarget(uint64_t key) const {
    const auto outstanding =
        std::count_if(mInputs.begin(), mInputs.end(),
                      [key](const Input& input) { return input.internal && input.key == key; });
    return static_cast<size_t>(outstanding) + (mAnnounced == key ? 1 : 0);
}

// A frame that was never queued does not reduce a count below zero.
OutstandingBuffers::Return OutstandingBuffers::takeInput(uint32_t id, bool internal,
                                                         uint64_t timestamp) {
    const std::lock_guard<std::mutex> lock(mLock);
    Return result{!mServiceGone, {}, {}};
    uint64_t queuedKey = timestamp;
    const auto entry = find({id, internal, timestamp});
    if (entry != mInputs.end()) {
        queuedKey = entry->key;
        // A changed timestamp is not remembered: a service may return every frame with the same
        // one.
        if (queuedKey == timestamp) remember(*entry);
        mInputs.erase(entry);
    }
    countDown(mInputCount);
    const std::array<uint64_t, 2> keys{timestamp, queuedKey};
    for (size_t i = 0; i < (queuedKey == timestamp ? 1 : keys.size()); ++i) {
        if (sharingSides(keys[i]) == 0) result.sideKeys[i] = keys[i];
        if (internal && sharingTarget(keys[i]) == 0) result.yuvKeys[i] = keys[i];
    }
    return result;
}

// An output carries the timestamp of the frame that it was made from, and may be returned before
// that frame's input buffer. Its return frees the side buffers of that timestamp unless it may
// belong to another frame than the one that uses them: if several outstanding frames use them, or
// if a frame of this timestamp has come back. The return of the last input frees them in any case.
OutstandingBuffers::Return OutstandingBuffers::takeOutput(uint32_t id, uint64_t timestamp) {
    const std::lock_guard<std::mutex> lock(mLock);
    Return result{!mServiceGone, {}, {}};
    if (sharingSides(timestamp) <= 1 && !wasReturned(timestamp)) result.sideKeys[0] = timestamp;
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
    return mInputs.size() >= kMaxSources;
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
