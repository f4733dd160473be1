package vendor.vuq.hardware.vpp;

// The completion of a flush of one port.
@VintfStability
parcelable FlushDone {
    int port;  // a VppPort; any value other than INPUT is taken as OUTPUT
}
