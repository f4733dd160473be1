package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.FlushDone;
import vendor.vuq.hardware.vpp.ReconfigDone;
import vendor.vuq.hardware.vpp.VppBuffer;
import vendor.vuq.hardware.vpp.VppError;

// The events of a session, which the client implements. They are called on the client's binder threads,
// possibly several at the same time. The result is always VPP_OK, because the client cannot refuse an
// event.
@VintfStability
interface IVppCallbacks {
    // A drain is complete: all queued buffers have been processed and returned.
    VppError eventDrainDone();
    // An error has occurred outside any command. The library ignores it.
    VppError eventError(in VppError error);
    // A flush of one port is complete: the port has returned its buffers.
    VppError eventFlushDone(in FlushDone done);
    // A reconfiguration is complete or has failed.
    VppError eventReconfigDone(in ReconfigDone done);
    // Returns a source frame that the session has read and no longer needs. The library reads only the
    // cookie and the timestamp of the record.
    VppError inputBufferDone(in VppBuffer buffer);
    // Returns an output buffer; pixelFilledLen is 0 if it holds no frame. In bypass mode the session
    // returns a source frame here, unprocessed.
    VppError outputBufferDone(in VppBuffer buffer);
}
