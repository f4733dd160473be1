// SPDX-License-Identifier: Apache-2.0
// Side buffers: forward and backward motion vectors and the half-size copy. Private to src/.
#pragma once

#include <qoz/StorageTypes.h>

#include "pipeline/BufferPool.h"

namespace android {

// One entry for each frame that has side buffers: a pair of vector buffers, a half-size copy, or
// all three. An entry may lack a kind that was not wanted when its frame came; a request that wants
// it allocates it beside what the entry has. The frame's timestamp in microseconds is the key.
class SideBufferPool : public BufferPool<SideBuffers> {
  public:
    // Where the buffers of one request go.
    struct Out {
        sp<GraphicBuffer>* forward;
        sp<GraphicBuffer>* backward;
        sp<GraphicBuffer>* downscaled;
    };

    SideBufferPool(Buffers& buffers, Keys& freeKeys, std::mutex& lock, const SessionLog& log);

    // Has `out` hold buffers that fit, of the kinds that are needed. False, with a message: bad
    // arguments, or no object could be made.
    bool request(const Out& out, const RequestInfo& vectors, const RequestInfo& downscaled);

  private:
    // All that is needed, anew: no entry is free.
    bool allocate(const Out& out, const RequestInfo& vectors, const RequestInfo& downscaled) const;
    // From the oldest free entry, kind by kind. Replaced if any kind was.
    Drawn draw(SideBuffers& oldest, const Out& out, const RequestInfo& vectors,
               const RequestInfo& downscaled) const;
    Drawn drawVectors(SideBuffers& oldest, const Out& out, const RequestInfo& info) const;
    Drawn drawDownscaled(SideBuffers& oldest, const Out& out, const RequestInfo& info) const;
};

}  // namespace android
