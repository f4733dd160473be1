package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.VppKeyValueInt;

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
