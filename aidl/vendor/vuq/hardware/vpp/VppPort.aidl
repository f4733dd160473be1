package vendor.vuq.hardware.vpp;

// The two ports of a session.
@VintfStability
@Backing(type="int")
enum VppPort {
    INPUT = 0,   // receives frames to process
    OUTPUT = 1,  // receives buffers to fill
}
