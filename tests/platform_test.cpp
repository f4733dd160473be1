// SPDX-License-Identifier: Apache-2.0
// Tests of behaviour in which the host simulator must not be more tolerant than the platform.
#include <aidl/vendor/vuq/hardware/vpp/BnVppCallbacks.h>
#include <aidl/vendor/vuq/hardware/vpp/IVpp.h>
#include <host/control.h>
#include <sys/eventfd.h>
#include <ui/Fence.h>
#include <utils/Errors.h>

#include "support/Fixture.h"

namespace qoz::test {
namespace {

class Platform : public ResourceTest {};

TEST_F(Platform, ABinderCallWithoutAnOutcomeIsNotOk) {
    EXPECT_FALSE(ndk::ScopedAStatus().isOk());
    EXPECT_TRUE(ndk::ScopedAStatus::ok().isOk());
    EXPECT_FALSE(ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT).isOk());
}

TEST_F(Platform, AnObjectHasOneBinderForAsLongAsItIsHeld) {
    const auto session = ndk::SharedRefBase::make<ScriptedVpp>();
    const std::weak_ptr<ndk::SharedRefBase> alive = session->ref();
    AIBinder_Weak* weak = nullptr;
    {
        const ndk::SpAIBinder first = session->asBinder();
        weak = AIBinder_Weak_new(first.get());
        EXPECT_EQ(session->asBinder().get(), first.get());
        EXPECT_EQ(vpp::IVpp::fromBinder(first), session);
        EXPECT_EQ(vpp::IVppCallbacks::fromBinder(first), nullptr) << "another interface";
    }
    EXPECT_EQ(AIBinder_Weak_promote(weak), nullptr) << "nobody held it any more";
    AIBinder_Weak_delete(weak);
    EXPECT_EQ(alive.use_count(), 1) << "an ended binder keeps nothing";
    EXPECT_EQ(vpp::IVpp::fromBinder(ndk::SpAIBinder()), nullptr);
}

TEST_F(Platform, AFenceThatDoesNotComeIsETimeAndNoFenceIsNone) {
    const int descriptor = eventfd(0, EFD_CLOEXEC);
    const sp<android::Fence> fence(new android::Fence(descriptor));
    EXPECT_EQ(fence->wait(1), -ETIME);
    ASSERT_EQ(eventfd_write(descriptor, 1), 0);
    EXPECT_EQ(fence->wait(-1), android::NO_ERROR);
    EXPECT_FALSE(android::Fence::NO_FENCE->isValid());
    EXPECT_EQ(android::Fence::NO_FENCE->wait(0), android::NO_ERROR);
}

TEST_F(Platform, ABufferWithoutMemoryIsNothing) {
    host::armFault({.operation = "allocate"});
    const auto lacking = buffer(64, 48, kRgba);
    host::clearFaults();
    EXPECT_EQ(lacking->initCheck(), android::NO_MEMORY);
    EXPECT_EQ(lacking->handle, nullptr);
    EXPECT_EQ(std::tuple(lacking->getWidth(), lacking->getHeight(), lacking->getStride()),
              std::tuple(0U, 0U, 0U));
    EXPECT_EQ(std::tuple(lacking->getPixelFormat(), lacking->getUsage()), std::tuple(0, 0U));
}

}  // namespace
}  // namespace qoz::test
