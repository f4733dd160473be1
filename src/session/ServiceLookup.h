// SPDX-License-Identifier: Apache-2.0
// Finding the VPP service. Private to src/.
#pragma once

#include <aidl/vendor/vuq/hardware/vpp/IVppService.h>

#include <memory>
#include <string>

#include "base/Log.h"

namespace android {

// Looks the service up, up to 36 times within about 1.4 s, and starts the process's binder threads
// when it is found. Returns null if it was not found; a thread of the process then keeps waiting
// for it.
std::shared_ptr<::aidl::vendor::vuq::hardware::vpp::IVppService> findVppService(
    const SessionLog& log, void (*waitForService)(std::string));

// Blocks until the service is registered. The call also makes the service manager start a service
// that is configured to start on demand.
void blockUntilRegistered(const std::string& instance);

}  // namespace android
