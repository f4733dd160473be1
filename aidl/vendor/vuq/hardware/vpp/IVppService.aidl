package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.IVpp;

// The factory of sessions.
@VintfStability
interface IVppService {
    IVpp getNewVppSession(in int flags);
    int getSessionCount();
}
