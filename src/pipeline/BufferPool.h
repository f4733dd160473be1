// What the two pools of internal buffers share. Private to src/.
//
// A pool is a map from the timestamp (microseconds) under which a frame was queued to what
// travelled with it, and the set of those keys that the VPP has given back. A buffer that is handed
// out stands in neither. Free entries are drawn oldest first; one that does not fit the request is
// replaced, and then every other free entry goes too: they are of the same old size. Entries still
// in the VPP stay and are judged when they are drawn. All of it happens under the pool's own lock.
//
// The nodes of a drawn entry and of its key are spared for the entries to come: a pool at work asks
// nothing of the heap.
#pragma once

#include <qoz/ClientTypes.h>
#include <ui/GraphicBuffer.h>

#include <cstdint>
#include <new>
#include <set>
#include <tuple>
#include <utility>

namespace android::pool {

constexpr uint32_t kInternalUsage =
    GraphicBuffer::USAGE_HW_TEXTURE | GraphicBuffer::USAGE_HW_RENDER;

// Null when no object could be made. Whether the object got memory shows at the conversion.
inline sp<GraphicBuffer> allocate(const RequestInfo& info) {
    return sp<GraphicBuffer>(new (std::nothrow) GraphicBuffer(
        info.width, info.height, static_cast<PixelFormat>(info.format), info.usage));
}

inline bool isCompatible(const sp<GraphicBuffer>& buffer, const RequestInfo& info) {
    return buffer->getWidth() == info.width && buffer->getHeight() == info.height &&
           buffer->getPixelFormat() == static_cast<PixelFormat>(info.format) &&
           buffer->getUsage() == info.usage;
}

inline bool holdsBuffer(const sp<GraphicBuffer>& buffer) {
    return buffer != nullptr;
}

inline bool holdsBuffer(
    const std::tuple<sp<GraphicBuffer>, sp<GraphicBuffer>, sp<GraphicBuffer>>& buffers) {
    const auto& [forward, backward, downscaled] = buffers;
    return forward != nullptr || backward != nullptr || downscaled != nullptr;
}

// Keeps what travels under `key`. False when an entry is in flight under it already, which stays,
// or when memory is too short: then nobody will draw it again, and it ends with its last other
// owner.
template <typename Map, typename Spares>
bool record(Map& buffers, Spares& spares, uint64_t key, typename Map::mapped_type travelling) {
    try {
        if (spares.entry.empty()) return buffers.emplace(key, std::move(travelling)).second;
        auto entry = std::exchange(spares.entry, {});
        entry.key() = key;
        entry.mapped() = std::move(travelling);
        return buffers.insert(std::move(entry)).inserted;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

template <typename Spares>
void insertKey(std::set<uint64_t>& freeKeys, Spares& spares, uint64_t key) {
    if (spares.keys.empty()) {
        freeKeys.insert(key);
        return;
    }
    auto node = std::move(spares.keys.back());
    spares.keys.pop_back();
    node.value() = key;
    freeKeys.insert(std::move(node));
}

enum class Freed { Absent, Empty, Done };

// Makes the entry of `key` free for reuse. One without any buffer is erased instead, and so is one
// whose key memory is too short to note.
template <typename Map, typename Spares>
Freed markFree(Map& buffers, std::set<uint64_t>& freeKeys, Spares& spares, uint64_t key) {
    const auto entry = buffers.find(key);
    if (entry == buffers.end()) return Freed::Absent;
    if (!holdsBuffer(entry->second)) {
        buffers.erase(entry);
        return Freed::Empty;
    }
    try {
        insertKey(freeKeys, spares, key);
    } catch (const std::bad_alloc&) {
        buffers.erase(entry);
        return Freed::Absent;
    }
    return Freed::Done;
}

// Ends a request that drew `key`; `discardFree` drops every other free entry as well.
template <typename Map, typename Spares>
void retireDrawn(Map& buffers, std::set<uint64_t>& freeKeys, Spares& spares, uint64_t key,
                 bool discardFree) {
    try {
        spares.keys.push_back(freeKeys.extract(key));
    } catch (const std::bad_alloc&) {
        // Not spared, then.
    }
    spares.entry = buffers.extract(key);
    spares.entry.mapped() = {};
    if (!discardFree) return;
    for (const uint64_t stale : freeKeys)
        buffers.erase(stale);
    freeKeys.clear();
}

}  // namespace android::pool
