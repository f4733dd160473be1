package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.FlushDone;
import vendor.vuq.hardware.vpp.ReconfigDone;
import vendor.vuq.hardware.vpp.VppBuffer;
import vendor.vuq.hardware.vpp.VppError;

// What a session reports to its client, on the client's binder threads, several at once. The result is
// always VPP_OK: the client has no way to refuse a report.
@VintfStability
interface IVppCallbacks {
    // A drain is finished: everything that was queued has been processed and returned.
    VppError eventDrainDone();
    // Something went wrong outside any command. The library does not act on it.
    VppError eventError(in VppError error);
    // One port has returned its buffers.
    VppError eventFlushDone(in FlushDone done);
    // A reconfiguration is finished, or has failed.
    VppError eventReconfigDone(in ReconfigDone done);
    // The session has read a source frame and does not need it any more. Of the record only cookie and
    // timestamp are read.
    VppError inputBufferDone(in VppBuffer buffer);
    // An output buffer comes back, filled or (pixelFilledLen 0) not; or, when the session passes frames
    // through, a source frame.
    VppError outputBufferDone(in VppBuffer buffer);
}
