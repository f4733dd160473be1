// SPDX-License-Identifier: Apache-2.0
// Imported buffers: the records that clients queue, checked and with their memory mapped.
#pragma once

#include <memory>
#include <utility>

#include "host/vppservice/FaultInjector.h"
#include "host/vppservice/Frames.h"
#include "host/vppservice/HeldMemory.h"
#include "host/vppservice/Mapping.h"
#include "host/vppservice/Quota.h"
#include "host/vppservice/Types.h"

namespace qoz::host::vppservice {

// The sizes of both ports at the time when a buffer was queued.
struct PortSizes {
    FrameSize input;
    FrameSize output;
};

// A queued buffer. Its record has the numbers of the client's record, but no descriptors: the
// mappings keep the memory, and the cookie identifies the buffer when it is returned. The mappings
// end with this object.
struct ImportedBuffer {
    VppBuffer record;
    Manner manner = Manner::Plain;
    PortSizes sizes;
    Reservation mapped;  // the part of the client's quota that the mappings use
    std::shared_ptr<Mapping> pixels;
    std::shared_ptr<Mapping> forward;   // motion field for this input size, or null
    std::shared_ptr<Mapping> backward;  // likewise
    std::shared_ptr<Mapping> half;      // frame of half the output size, or null

    Nv12View inputView() const { return planesAt<const uint8_t>(start(), sizes.input); }
    Nv12Canvas outputCanvas() const { return planesAt<uint8_t>(start(), sizes.output); }
    Nv12View halfView() const;  // planes are null if there is no half-size frame
    MotionFields motion() const;

    // Ends the mappings of the side buffers.
    void dropSides();

  private:
    uint8_t* start() const { return pixels->ready(); }
};

// Imports the records that a session's client queues. It trusts neither their counts nor their
// lengths nor their descriptors. It maps memory only if it is sealed against shrinking, because
// reading memory that is gone would end the process. The content may change at any time, so the
// service must work with any content. A session owns one importer.
class BufferImporter {
  public:
    // The mappings count against `quota`, unless that is null.
    explicit BufferImporter(std::shared_ptr<Quota> quota = nullptr) : mQuota(std::move(quota)) {}

    // Checks a record and maps its memory. If the result is not VPP_OK, `out` is unchanged and
    // nothing stays mapped. Callable on any thread.
    VppError take(VppPort port, const PortSizes& sizes, const VppBuffer& sent,
                  ImportedBuffer* out) const;
    // Notes that the session holds the memory of a record that take() has imported, until its
    // mappings end. Throws std::bad_alloc.
    void hold(VppPort port, const VppBuffer& sent, ImportedBuffer* imported) const;

  private:
    const std::shared_ptr<Quota> mQuota;
    const std::shared_ptr<HeldMemory> mHeld = std::make_shared<HeldMemory>();
};

}  // namespace qoz::host::vppservice
