package vendor.vuq.hardware.vpp;

// Frame-rate conversion in force from startTimestamp (microseconds) on.
@VintfStability
parcelable VppCtrlFrcSegment {
    int mode;
    int interpLevel;   // 0 off, 3 high
    int interpFactor;  // n: (n + 1)x interpolation
    long startTimestamp;
    boolean flag1;
    boolean flag2;
    int param1;
    int reserved1;
    int reserved2;
    int param2;
}
