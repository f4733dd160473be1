package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.IVppCallbacks;
import vendor.vuq.hardware.vpp.VppBuffer;
import vendor.vuq.hardware.vpp.VppCtrlAis;
import vendor.vuq.hardware.vpp.VppCtrlFrcSegment;
import vendor.vuq.hardware.vpp.VppError;
import vendor.vuq.hardware.vpp.VppPort;
import vendor.vuq.hardware.vpp.VppPortParam;

// One post-processing session. The client sets its controls and ports, opens it, queues frames on the
// input port and empty buffers on the output port, and gets both back through IVppCallbacks. A result
// says whether the session took a command; flush, reconfigure and drain are finished later, which an
// event says. Operations without a comment are not called by this library.
@VintfStability
interface IVpp {
    // Ends the processing. Buffers that the session still has are not returned.
    VppError close();
    // Has everything that is queued processed and returned, then IVppCallbacks.eventDrainDone().
    VppError drain();
    // Has one port return its buffers unprocessed, then IVppCallbacks.eventFlushDone() for that port.
    VppError flush(in VppPort port);
    VppError getParameter(in VppPort port, out VppPortParam param);
    // Names the object that the session reports to. Once a session, before anything else. The library
    // passes 0 for flags.
    VppError initSession(in int flags, in IVppCallbacks callbacks);
    // Starts processing with the controls and ports set before.
    VppError open();
    // Hands one buffer over. The session owns the descriptors of the record that it receives; the
    // buffer is the session's until it comes back under the same cookie.
    VppError queueBuf(in VppPort port, in VppBuffer buffer);
    // Has an open session go on at other port sizes, then IVppCallbacks.eventReconfigDone(). Asked for
    // when both ports are empty: after a flush.
    VppError reconfigure(in VppPortParam input, in VppPortParam output);
    VppError resetStatistics();
    // Upscaling without frame-rate conversion.
    VppError setCtrlAis(in VppCtrlAis ctrl);
    VppError setCtrlBrightness(in int value);
    VppError setCtrlColor(in int value);
    VppError setCtrlContrast(in int value);
    VppError setCtrlDenoise(in int value);
    // Frame-rate conversion: all segments that are to be known, in place of those sent before.
    VppError setCtrlFrc(in VppCtrlFrcSegment[] segments);
    VppError setCtrlHue(in int value);
    VppError setCtrlSaturation(in int value);
    VppError setCtrlSharpness(in int value);
    VppError setCtrlToneMap(in int value);
    // What the session is used for; the library's sessions are of mode 2.
    VppError setCtrlVppMode(in int mode);
    // The layout of the frames on one port; before open().
    VppError setParameter(in VppPort port, in VppPortParam param);
    VppError setPriority(in int value);
    VppError setQuality(in int value);
    VppError setStatistics(in int value);
    VppError suspend();
    // Ends the session, which lets its callback object go. Called after close(), whatever that answered.
    void terminateSession();
}
