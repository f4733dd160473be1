// SPDX-License-Identifier: Apache-2.0
// The session and the service that a bench brings, and a client that owns nothing.
#pragma once

#include <host/vppservice/NullSession.h>
#include <host/vppservice/SingleSessionService.h>
#include <qoz/VppComponent.h>

#include <set>

namespace qoz::bench {

namespace vpp = ::aidl::vendor::vuq::hardware::vpp;

using host::NullSession;
using NullService = host::SingleSessionService<NullSession>;

class NullClient final : public android::IQOZCallback {
  public:
    void onBufferDone(uint32_t, int32_t, uint32_t, uint64_t) override {}
    void onConfigChanged(std::set<uint32_t>) override {}
};

}  // namespace qoz::bench
