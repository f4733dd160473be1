package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.FlushDone;
import vendor.vuq.hardware.vpp.ReconfigDone;
import vendor.vuq.hardware.vpp.VppBuffer;
import vendor.vuq.hardware.vpp.VppError;

// What a session reports to its client. Called on the client's binder threads.
@VintfStability
interface IVppCallbacks {
    VppError eventDrainDone();
    VppError eventError(in VppError error);
    VppError eventFlushDone(in FlushDone done);
    VppError eventReconfigDone(in ReconfigDone done);
    VppError inputBufferDone(in VppBuffer buffer);
    VppError outputBufferDone(in VppBuffer buffer);
}
