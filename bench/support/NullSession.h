// SPDX-License-Identifier: Apache-2.0
// A session that accepts everything and does nothing, and a service that provides it.
#pragma once

#include <host/vppservice/NullSession.h>
#include <host/vppservice/SingleSessionService.h>

namespace qoz::bench {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

using host::NullSession;
using NullService = host::SingleSessionService<NullSession>;

}  // namespace qoz::bench
