// SPDX-License-Identifier: Apache-2.0
// Side buffers: forward and backward motion vectors and the half-size copy. Private to src/.
#pragma once

#include <qoz/StorageTypes.h>

#include "pipeline/BufferPool.h"

namespace android {

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
    bool allocate(const Out& out, const RequestInfo& vectors, const RequestInfo& downscaled) const;
    Drawn draw(SideBuffers& oldest, const Out& out, const RequestInfo& vectors,
               const RequestInfo& downscaled) const;
    Drawn drawVectors(SideBuffers& oldest, const Out& out, const RequestInfo& info) const;
    Drawn drawDownscaled(SideBuffers& oldest, const Out& out, const RequestInfo& info) const;
};

}  // namespace android
