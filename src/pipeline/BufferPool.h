// SPDX-License-Identifier: Apache-2.0
// The common base of the two pools of internal buffers. Private to src/.
#pragma once

#include <android-base/thread_annotations.h>
#include <qoz/ClientTypes.h>
#include <ui/GraphicBuffer.h>

#include <atomic>
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

// The words in which the messages of one pool differ from those of the other.
struct PoolText {
    const char* operation;  // name of the request operation
    const char* kind;       // kind of buffer, as in "free yuv buffer index list"
    const char* map;        // name of the pool's map
    const char* emptyEntry;
};

// A pool of the internal buffers that are queued with frames. A map holds, under the timestamp
// (microseconds) of each queued frame, the buffers that were queued with it. A set holds the keys
// of those entries that the VPP has returned: the free entries. A buffer is thus in one
// of three states: drawn (being filled; in neither), queued (with the VPP; in the map) or free (in
// the map, its key in the set).
// A drawn buffer whose frame fails is released.
//
// A request draws the oldest free entry, which is the one with the smallest timestamp. If a buffer
// of that entry does not fit the request, a new one is allocated in its place, and all other free
// entries are discarded, on the assumption that they have the old size as well. Entries whose
// buffers are still in the VPP stay; they are compared with a request when they are drawn. Buffers
// of a drawn entry that the request did not ask for are released.
//
// Requests come from the client's thread, returns from binder threads, and clear() from the thread
// that flushes or disables. Everything happens under the pool's own lock, a leaf, which a request
// also holds while it allocates. The map node of the last drawn entry and the set nodes of all
// drawn entries are kept for later entries, so a pool in steady state does not allocate.
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

    // Stores the internal buffers of a queued frame under `key`. If `key` has an entry already,
    // that one is kept instead and is no longer free. Buffers that the pool does not keep, also on
    // allocation failure, are freed when their last owner releases them.
    void record(uint64_t key, Entry travelling) EXCLUDES(mLock);

    // Returns the buffers stored under `key`, or an empty entry if there are none.
    Entry find(uint64_t key) const EXCLUDES(mLock);

    // Marks the entry of `key` free for reuse. Does nothing if there is no entry. `operation` names
    // the caller in the message.
    void free(uint64_t key, const char* operation) EXCLUDES(mLock);

    // A return decides that no frame uses an entry, and then frees it. In between the client may
    // queue another frame of the same timestamp, which uses the entry of that key. records() counts
    // the frames recorded so far. freeUnlessRecorded() is free(), but returns false, with nothing
    // done, if a frame has been recorded since records() returned `before`.
    uint32_t records() const { return mRecords.load(); }
    bool freeUnlessRecorded(uint64_t key, const char* operation, uint32_t before) EXCLUDES(mLock);

    // Removes every entry, including those whose buffers the VPP still has. When the VPP returns
    // such a buffer, free() finds no entry; the memory is freed when its last owner releases it.
    void clear() EXCLUDES(mLock);

    // Returns nothing if the lock is taken.
    std::optional<Sizes> trySizes() const;

  protected:
    // How the oldest free entry served a request.
    enum class Drawn { Failed, Reused, Replaced };

    // Serves one request under the lock: calls `draw` with the oldest free entry, or `allocate` if
    // no entry is free. Returns false if that call fails. After a failed `draw` the oldest entry
    // stays free, without the buffers that `draw` had already taken from it.
    template <typename Allocate, typename Draw>
    bool serve(Allocate allocate, Draw draw) EXCLUDES(mLock);

    const SessionLog& mLog;

  private:
    // Adds an entry to the map. Returns false, with the map unchanged, if `key` has an entry
    // already. Throws std::bad_alloc.
    bool insert(uint64_t key, Entry travelling) REQUIRES(mLock);
    void markFree(uint64_t key, const char* operation) REQUIRES(mLock);
    // Adds a key to the set of free keys.
    void insertFree(uint64_t key) REQUIRES(mLock);
    // Removes the drawn entry, which is the oldest free one, from the pool.
    void retire(typename Buffers::iterator drawn) REQUIRES(mLock);
    // Removes all free entries.
    void dropFree() REQUIRES(mLock);

    const PoolText mText;
    Buffers& mBuffers GUARDED_BY(mLock);
    Keys& mFreeKeys GUARDED_BY(mLock);
    typename Buffers::node_type mSpareEntry GUARDED_BY(mLock);
    std::vector<Keys::node_type> mSpareKeys GUARDED_BY(mLock);
    std::mutex& mLock;
    std::atomic<uint32_t> mRecords{0};  // changed under mLock
};

