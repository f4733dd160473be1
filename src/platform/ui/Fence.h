// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {

// A descriptor that becomes readable when the work it stands for is done.
class Fence : public LightRefBase<Fence> {
  public:
    // Stands for work that is done.
    static const sp<Fence> NO_FENCE;

    Fence() = default;
    explicit Fence(int fenceFd) : mFenceFd(fenceFd) {}  // takes the descriptor over

    bool isValid() const { return mFenceFd != -1; }

    // `timeout` in milliseconds. NO_ERROR at once when there is no fence; -ETIME when the time has
    // passed first.
    status_t wait(int timeout);

    // Borrowed; -1 when there is no fence.
    int get() const { return mFenceFd; }

  private:
    friend class LightRefBase<Fence>;
    ~Fence();

    int mFenceFd = -1;
};

}  // namespace android
