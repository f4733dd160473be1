package vendor.vuq.hardware.vpp;

// The outcome of a reconfiguration.
@VintfStability
parcelable ReconfigDone {
    int status;  // a VppError; VPP_OK if both ports have their new layouts
}
