// What crossed the queue operation: checked, duplicated, mapped.
#pragma once

#include "host/vppservice/FaultInjector.h"
#include "host/vppservice/Frames.h"
#include "host/vppservice/Mapping.h"
#include "host/vppservice/Types.h"

#include <memory>

namespace qoz::host::vppservice {

// Sizes of both ports, as they were when a buffer came in.
struct PortSizes {
    FrameSize input;
    FrameSize output;
};

// A lent buffer. It owns the descriptors of its record, and takes them along when it goes back.
struct ImportedBuffer {
    VppBuffer record;
    Manner manner = Manner::Plain;
    PortSizes sizes;
    std::shared_ptr<Mapping> pixels;
    std::shared_ptr<Mapping> forward;   // vectors for this input size, or null
    std::shared_ptr<Mapping> backward;  // likewise
    std::shared_ptr<Mapping> half;      // frame of half this output size, or null

    Nv12View inputView() const { return planesAt<const uint8_t>(start(), sizes.input); }
    Nv12Canvas outputCanvas() const { return planesAt<uint8_t>(start(), sizes.output); }
    Nv12View halfView() const;  // planes null when there is no half-size frame
    MotionFields motion() const;

  private:
    uint8_t* start() const { return pixels->data() + unsignedOf(record.pixelOffset); }
};

// Takes records in. Nothing in one is trusted: not its counts, its lengths or its descriptors.
// Memory that its sender shrinks after it was taken in is not guarded against.
class BufferImporter {
  public:
    // Anything but VPP_OK leaves nothing behind.
    VppError receive(VppPort port, const PortSizes& sizes, const VppBuffer& sent,
                     ImportedBuffer* out);

    // Lets go of the memory of rings that have ended.
    void forget() { mMappings.clear(); }

  private:
    VppError mapPixels(VppPort port, ImportedBuffer* out);
    VppError mapSideBuffers(ImportedBuffer* out);
    VppError mapWhole(int fd, uint64_t need, uint64_t allocated, bool writable,
                      std::shared_ptr<Mapping>* out);

    MappingCache mMappings;
};

}  // namespace qoz::host::vppservice
