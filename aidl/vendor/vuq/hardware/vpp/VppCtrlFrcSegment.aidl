package vendor.vuq.hardware.vpp;

// Frame-rate conversion from one moment of the stream on. A session knows several segments; for a frame
// counts the one with the latest start at or before it. What the numbers without a comment mean belongs
// to the service.
@VintfStability
parcelable VppCtrlFrcSegment {
    int mode;
    int interpLevel;   // 0 off, 3 high
    int interpFactor;  // n: (n + 1)x interpolation
    // Microseconds on the clock of the sources; 0 from the beginning.
    long startTimestamp;
    boolean flag1;
    boolean flag2;
    int param1;
    int reserved1;
    int reserved2;
    int param2;
}
