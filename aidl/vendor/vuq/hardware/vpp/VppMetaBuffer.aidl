package vendor.vuq.hardware.vpp;

import android.hardware.common.NativeHandle;

// One side buffer attached to a source frame.
@VintfStability
parcelable VppMetaBuffer {
    // "vpp.metabuf.mv.fw", "vpp.metabuf.mv.bw" or "vpp.metabuf.scale.0p5".
    String metaName;
    // One descriptor, of the whole allocation.
    NativeHandle metaHandle;
    // Bytes of the allocation.
    int metaAllocLen;  // unsigned
    int reserved1;     // unsigned
    int reserved2;     // unsigned
    int reserved3;     // unsigned
    int reserved4;     // unsigned
    int reserved5;     // unsigned
}
