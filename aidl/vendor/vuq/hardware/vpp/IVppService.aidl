package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.IVpp;

// The factory of sessions. It is registered with the service manager under the name of this interface
// followed by "/default".
@VintfStability
interface IVppService {
    // Returns a new session, or null if none is available. The library passes 0 for flags.
    IVpp getNewVppSession(in int flags);
    // Returns the number of sessions. The library does not call it.
    int getSessionCount();
}
