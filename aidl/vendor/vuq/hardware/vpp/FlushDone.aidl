package vendor.vuq.hardware.vpp;

// The end of the flush of one port.
@VintfStability
parcelable FlushDone {
    int port;  // a VppPort; any number but INPUT counts as OUTPUT
}
