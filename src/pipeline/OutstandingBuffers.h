// SPDX-License-Identifier: Apache-2.0
// The buffers that are queued with the service. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>
#include <qoz/ClientTypes.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace android {

// Counts the buffers that are queued on either port and not yet returned, and records for each
// buffer what is needed to handle its return. Returns are thus handled correctly even if the
// service changes timestamps, and if the service dies, the class knows which buffers of the client
// it had.
//
// Any thread may use it; the lock is a leaf.
class OutstandingBuffers {
  public:
    // The largest number of source frames in the service. process() refuses more, so that a service
    // that returns nothing cannot use up all memory.
    static constexpr uint32_t kMaxSources = 128;

    struct Input {
        uint32_t id;    // slot of the client's buffer, or of the source if `internal`
        bool internal;  // a buffer of the component's own pool
        uint64_t key;   // timestamp (microseconds) that it was queued under
    };
    using Keys = std::array<std::optional<uint64_t>, 2>;
    // How to handle a returned buffer.
    struct Return {
        bool expected;  // false if the client got it when the service died
        // The keys of the entries that this return makes free in each pool: the timestamp that it
        // carries, and the one that the frame was queued under if the service has changed it.
        // Nothing for an entry that another outstanding frame uses. Only the component's own
        // buffers have entries in the pool of conversion targets.
        Keys sideKeys;
        Keys yuvKeys;
    };
    using OutputCounts = std::array<uint32_t, QOZBufferInfo::kOutputSlots>;
    struct Counts {
        uint32_t inputs;
        uint32_t outputs;
    };
    struct Lost {
        std::vector<Input> inputs;
        OutputCounts outputs;  // count for each slot
    };

    OutstandingBuffers(std::mutex& lock, uint32_t& inputs, uint32_t& outputs)
        : mLock(lock), mInputCount(inputs), mOutputCount(outputs) {
        mReturned.fill({0, false, kNoKey});
    }

    // Begins a session: nothing is outstanding, and the service is alive. The counts are for trace
    // and dump and are not reset: only returns, withdrawals and the death of the service reduce
    // them. isFull() does not use them. Throws std::bad_alloc.
    void restart() EXCLUDES(mLock);

    // Announces a source frame before its internal buffers enter the pools, so that the return of
    // another frame of the same timestamp does not free them. addInput() records it, or
    // withdrawAnnounced() takes it back. The client queues one source at a time.
    void announce(uint64_t key) { mAnnounced = key; }
    void withdrawAnnounced() { mAnnounced = kNoKey; }

    // Return whether an announced or outstanding frame uses the side buffers of a key, or its
    // conversion target.
    bool areSidesUsed(uint64_t key) const EXCLUDES(mLock);
    bool isTargetUsed(uint64_t key) const EXCLUDES(mLock);

    // Records a buffer before the call that queues it, because the buffer may be returned before
    // that call ends. Returns false if the service has died; the buffer must not be queued then.
    // addInput() can throw std::bad_alloc only beyond kMaxSources sources.
    bool addInput(const Input& input) EXCLUDES(mLock);
    bool addOutput(uint32_t slot) EXCLUDES(mLock);

    // Removes a buffer after the service has refused it. Returns false if the buffer was already
    // returned because the service died.
    bool withdrawInput(const Input& input) EXCLUDES(mLock);
    bool withdrawOutput(uint32_t slot) EXCLUDES(mLock);

    // Records that the service has returned a buffer on the input or on the output port. A buffer
    // that was never queued does not reduce a count below zero.
    Return takeInput(uint32_t id, bool internal, uint64_t timestamp) EXCLUDES(mLock);
    Return takeOutput(uint32_t id, uint64_t timestamp) EXCLUDES(mLock);

    // Called when the service has flushed both ports and should hold nothing. Forgets the internal
    // buffers that it has not returned, which are lost. Keeps the client's buffers, whose returns
    // may still arrive.
    void forgetInternalInputs() EXCLUDES(mLock);

    // Called when the service has died: removes and returns all buffers, and expects no further
    // returns.
    Lost takeAll() EXCLUDES(mLock);

    // isFull() examines the recorded buffers and not the count, because stray and repeated returns
    // reduce the count as well.
    bool isFull() const EXCLUDES(mLock);
    bool isServiceGone() const EXCLUDES(mLock);
    Counts counts() const EXCLUDES(mLock);

  private:
    // Stands for no frame. A frame's key is a 64-bit number of nanoseconds divided by a thousand,
    // which is never this, whatever its sign.
    static constexpr uint64_t kNoKey = INT64_MAX;

    // The number of buffers that are remembered after their return.
    static constexpr size_t kRemembered = size_t{2} * kMaxSources;

    // Finds the entry of just this frame.
    std::vector<Input>::iterator findExact(const Input& input) REQUIRES(mLock);
    // Finds the frame that a return stands for: the entry of just this frame, or else the oldest
    // entry of the id. A return that has been seen before finds nothing.
    std::vector<Input>::iterator find(const Input& returned) REQUIRES(mLock);
    bool isRepeated(const Input& returned) const REQUIRES(mLock);
    // Whether a frame with this timestamp has come back in this session, as far as is remembered.
    bool wasReturned(uint64_t key) const REQUIRES(mLock);
    void remember(const Input& input) REQUIRES(mLock);
    // The number of outstanding frames that share one entry of the pool of side buffers, or of the
    // pool of conversion targets.
    size_t sharingSides(uint64_t key) const REQUIRES(mLock);
    size_t sharingTarget(uint64_t key) const REQUIRES(mLock);

    // Read under the lock, but written without it: a frame that a return has not seen yet enters
    // the pools only later, which BufferPool::freeUnlessRecorded() notices.
    std::atomic<uint64_t> mAnnounced{kNoKey};

    std::mutex& mLock;
    uint32_t& mInputCount GUARDED_BY(mLock);
    uint32_t& mOutputCount GUARDED_BY(mLock);
    std::vector<Input> mInputs GUARDED_BY(mLock);                // in queueing order
    std::array<Input, kRemembered> mReturned GUARDED_BY(mLock);  // a ring
    size_t mNextReturned GUARDED_BY(mLock) = 0;
    OutputCounts mOutputs GUARDED_BY(mLock){};
    bool mServiceGone GUARDED_BY(mLock) = false;
};

}  // namespace android
