// SPDX-License-Identifier: Apache-2.0
// The state of a component as text. Private to src/session.
#pragma once

#include <array>
#include <cstddef>

#include "session/Parts.h"

namespace android {

// Formats the state for a person who diagnoses a running or hanging stream. Takes leaf locks one at
// a time, and only tries a lock that is held across an allocation. Formats into its own array, so
// that it works when memory has run out. Each object serves one dump on one thread.
class VppComponent::StateDump {
  public:
    StateDump(const VppComponent& component, const Parts& parts) : c(component), p(parts) {}

    // Formats everything, then writes it. Must be called only once.
    void writeTo(int fd);

  private:
    // Appends to the text. Text beyond the end of the array is cut off.
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
