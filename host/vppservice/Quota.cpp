// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Quota.h"

namespace qoz::host::vppservice {
namespace {

constexpr uint64_t Resources::*kAll[] = {&Resources::sessions,    &Resources::calls,
                                         &Resources::descriptors, &Resources::events,
                                         &Resources::buffers,     &Resources::mappedBytes};

}  // namespace

Reservation::~Reservation() {
    if (mQuota != nullptr) mQuota->giveBack(mTaken);
}

std::optional<Reservation> Quota::reserve(const Resources& wanted) {
    if (!take(wanted)) return std::nullopt;
    return Reservation(shared_from_this(), wanted);
}

// The two locks are not held together: the amounts are added here, and taken back if the whole has
// no room.
bool Quota::take(const Resources& wanted) {
    {
        const std::lock_guard lock(mLock);
        for (const auto resource : kAll) {
            if (wanted.*resource > mBudget.*resource - mUsed.*resource) return false;
        }
        for (const auto resource : kAll) {
            mUsed.*resource += wanted.*resource;
        }
    }
    if (mWhole == nullptr || mWhole->take(wanted)) return true;
    const std::lock_guard lock(mLock);
    for (const auto resource : kAll) {
        mUsed.*resource -= wanted.*resource;
    }
    return false;
}

void Quota::giveBack(const Resources& taken) {
    {
        const std::lock_guard lock(mLock);
        for (const auto resource : kAll) {
            mUsed.*resource -= taken.*resource;
        }
    }
    if (mWhole != nullptr) mWhole->giveBack(taken);
}

}  // namespace qoz::host::vppservice
