// SPDX-License-Identifier: Apache-2.0
// What crossed the queue operation: checked, duplicated, mapped.
#pragma once

#include <memory>
#include <utility>

#include "host/vppservice/FaultInjector.h"
#include "host/vppservice/Frames.h"
#include "host/vppservice/Mapping.h"
#include "host/vppservice/Quota.h"
#include "host/vppservice/Types.h"

namespace qoz::host::vppservice {

// Sizes of both ports, as they were when a buffer came in.
struct PortSizes {
    FrameSize input;
    FrameSize output;
};

// A queued buffer. Its record holds numbers alone: descriptors are closed once the memory is
// mapped, and a buffer that goes back is named by its cookie. The mappings end with it.
struct ImportedBuffer {
    VppBuffer record;
    Manner manner = Manner::Plain;
    PortSizes sizes;
    Reservation mapped;  // in the client's quota, for the mappings
    std::shared_ptr<Mapping> pixels;
    std::shared_ptr<Mapping> forward;   // vectors for this input size, or null
    std::shared_ptr<Mapping> backward;  // likewise
    std::shared_ptr<Mapping> half;      // frame of half this output size, or null

    Nv12View inputView() const { return planesAt<const uint8_t>(start(), sizes.input); }
    Nv12Canvas outputCanvas() const { return planesAt<uint8_t>(start(), sizes.output); }
    Nv12View halfView() const;  // planes null when there is no half-size frame
    MotionFields motion() const;

  private:
    uint8_t* start() const { return pixels->ready(); }
};

// Takes records in, for one session. Nothing in one is trusted: not its counts, its lengths or its
// descriptors. Memory that could be shrunk later is refused: it is mapped only when it has been
// sealed. Its content may change at any time, and is never relied upon.
class BufferImporter {
  public:
    // Mappings count against `quota`, if there is one.
    explicit BufferImporter(std::shared_ptr<Quota> quota = nullptr) : mQuota(std::move(quota)) {}

    // Anything but VPP_OK leaves nothing behind. Callable on any thread.
    VppError take(VppPort port, const PortSizes& sizes, const VppBuffer& sent,
                  ImportedBuffer* out) const;

  private:
    const std::shared_ptr<Quota> mQuota;
};

}  // namespace qoz::host::vppservice
