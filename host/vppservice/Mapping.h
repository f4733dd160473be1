// SPDX-License-Identifier: Apache-2.0
// Mappings of memory that a client has sent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "host/vppservice/HeldMemory.h"

namespace qoz::host::vppservice {

// A mapping of shared memory; it ends with the object. The client may unmap and close the memory
// before. The importer must have checked that the memory cannot shrink.
class Mapping {
  public:
    // Maps `length` bytes from `offset` on. Returns null if that fails; errno has the reason.
    // Throws std::bad_alloc.
    static std::shared_ptr<Mapping> make(int fd, size_t offset, size_t length, bool writable);
    ~Mapping();

    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    // Returns the first byte, and makes all pages present at once, which saves a page fault for
    // each. Call it only when most of the memory is about to be used: it brings into existence
    // pages that nobody has used yet.
    uint8_t* ready() const;

    // Ends the hold with this object.
    void keep(HeldMemory::Hold hold) { mHold = std::move(hold); }

  private:
    Mapping(size_t skipped, size_t length) : mSkipped(skipped), mLength(length) {}

    void* mPages = nullptr;
    const size_t mSkipped;  // bytes of the first page that precede the offset
    const size_t mLength;   // in bytes, with the skipped ones
    HeldMemory::Hold mHold;
};

}  // namespace qoz::host::vppservice
