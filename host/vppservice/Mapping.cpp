// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Mapping.h"

#include <sys/mman.h>
#include <unistd.h>

namespace qoz::host::vppservice {

// The object exists before the memory is mapped, so that an allocation failure leaves nothing
// mapped.
std::shared_ptr<Mapping> Mapping::make(int fd, size_t offset, size_t length, bool writable) {
    const int access = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    const size_t skipped = offset % static_cast<size_t>(sysconf(_SC_PAGESIZE));
    std::shared_ptr<Mapping> made(new Mapping(skipped, skipped + length));
    void* pages =
        mmap(nullptr, made->mLength, access, MAP_SHARED, fd, static_cast<off_t>(offset - skipped));
    if (pages == MAP_FAILED) return nullptr;
    made->mPages = pages;
    return made;
}

uint8_t* Mapping::ready() const {
    // Populating for reading is enough for memory that will be written too: its pages are writable
    // at once, and the kernel maps sixteen at a time. A kernel that does not know this advice
    // refuses it, and each page then takes a fault of its own.
    madvise(mPages, mLength, MADV_POPULATE_READ);
    return static_cast<uint8_t*>(mPages) + mSkipped;
}

Mapping::~Mapping() {
    if (mPages != nullptr) munmap(mPages, mLength);
}

}  // namespace qoz::host::vppservice
