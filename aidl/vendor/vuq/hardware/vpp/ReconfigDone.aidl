package vendor.vuq.hardware.vpp;

@VintfStability
parcelable ReconfigDone {
    int status;  // a VppError
}
