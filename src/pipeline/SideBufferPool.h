// SPDX-License-Identifier: Apache-2.0
// The pool of side buffers: forward and backward motion vectors and the half-size copy. Private to
// src/.
#pragma once

#include <qoz/StorageTypes.h>

#include "pipeline/BufferPool.h"

namespace android {

// Holds one entry for each frame that has side buffers: a pair of vector buffers, a half-size copy,
// or all three. An entry may lack a kind that was not wanted for its frame; a request that needs
// the missing kind allocates it in addition. The key is the frame's timestamp in microseconds.
class SideBufferPool : public BufferPool<SideBuffers> {
  public:
    // The destinations of the buffers of one request.
    struct Out {
        sp<GraphicBuffer>* forward;
        sp<GraphicBuffer>* backward;
        sp<GraphicBuffer>* downscaled;
    };

    SideBufferPool(Buffers& buffers, Keys& freeKeys, std::mutex& lock, const SessionLog& log);

    // Sets `out` to fitting buffers of the kinds that are needed. Returns false, with a message, if
    // an argument is invalid or a buffer could not be created.
    bool request(const Out& out, const RequestInfo& vectors, const RequestInfo& downscaled);

  private:
    // Allocates every needed buffer; used when no entry is free.
    bool allocate(const Out& out, const RequestInfo& vectors, const RequestInfo& downscaled) const;
    // Takes each needed kind from the oldest free entry. Returns Replaced if any kind had to be
    // replaced.
    Drawn draw(SideBuffers& oldest, const Out& out, const RequestInfo& vectors,
               const RequestInfo& downscaled) const;
    Drawn drawVectors(SideBuffers& oldest, const Out& out, const RequestInfo& info) const;
    Drawn drawDownscaled(SideBuffers& oldest, const Out& out, const RequestInfo& info) const;
};

}  // namespace android
