// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {

// Owns a descriptor that becomes readable when the work that the fence guards is complete.
class Fence : public LightRefBase<Fence> {
  public:
    // A fence without a descriptor, for work that is already complete.
    static const sp<Fence> NO_FENCE;

    Fence() = default;
    explicit Fence(int fenceFd) : mFenceFd(fenceFd) {}  // takes ownership of the descriptor

    bool isValid() const { return mFenceFd != -1; }

    // Waits for the fence to signal. `timeout` is in milliseconds. Returns NO_ERROR at once if
    // there is no descriptor, and -ETIME if the time runs out first.
    status_t wait(int timeout);

    // Returns the descriptor, which the fence keeps, or -1 if there is none.
    int get() const { return mFenceFd; }

  private:
    friend class LightRefBase<Fence>;
    ~Fence();

    int mFenceFd = -1;
};

}  // namespace android
