package vendor.vuq.hardware.vpp;

@VintfStability
parcelable VppKeyValueInt {
    String key;
    int value;
}
