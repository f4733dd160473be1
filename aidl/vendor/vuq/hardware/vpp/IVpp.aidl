package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.IVppCallbacks;
import vendor.vuq.hardware.vpp.VppBuffer;
import vendor.vuq.hardware.vpp.VppCtrlAis;
import vendor.vuq.hardware.vpp.VppCtrlFrcSegment;
import vendor.vuq.hardware.vpp.VppError;
import vendor.vuq.hardware.vpp.VppPort;
import vendor.vuq.hardware.vpp.VppPortParam;

// One post-processing session. The client sets the controls and ports, opens the session, and queues
// frames on the input port and empty buffers on the output port. The session returns both through
// IVppCallbacks. A result says whether the session accepted a command. flush, reconfigure and drain
// complete later, with an event. The library does not call the operations without a comment.
@VintfStability
interface IVpp {
    // Ends processing. The session does not return the buffers that it still holds.
    VppError close();
    // Processes and returns all queued buffers, then calls IVppCallbacks.eventDrainDone().
    VppError drain();
    // Returns the buffers of one port unprocessed, then calls IVppCallbacks.eventFlushDone() for that
    // port.
    VppError flush(in VppPort port);
    VppError getParameter(in VppPort port, out VppPortParam param);
    // Sets the object that receives the session's events. Called once for each session, before any other
    // operation. The library passes 0 for flags.
    VppError initSession(in int flags, in IVppCallbacks callbacks);
    // Starts processing with the current controls and port layouts.
    VppError open();
    // Queues one buffer. The session owns the descriptors in the record that it receives, and uses the
    // buffer until it returns it with the same cookie.
    VppError queueBuf(in VppPort port, in VppBuffer buffer);
    // Changes the port layouts of an open session, then calls IVppCallbacks.eventReconfigDone(). The
    // library calls it after a flush, when both ports are empty.
    VppError reconfigure(in VppPortParam input, in VppPortParam output);
    VppError resetStatistics();
    // Sets upscaling without frame-rate conversion.
    VppError setCtrlAis(in VppCtrlAis ctrl);
    VppError setCtrlBrightness(in int value);
    VppError setCtrlColor(in int value);
    VppError setCtrlContrast(in int value);
    VppError setCtrlDenoise(in int value);
    // Sets frame-rate conversion. The segments replace all segments that were sent before.
    VppError setCtrlFrc(in VppCtrlFrcSegment[] segments);
    VppError setCtrlHue(in int value);
    VppError setCtrlSaturation(in int value);
    VppError setCtrlSharpness(in int value);
    VppError setCtrlToneMap(in int value);
    // Sets the purpose of the session. The library uses mode 2.
    VppError setCtrlVppMode(in int mode);
    // Sets the layout of the frames on one port. Called before open().
    VppError setParameter(in VppPort port, in VppPortParam param);
    VppError setPriority(in int value);
    VppError setQuality(in int value);
    VppError setStatistics(in int value);
    VppError suspend();
    // Ends the session, which releases its callback object. Called after close(), whatever its result.
    void terminateSession();
}
