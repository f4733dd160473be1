// SPDX-License-Identifier: Apache-2.0
// Source slots that are given back one frame late. Private to src/.
#pragma once

#include <cstdint>
#include <list>

#include "base/ClientCallback.h"
#include "base/Log.h"
#include "base/StreamFacts.h"

namespace android {

// Each converted frame puts its slot at the end of the list and then releases the front. With a
// place in the list that stands for no slot every source is therefore released when the next one
// has been converted: until then the motion engine reads it as the reference frame. Between frames
// the list holds at most one place.
//
// Belongs to the client's thread. What is released goes straight to the client.
class HeldSlots {
  public:
    HeldSlots(std::list<int32_t>& slots, const ClientCallback& client, const SessionLog& log,
              PublishedFacts& facts)
        : mSlots(slots), mClient(client), mLog(log), mFacts(facts) {}

    // Has sources released one frame late from now on. Nothing to do when they are already.
    // Throws std::bad_alloc, as hold() does.
    void holdPlace();
    void hold(int32_t slot);
    void releaseFront();
    void releaseAll();
    // Without giving them back.
    void clear();

  private:
    void publish();

    std::list<int32_t>& mSlots;
    std::list<int32_t> mSpares;  // nodes of released slots, for those to come
    const ClientCallback& mClient;
    const SessionLog& mLog;
    PublishedFacts& mFacts;
};

}  // namespace android
