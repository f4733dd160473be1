package vendor.vuq.hardware.vpp;

import android.hardware.common.NativeHandle;

// One side buffer attached to a source frame.
@VintfStability
parcelable VppMetaBuffer {
    // "vpp.metabuf.mv.fw" (forward vectors), "vpp.metabuf.mv.bw" (backward vectors) or
    // "vpp.metabuf.scale.0p5" (half-size copy).
    String metaName;
    // One descriptor, for the whole allocation.
    NativeHandle metaHandle;
    // Size of the allocation in bytes.
    int metaAllocLen;  // unsigned
    int reserved1;     // unsigned
    int reserved2;     // unsigned
    int reserved3;     // unsigned
    int reserved4;     // unsigned
    int reserved5;     // unsigned
}
