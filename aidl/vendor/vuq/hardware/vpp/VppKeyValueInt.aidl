package vendor.vuq.hardware.vpp;

// A named setting of VppCtrlAis. The library sends none.
@VintfStability
parcelable VppKeyValueInt {
    String key;
    int value;
}
