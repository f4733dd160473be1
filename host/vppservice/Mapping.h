// SPDX-License-Identifier: Apache-2.0
// Received memory, mapped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace qoz::host::vppservice {

// Lives as long as somebody works on the memory. Whoever made the memory may have unmapped and
// closed it meanwhile; that it cannot shrink is for the importer to have seen to.
class Mapping {
  public:
    // Of `length` bytes from `offset` on. Null when they cannot be mapped; errno says why.
    static std::shared_ptr<Mapping> make(int fd, size_t offset, size_t length, bool writable);
    ~Mapping();

    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    // The first of the bytes. Has all pages ready at one go, which spares a fault for each: for who
    // is about to work on them all. Memory that nobody has worked on yet need not exist.
    uint8_t* ready() const;

  private:
    Mapping(void* pages, size_t skipped, size_t length)
        : mPages(pages), mSkipped(skipped), mLength(length) {}

    void* const mPages;
    const size_t mSkipped;  // bytes of the first page
    const size_t mLength;   // with these
};

}  // namespace qoz::host::vppservice
