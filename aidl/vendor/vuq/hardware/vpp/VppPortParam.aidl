package vendor.vuq.hardware.vpp;

// The layout of the frames on one port.
@VintfStability
parcelable VppPortParam {
    int height;     // pixels
    int width;      // pixels
    int stride;     // row pitch in pixels
    int scanlines;  // number of rows in the plane
    int colorFormat;  // the service's code: 0 vendor YUV, 3 compressed NV12, 8 all others
}
