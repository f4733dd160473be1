package vendor.vuq.hardware.vpp;

import android.hardware.common.NativeHandle;
import vendor.vuq.hardware.vpp.VppMetaBuffer;

// One buffer exchanged on either port. Lengths, offsets and sizes are in bytes. The memory is shared by
// descriptor and never copied. The library leaves the offsets and the aux and reserved members zero.
@VintfStability
parcelable VppBuffer {
    // The pixels: one descriptor, for the whole allocation.
    NativeHandle pixelHandle;
    int pixelOffset;     // unsigned
    // Size of the allocation. The library sets pixelSize to the same value.
    int pixelAllocLen;   // unsigned
    // 0 if the buffer holds no frame.
    int pixelFilledLen;  // unsigned
    int pixelSize;       // unsigned
    // A second plane in separate memory.
    NativeHandle auxHandle;
    int auxOffset;     // unsigned
    int auxAllocLen;   // unsigned
    int auxFilledLen;  // unsigned
    int auxSize;       // unsigned
    // The side buffers of a source frame: up to two vector fields and one half-size copy.
    VppMetaBuffer[] metaBuffers;
    int reserved32;   // unsigned
    // Timestamp of the frame, in microseconds on the clock of the sources. An output buffer is queued
    // with the time at which it is queued, in nanoseconds, and is returned with the timestamp of the
    // frame that it holds.
    long timestamp;   // unsigned
    long reserved64;  // unsigned
    // Identifies the buffer and is returned unchanged. The low 31 bits without bit 16 are the buffer id.
    // Bit 16 marks a conversion target that the library allocated. Bit 31, which is sign-extended, marks
    // a buffer of the output port.
    long cookie;
}
