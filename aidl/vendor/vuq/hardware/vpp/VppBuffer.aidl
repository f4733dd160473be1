package vendor.vuq.hardware.vpp;

import android.hardware.common.NativeHandle;
import vendor.vuq.hardware.vpp.VppMetaBuffer;

// One buffer exchanged on either port. Lengths, offsets and sizes are in bytes. The memory is passed
// as descriptors, never copied. The library leaves offsets, aux and reserved members zero.
@VintfStability
parcelable VppBuffer {
    // The pixels: one descriptor, of the whole allocation.
    NativeHandle pixelHandle;
    int pixelOffset;     // unsigned
    // Of the allocation; so is pixelSize.
    int pixelAllocLen;   // unsigned
    // 0 says that the buffer holds no frame.
    int pixelFilledLen;  // unsigned
    int pixelSize;       // unsigned
    // A second plane in memory of its own.
    NativeHandle auxHandle;
    int auxOffset;     // unsigned
    int auxAllocLen;   // unsigned
    int auxFilledLen;  // unsigned
    int auxSize;       // unsigned
    // Of a source frame: up to two vector fields and a half-size copy.
    VppMetaBuffer[] metaBuffers;
    int reserved32;   // unsigned
    // Of a frame, in microseconds on the clock of the sources. An output buffer is queued with the
    // time of its queueing in nanoseconds and comes back with that of the frame in it.
    long timestamp;   // unsigned
    long reserved64;  // unsigned
    // The client's mark, returned as it was sent. The low 31 bits are the buffer's id, but for bit 16:
    // set for a conversion target that the library allocated. Bit 31, sign-extended: the output port.
    long cookie;
}
