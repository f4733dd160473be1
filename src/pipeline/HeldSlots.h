// SPDX-License-Identifier: Apache-2.0
// Source slots that are returned to the client one frame late. Private to src/.
#pragma once

#include <cstdint>
#include <list>

#include "base/ClientCallback.h"
#include "base/Log.h"
#include "base/StreamFacts.h"

namespace android {

// Each converted frame appends its slot to the list and then releases the front entry. An empty
// list therefore releases every source as soon as it has been converted. holdPlace() puts a place
// that stands for no slot (-1) into an empty list. The next frame releases that place, and from
// then on the list holds the previous source between frames: it is released only when the next one
// has been converted, because the converter reads it as the reference frame until then. Between
// frames the list has at most one entry.
//
// Used only by the client's thread. A released slot is reported to the client at once.
class HeldSlots {
  public:
    HeldSlots(std::list<int32_t>& slots, const ClientCallback& client, const SessionLog& log,
              PublishedFacts& facts)
        : mSlots(slots), mClient(client), mLog(log), mFacts(facts) {}

    // Makes every later source be released one frame late, until releaseAll() or clear() empties
    // the list: after a flush without a new configuration, sources are released at once. Called
    // whenever a configuration begins that uses motion vectors: by config(), and after a change of
    // size or ratio. Does nothing if sources are released late already. Throws std::bad_alloc, as
    // hold() does.
    void holdPlace();
    void hold(int32_t slot);
    void releaseFront();
    void releaseAll();
    // Empties the list without reporting the slots to the client.
    void clear();

  private:
    void publish();

    std::list<int32_t>& mSlots;
    std::list<int32_t> mSpares;  // nodes of released slots, kept for reuse
    const ClientCallback& mClient;
    const SessionLog& mLog;
    PublishedFacts& mFacts;
};

}  // namespace android
