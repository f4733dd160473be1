// SPDX-License-Identifier: Apache-2.0
// What the two pools of internal buffers share. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>
#include <qoz/ClientTypes.h>
#include <ui/GraphicBuffer.h>

#include <cstdint>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/Log.h"

namespace android {

// What makes one pool's messages differ from the other's.
struct PoolText {
    const char* operation;  // that requests from it
    const char* kind;       // what it holds, as in "free yuv buffer index list"
    const char* map;        // its map
    const char* emptyEntry;
};

// A map from the timestamp (microseconds) under which a frame was queued to what travelled with it,
// and the set of those keys that the VPP has given back. A buffer that is handed out is in neither.
// Free entries are drawn oldest first; one that does not fit the request is replaced, and then
// every other free entry goes too, as they are of the same old size. Entries still in the VPP stay
// and are judged when they are drawn.
//
// Requests come from the client's thread, returns from binder threads, clearing from whoever
// flushes or disables: everything happens under the pool's own lock, a leaf, which a request holds
// while it allocates. The nodes of a drawn entry and of its key are spared for the entries to come,
// so that a pool in steady state asks nothing of the heap.
template <typename Entry>
class BufferPool {
  public:
    using Buffers = std::unordered_map<uint64_t, Entry>;
    using Keys = std::set<uint64_t>;
    struct Sizes {
        size_t entries;
        size_t free;
    };

    BufferPool(Buffers& buffers, Keys& freeKeys, std::mutex& lock, const PoolText& text,
               const SessionLog& log)
        : mLog(log), mText(text), mBuffers(buffers), mFreeKeys(freeKeys), mLock(lock) {}

    BufferPool(const BufferPool&) = delete;
    BufferPool& operator=(const BufferPool&) = delete;

    // Keeps what travels under `key`. False when there is an entry under it already, which stays,
    // or on allocation failure: then nobody will draw it again, and it ends with its last other
    // owner.
    bool record(uint64_t key, Entry travelling) EXCLUDES(mLock);

    // What is recorded under `key`; an empty entry when nothing is.
    Entry find(uint64_t key) const EXCLUDES(mLock);

    // Makes the entry of `key` free for reuse; without one there is nothing to do. `operation` says
    // for whom in the message.
    void free(uint64_t key, const char* operation) EXCLUDES(mLock);

    // Drops every entry, also those that the VPP still has: their memory ends with the last of its
    // other owners, and their return finds nothing to free.
    void clear() EXCLUDES(mLock);

    // Nothing while the lock is in use.
    std::optional<Sizes> trySizes() const;

  protected:
    // How a drawn entry met a request.
    enum class Drawn { Failed, Reused, Replaced };

    // Serves one request: `draw` from the oldest free entry, else `allocate`, both under the lock.
    // False, and the pool as it was, when either fails.
    template <typename Allocate, typename Draw>
    bool serve(Allocate allocate, Draw draw) EXCLUDES(mLock);

    const SessionLog& mLog;

  private:
    // Puts a key among the free ones.
    void insertFree(uint64_t key) REQUIRES(mLock);
    // Takes the drawn entry out of the pool.
    void retire(uint64_t key) REQUIRES(mLock);
    // Removes all free entries.
    void dropFree() REQUIRES(mLock);

