package vendor.vuq.hardware.vpp;

import android.hardware.common.NativeHandle;
import vendor.vuq.hardware.vpp.VppMetaBuffer;

// One buffer exchanged on either port. Lengths, offsets and sizes in bytes. A pixelFilledLen of 0
// says that the buffer holds no frame.
@VintfStability
parcelable VppBuffer {
    NativeHandle pixelHandle;
    int pixelOffset;     // unsigned
    int pixelAllocLen;   // unsigned
    int pixelFilledLen;  // unsigned
    int pixelSize;       // unsigned
    NativeHandle auxHandle;
    int auxOffset;     // unsigned
    int auxAllocLen;   // unsigned
    int auxFilledLen;  // unsigned
    int auxSize;       // unsigned
    VppMetaBuffer[] metaBuffers;
    int reserved32;   // unsigned
    long timestamp;   // unsigned
    long reserved64;  // unsigned
    long cookie;
}
