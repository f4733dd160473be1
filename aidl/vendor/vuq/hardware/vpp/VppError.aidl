package vendor.vuq.hardware.vpp;

// The result of an operation. Every value except VPP_OK is a failure. The library treats all failures
// alike.
@VintfStability
@Backing(type="int")
enum VppError {
    VPP_OK = 0,
    VPP_ERR = 1,
    VPP_PENDING = 2,
    VPP_ERR_STATE = 3,
    VPP_ERR_INVALID_CFG = 4,
    VPP_ERR_PARAM = 5,
    VPP_ERR_NO_MEM = 6,
    VPP_ERR_RESOURCES = 7,
    VPP_ERR_HW = 8,
    VPP_ERR_FATAL = 9,
}