namespace pool {

constexpr uint32_t kInternalUsage =
    GraphicBuffer::USAGE_HW_TEXTURE | GraphicBuffer::USAGE_HW_RENDER;

// Creates a buffer as `info` describes it. Returns null if the object could not be created. A
// buffer object whose pixel memory could not be allocated is returned too; the conversion or the
// queueing detects that.
inline sp<GraphicBuffer> allocate(const RequestInfo& info) {
    return sp<GraphicBuffer>(new (std::nothrow) GraphicBuffer(
        info.width, info.height, static_cast<PixelFormat>(info.format), info.usage));
}

// Returns whether a free buffer can serve the request, that is, whether all four properties are
// equal.
inline bool isCompatible(const sp<GraphicBuffer>& buffer, const RequestInfo& info) {
    return buffer->getWidth() == info.width && buffer->getHeight() == info.height &&
           buffer->getPixelFormat() == static_cast<PixelFormat>(info.format) &&
           buffer->getUsage() == info.usage;
}

// Returns whether the buffer object has pixel memory that can be shared.
inline bool hasMemory(const sp<GraphicBuffer>& buffer) {
    return buffer != nullptr && buffer->getNativeBuffer()->handle != nullptr;
}

// Returns whether a pool's entry holds any buffer.
inline bool holdsBuffer(const sp<GraphicBuffer>& buffer) {
    return buffer != nullptr;
}

inline bool holdsBuffer(
    const std::tuple<sp<GraphicBuffer>, sp<GraphicBuffer>, sp<GraphicBuffer>>& buffers) {
    const auto& [forward, backward, downscaled] = buffers;
    return forward != nullptr || backward != nullptr || downscaled != nullptr;
}

}  // namespace pool

// Never replaces an entry. If two outstanding frames have the same timestamp, the entry keeps the
// buffers of the first, and the return of either frame finds that entry. The buffers of the second
// are freed when their last owner releases them. If the first frame has been returned
// already, its entry leaves the free set and is in use again. In either case the second frame is
// sent with its own target but with the entry's side buffers, which are looked up by timestamp.
template <typename Entry>
void BufferPool<Entry>::record(uint64_t key, Entry travelling) {
    const std::lock_guard<std::mutex> lock(mLock);
    mRecords.fetch_add(1);
    try {
        if (insert(key, std::move(travelling))) return;
    } catch (const std::bad_alloc&) {
        return;
    }
    mFreeKeys.erase(key);
}

// Uses the node of an entry that was drawn before, if there is one.
template <typename Entry>
bool BufferPool<Entry>::insert(uint64_t key, Entry travelling) {
    if (mSpareEntry.empty()) return mBuffers.try_emplace(key, std::move(travelling)).second;
    auto entry = std::exchange(mSpareEntry, {});
    entry.key() = key;
    entry.mapped() = std::move(travelling);
    auto result = mBuffers.insert(std::move(entry));
    if (result.inserted) return true;
    mSpareEntry = std::move(result.node);
    mSpareEntry.mapped() = {};
    return false;
}

template <typename Entry>
Entry BufferPool<Entry>::find(uint64_t key) const {
    const std::lock_guard<std::mutex> lock(mLock);
    const auto entry = mBuffers.find(key);
    return entry == mBuffers.end() ? Entry{} : entry->second;
}

template <typename Entry>
void BufferPool<Entry>::free(uint64_t key, const char* operation) {
    const std::lock_guard<std::mutex> lock(mLock);
    markFree(key, operation);
}

template <typename Entry>
bool BufferPool<Entry>::freeUnlessRecorded(uint64_t key, const char* operation, uint32_t before) {
    const std::lock_guard<std::mutex> lock(mLock);
    if (mRecords.load() != before) return false;
    markFree(key, operation);
    return true;
}

// An entry that holds no buffer is removed instead: drawing it would save no allocation.
template <typename Entry>
void BufferPool<Entry>::markFree(uint64_t key, const char* operation) {
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
        mBuffers.erase(entry);  // without a free key it could never be drawn
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

// If the oldest free entry fits, it is drawn and nothing else changes. If its buffers had to be
// replaced, every other free entry is assumed to be out of date and is removed too. If `draw`
// fails, every other entry is unchanged. A free key always has an entry in the map.
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
    const auto oldest = mBuffers.try_emplace(*mFreeKeys.begin()).first;
    const Drawn drawn = draw(oldest->second);
    if (drawn == Drawn::Failed) return false;
    retire(oldest);
    if (drawn == Drawn::Replaced) {
        VPP_LOGE_BARE("%s : buffer is not compatible, clear all existing buffers", mText.operation);
        dropFree();
    }
    return true;
}

// Uses the node of a key that was drawn before, if there is one. Throws std::bad_alloc if it has to
// allocate and cannot.
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

// Removes a drawn entry and its key, and keeps their nodes for later entries.
template <typename Entry>
void BufferPool<Entry>::retire(typename Buffers::iterator drawn) {
    auto key = mFreeKeys.extract(mFreeKeys.begin());
    try {
        mSpareKeys.push_back(std::move(key));
    } catch (const std::bad_alloc&) {
        // The node is freed, and a later key allocates its own.
    }
    mSpareEntry = mBuffers.extract(drawn);
    mSpareEntry.mapped() = {};
}

// Removes only free entries. Entries whose buffers are in the VPP are checked when they are drawn.
template <typename Entry>
void BufferPool<Entry>::dropFree() {
    for (const uint64_t stale : mFreeKeys)
        mBuffers.erase(stale);
    mFreeKeys.clear();
}

}  // namespace android