    const PoolText mText;
    Buffers& mBuffers GUARDED_BY(mLock);
    Keys& mFreeKeys GUARDED_BY(mLock);
    typename Buffers::node_type mSpareEntry GUARDED_BY(mLock);
    std::vector<Keys::node_type> mSpareKeys GUARDED_BY(mLock);
    std::mutex& mLock;
};

namespace pool {

constexpr uint32_t kInternalUsage =
    GraphicBuffer::USAGE_HW_TEXTURE | GraphicBuffer::USAGE_HW_RENDER;

// A buffer as the request describes it. Null when no object could be made. Whether the object got
// memory shows at the conversion.
inline sp<GraphicBuffer> allocate(const RequestInfo& info) {
    return sp<GraphicBuffer>(new (std::nothrow) GraphicBuffer(
        info.width, info.height, static_cast<PixelFormat>(info.format), info.usage));
}

// Whether a free buffer can serve the request: all four properties are the same.
inline bool isCompatible(const sp<GraphicBuffer>& buffer, const RequestInfo& info) {
    return buffer->getWidth() == info.width && buffer->getHeight() == info.height &&
           buffer->getPixelFormat() == static_cast<PixelFormat>(info.format) &&
           buffer->getUsage() == info.usage;
}

// Whether the object has pixels that can be handed over.
inline bool hasMemory(const sp<GraphicBuffer>& buffer) {
    return buffer != nullptr && buffer->getNativeBuffer()->handle != nullptr;
}

// Whether a pool's entry holds any buffer at all.
inline bool holdsBuffer(const sp<GraphicBuffer>& buffer) {
    return buffer != nullptr;
}

inline bool holdsBuffer(
    const std::tuple<sp<GraphicBuffer>, sp<GraphicBuffer>, sp<GraphicBuffer>>& buffers) {
    const auto& [forward, backward, downscaled] = buffers;
    return forward != nullptr || backward != nullptr || downscaled != nullptr;
}

}  // namespace pool

// Insert-only: with two frames of one timestamp in flight the first one's memory stays under the
// key, where the return of either looks for it. The second one's ends when its frame has been
// dropped by everybody else.
template <typename Entry>
bool BufferPool<Entry>::record(uint64_t key, Entry travelling) {
    const std::lock_guard<std::mutex> lock(mLock);
    try {
        if (mSpareEntry.empty()) return mBuffers.emplace(key, std::move(travelling)).second;
        auto entry = std::exchange(mSpareEntry, {});
        entry.key() = key;
        entry.mapped() = std::move(travelling);
        return mBuffers.insert(std::move(entry)).inserted;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

template <typename Entry>
Entry BufferPool<Entry>::find(uint64_t key) const {
    const std::lock_guard<std::mutex> lock(mLock);
    const auto entry = mBuffers.find(key);
    return entry == mBuffers.end() ? Entry{} : entry->second;
}

// An entry without any buffer would be drawn as one that fits nothing; it is removed.
template <typename Entry>
void BufferPool<Entry>::free(uint64_t key, const char* operation) {
    const std::lock_guard<std::mutex> lock(mLock);
    const auto entry = mBuffers.find(key);
    if (entry == mBuffers.end()) return;
    if (!pool::holdsBuffer(entry->second)) {
        VPP_LOGE_BARE("%s", mText.emptyEntry);
        mBuffers.erase(entry);
        return;
    }
    try {
        insertFree(key);
        VPP_LOGI("%s : emplace free index in %s map ts=%lu", operation, mText.map,
                 static_cast<unsigned long>(key));
    } catch (const std::bad_alloc&) {
        mBuffers.erase(entry);  // nobody could draw it
    }
}

template <typename Entry>
void BufferPool<Entry>::clear() {
    const std::lock_guard<std::mutex> lock(mLock);
    mBuffers.clear();
    mFreeKeys.clear();
}

template <typename Entry>
std::optional<typename BufferPool<Entry>::Sizes> BufferPool<Entry>::trySizes() const {
    if (!mLock.try_lock()) return std::nullopt;
    const Sizes sizes{mBuffers.size(), mFreeKeys.size()};
    mLock.unlock();
    return sizes;
}

// The oldest free entry decides. If it fits, it is handed out and nothing else changes. If it had
// to be replaced, every other free entry is as old and goes as well. If it fails, the entry stays
// free and the pool is as it was.
template <typename Entry>
template <typename Allocate, typename Draw>
bool BufferPool<Entry>::serve(Allocate allocate, Draw draw) {
    const std::lock_guard<std::mutex> lock(mLock);
    if (mFreeKeys.empty()) {
        VPP_LOGI("%s : free %s buffer list empty, allocating new buffers", mText.operation,
                 mText.kind);
        return allocate();
    }
    VPP_LOGI("%s : free %s buffer index list size=%u, %s buffer map size=%u", mText.operation,
             mText.kind, static_cast<uint32_t>(mFreeKeys.size()), mText.kind,
             static_cast<uint32_t>(mBuffers.size()));
    const uint64_t oldest = *mFreeKeys.begin();
    const Drawn drawn = draw(mBuffers[oldest]);
    if (drawn == Drawn::Failed) return false;
    retire(oldest);
    if (drawn == Drawn::Replaced) {
        VPP_LOGE_BARE("%s : buffer is not compatible, clear all existing buffers", mText.operation);
        dropFree();
    }
    return true;
}

// In a node of a key that was drawn before, if there is one. Throws std::bad_alloc if not.
template <typename Entry>
void BufferPool<Entry>::insertFree(uint64_t key) {
    if (mSpareKeys.empty()) {
        mFreeKeys.insert(key);
        return;
    }
    auto node = std::move(mSpareKeys.back());
    mSpareKeys.pop_back();
    node.value() = key;
    mFreeKeys.insert(std::move(node));
}

// Takes a drawn entry and its key out, and spares their nodes.
template <typename Entry>
void BufferPool<Entry>::retire(uint64_t key) {
    try {
        mSpareKeys.push_back(mFreeKeys.extract(key));
    } catch (const std::bad_alloc&) {
        mFreeKeys.erase(key);
    }
    mSpareEntry = mBuffers.extract(key);
    mSpareEntry.mapped() = {};
}

// Only what is free: what travels is judged when it comes back and is drawn.
template <typename Entry>
void BufferPool<Entry>::dropFree() {
    for (const uint64_t stale : mFreeKeys)
        mBuffers.erase(stale);
    mFreeKeys.clear();
}

}  // namespace android
