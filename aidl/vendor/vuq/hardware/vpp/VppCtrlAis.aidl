package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.VppKeyValueInt;

// Upscaling to twice the size. The library sets mode to 2 and param to 30; the service defines their
// meaning.
@VintfStability
parcelable VppCtrlAis {
    int mode;
    int reserved1;
    int reserved2;
    int reserved3;
    int reserved4;
    int reserved5;
    int param;
    VppKeyValueInt[] keyValues;
}
