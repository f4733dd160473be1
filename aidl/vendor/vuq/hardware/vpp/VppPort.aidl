package vendor.vuq.hardware.vpp;

@VintfStability
@Backing(type="int")
enum VppPort {
    INPUT = 0,   // frames going into the VPP
    OUTPUT = 1,  // buffers the VPP fills
}
