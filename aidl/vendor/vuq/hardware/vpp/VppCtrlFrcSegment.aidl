package vendor.vuq.hardware.vpp;

// Frame-rate conversion that takes effect at a given time of the stream. A session has several segments;
// the segment with the latest start at or before a frame's timestamp applies to that frame. The service
// defines the meaning of the members without a comment.
@VintfStability
parcelable VppCtrlFrcSegment {
    int mode;
    int interpLevel;   // 0 off, 3 high
    int interpFactor;  // n multiplies the frame rate by n + 1
    // In microseconds on the clock of the source timestamps; 0 is the beginning of the stream.
    long startTimestamp;
    boolean flag1;
    boolean flag2;
    int param1;
    int reserved1;
    int reserved2;
    int param2;
}
