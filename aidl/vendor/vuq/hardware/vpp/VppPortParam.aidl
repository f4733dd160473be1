package vendor.vuq.hardware.vpp;

@VintfStability
parcelable VppPortParam {
    int height;  // pixels
    int width;
    int stride;     // row pitch in pixels
    int scanlines;  // rows of the plane
    int colorFormat;
}
