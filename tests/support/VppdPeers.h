// SPDX-License-Identifier: Apache-2.0
// A service in a process of its own, on a bus that a test's clients and hostile peers share.
#pragma once

#include <client/LiveClient.h>
#include <host/vppd/PrivateBus.h>
#include <host/vppd/RemoteService.h>

#include "support/HostilePeer.h"
#include "support/Sanitized.h"

namespace qoz::test {

#ifdef NDEBUG
constexpr bool kSlow = kSanitized;
#else
constexpr bool kSlow = true;  // an unoptimised build takes minutes for frames of the usual size
#endif
constexpr uint32_t kW = kSlow ? 320 : 1280;
constexpr uint32_t kH = kSlow ? 180 : 720;
constexpr Size kSize{static_cast<int>(kW), static_cast<int>(kH)};
constexpr int64_t kFrameNs = 33333000;
constexpr ConfigParams kDouble{1, 0, 1, 0};

// A fixture with a service process on a private bus.
class VppdPeers : public ResourceTest {
  protected:
    // Every call of setCtrlAis is slow. The healthy client never makes it.
    const host::PrivateBus bus{{"--fault", "setCtrlAis=late:700@1+"}};
    host::RemoteVppService service{bus.address()};
};

}  // namespace qoz::test
