// SPDX-License-Identifier: Apache-2.0
// The buffers that the service has. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>
#include <qoz/ClientTypes.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <vector>

namespace android {

// Counts what is queued to either port and not yet returned, and remembers of each buffer what its
// return is to be judged by: the service is not relied on to keep a timestamp, and at its death
// every buffer of the client's is known.
//
// Any thread; the lock is a leaf.
class OutstandingBuffers {
  public:
    // Source frames in the service; process() refuses more, so that a service which keeps
    // everything cannot take all memory.
    static constexpr uint32_t kMaxSources = 128;

    struct Input {
        uint32_t id;    // of the client's buffer; of the source for one of the component's own
        bool internal;  // one of the component's own
        uint64_t key;   // the timestamp (microseconds) it was queued under
    };
    // What a return means.
    struct Return {
        bool expected;  // false: it was given back when the service died
        uint64_t key;   // under which the pools have what travelled with it
        bool keyFree;   // nothing else that was queued under the key is outstanding
    };
    using OutputCounts = std::array<uint32_t, QOZBufferInfo::kOutputSlots>;
    struct Counts {
        uint32_t inputs;
        uint32_t outputs;
    };
    struct Lost {
        std::vector<Input> inputs;
        OutputCounts outputs;  // by slot
    };

    OutstandingBuffers(std::mutex& lock, uint32_t& inputs, uint32_t& outputs)
        : mLock(lock), mInputCount(inputs), mOutputCount(outputs) {}

    // A session begins: nothing is outstanding, and the service is alive. Throws std::bad_alloc.
    void restart() EXCLUDES(mLock);

    // Before the call that queues it: the buffer may be back before the call is. False: the service
    // has died, and the buffer is not to be queued. addInput() throws std::bad_alloc.
    bool addInput(const Input& input) EXCLUDES(mLock);
    bool addOutput(uint32_t slot) EXCLUDES(mLock);

    // After a call that the service refused. False: the buffer was given back when the service
    // died.
    bool withdrawInput(const Input& input) EXCLUDES(mLock);
    bool withdrawOutput(uint32_t slot) EXCLUDES(mLock);

    // The service has returned a buffer that was queued on the input or on the output port. Counts
    // stay at zero for one that was never queued.
    Return takeInput(uint32_t id, bool internal, uint64_t timestamp) EXCLUDES(mLock);
    Return takeOutput(uint32_t id, uint64_t timestamp) EXCLUDES(mLock);

    // The service has died: everything is taken, and nothing more is expected.
    Lost takeAll() EXCLUDES(mLock);

    bool isFull() const EXCLUDES(mLock);
    bool isServiceGone() const EXCLUDES(mLock);
    Counts counts() const EXCLUDES(mLock);

  private:
    // The entry with this key if there is one, else the oldest of the id.
    std::vector<Input>::iterator find(uint32_t id, bool internal, uint64_t key) REQUIRES(mLock);
    size_t queuedUnder(uint64_t key) const REQUIRES(mLock);

    std::mutex& mLock;
    uint32_t& mInputCount GUARDED_BY(mLock);
    uint32_t& mOutputCount GUARDED_BY(mLock);
    std::vector<Input> mInputs GUARDED_BY(mLock);  // in the order of their queueing
    OutputCounts mOutputs GUARDED_BY(mLock){};
    bool mServiceGone GUARDED_BY(mLock) = false;
};

}  // namespace android
