// SPDX-License-Identifier: Apache-2.0
// The pool of conversion targets: the component's own NV12 buffers. Private to src/.
#pragma once

#include "pipeline/BufferPool.h"

namespace android {

// Holds one NV12 buffer of the input port's size for each frame that is converted without a target
// supplied by the client. The key is the frame's timestamp in microseconds.
class YuvPool : public BufferPool<sp<GraphicBuffer>> {
  public:
    YuvPool(Buffers& buffers, Keys& freeKeys, std::mutex& lock, const SessionLog& log);

    // Sets `out` to a fitting buffer. Returns false, with a message, if an argument is invalid or
    // the buffer could not be created.
    bool request(sp<GraphicBuffer>* out, const RequestInfo& info);

  private:
    // allocate() sets `out` to a new buffer; draw() sets it to the oldest free buffer, or to a new
    // one if that does not fit.
    bool allocate(sp<GraphicBuffer>* out, const RequestInfo& info) const;
    Drawn draw(sp<GraphicBuffer>& oldest, sp<GraphicBuffer>* out, const RequestInfo& info) const;
};

}  // namespace android
