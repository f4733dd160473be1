package vendor.vuq.hardware.vpp;

import android.hardware.common.NativeHandle;

// One extradata buffer attached to an input frame. Lengths in bytes.
@VintfStability
parcelable VppMetaBuffer {
    String metaName;
    NativeHandle metaHandle;
    int metaAllocLen;  // unsigned
    int reserved1;     // unsigned
    int reserved2;     // unsigned
    int reserved3;     // unsigned
    int reserved4;     // unsigned
    int reserved5;     // unsigned
}
