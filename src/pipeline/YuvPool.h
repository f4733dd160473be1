// SPDX-License-Identifier: Apache-2.0
// Conversion targets: NV12 buffers of the component's own. Private to src/.
#pragma once

#include "pipeline/BufferPool.h"

namespace android {

// One buffer for each frame that is converted without a target of the client's own: as large as the
// input port, NV12. The frame's timestamp in microseconds is the key.
class YuvPool : public BufferPool<sp<GraphicBuffer>> {
  public:
    YuvPool(Buffers& buffers, Keys& freeKeys, std::mutex& lock, const SessionLog& log);

    // Has `out` hold a buffer that fits. False, with a message: bad arguments, or no object could
    // be made.
    bool request(sp<GraphicBuffer>* out, const RequestInfo& info);

  private:
    // Both have `out` hold a new buffer; `draw` only when the oldest free one does not fit.
    bool allocate(sp<GraphicBuffer>* out, const RequestInfo& info) const;
    Drawn draw(sp<GraphicBuffer>& oldest, sp<GraphicBuffer>* out, const RequestInfo& info) const;
};

}  // namespace android
