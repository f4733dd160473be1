package vendor.vuq.hardware.vpp;

// The two sides of a session.
@VintfStability
@Backing(type="int")
enum VppPort {
    INPUT = 0,   // frames going into the VPP
    OUTPUT = 1,  // buffers the VPP fills
}
