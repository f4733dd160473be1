// SPDX-License-Identifier: Apache-2.0
// Finding the VPP service. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVppService.h>

#include <memory>
#include <string>

#include "base/Log.h"

namespace android {

// Looks the service up, 36 times within about 1.4 s while it is not there, and starts the process's
// binder threads once it is. Null: it was not found; a thread of the process goes on waiting for
// it.
std::shared_ptr<::aidl::vendor::vuq::hardware::vpp::IVppService> findVppService(
    const SessionLog& log, void (*waitForService)(std::string));

// Blocks until the service is registered, which also has the service manager start one that starts
// on demand.
void blockUntilRegistered(const std::string& instance);

}  // namespace android
