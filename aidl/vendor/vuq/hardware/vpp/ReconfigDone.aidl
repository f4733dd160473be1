package vendor.vuq.hardware.vpp;

// How a reconfiguration ended.
@VintfStability
parcelable ReconfigDone {
    int status;  // a VppError; VPP_OK: both ports have their new layout
}
