// SPDX-License-Identifier: Apache-2.0
// The state of a component as text. Private to src/session.
#pragma once

#include <array>
#include <cstddef>

#include "session/Parts.h"

namespace android {

// For a person who looks at a stream that runs or hangs. Reads under leaf locks, one at a time, and
// only tries a lock that is held across an allocation. Formats into memory of its own: a state dump
// is wanted when memory is short, too. One thread makes one dump.
class VppComponent::StateDump {
  public:
    StateDump(const VppComponent& component, const Parts& parts) : c(component), p(parts) {}

    // Formats everything, then writes it in one go; once.
    void writeTo(int fd);

  private:
    // Appends to the text. What does not fit any more is cut off.
    __attribute__((__format__(printf, 2, 3))) void add(const char* format, ...);
    void addStream();
    void addOutstanding();
    void addPools();
    void addDelivery();
    void addWorker();
    void addAwaited();

    const VppComponent& c;
    const Parts& p;
    std::array<char, 1536> mText{};
    size_t mSize = 0;
};

}  // namespace android
