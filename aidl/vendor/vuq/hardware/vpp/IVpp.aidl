package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.IVppCallbacks;
import vendor.vuq.hardware.vpp.VppBuffer;
import vendor.vuq.hardware.vpp.VppCtrlAis;
import vendor.vuq.hardware.vpp.VppCtrlFrcSegment;
import vendor.vuq.hardware.vpp.VppError;
import vendor.vuq.hardware.vpp.VppPort;
import vendor.vuq.hardware.vpp.VppPortParam;

// One post-processing session.
@VintfStability
interface IVpp {
    VppError close();
    VppError drain();
    VppError flush(in VppPort port);
    VppError getParameter(in VppPort port, out VppPortParam param);
    VppError initSession(in int flags, in IVppCallbacks callbacks);
    VppError open();
    VppError queueBuf(in VppPort port, in VppBuffer buffer);
    VppError reconfigure(in VppPortParam input, in VppPortParam output);
    VppError resetStatistics();
    VppError setCtrlAis(in VppCtrlAis ctrl);
    VppError setCtrlBrightness(in int value);
    VppError setCtrlColor(in int value);
    VppError setCtrlContrast(in int value);
    VppError setCtrlDenoise(in int value);
    VppError setCtrlFrc(in VppCtrlFrcSegment[] segments);
    VppError setCtrlHue(in int value);
    VppError setCtrlSaturation(in int value);
    VppError setCtrlSharpness(in int value);
    VppError setCtrlToneMap(in int value);
    VppError setCtrlVppMode(in int mode);
    VppError setParameter(in VppPort port, in VppPortParam param);
    VppError setPriority(in int value);
    VppError setQuality(in int value);
    VppError setStatistics(in int value);
    VppError suspend();
    void terminateSession();
}
