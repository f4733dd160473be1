package vendor.vuq.hardware.vpp;

@VintfStability
parcelable FlushDone {
    int port;  // a VppPort
}
