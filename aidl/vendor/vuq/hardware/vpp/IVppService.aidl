package vendor.vuq.hardware.vpp;

import vendor.vuq.hardware.vpp.IVpp;

// The factory of sessions, which the service manager knows under the name of this interface followed
// by "/default".
@VintfStability
interface IVppService {
    // A new session, or null when there is none to be had. The library passes 0 for flags.
    IVpp getNewVppSession(in int flags);
    // How many sessions there are. Not called by the library.
    int getSessionCount();
}
