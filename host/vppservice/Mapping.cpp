// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/Mapping.h"

#include <sys/mman.h>
#include <unistd.h>

namespace qoz::host::vppservice {

std::shared_ptr<Mapping> Mapping::make(int fd, size_t offset, size_t length, bool writable) {
    const int access = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    const size_t skipped = offset % static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t mapped = skipped + length;
    void* pages =
        mmap(nullptr, mapped, access, MAP_SHARED, fd, static_cast<off_t>(offset - skipped));
    if (pages == MAP_FAILED) return nullptr;
    return std::shared_ptr<Mapping>(new Mapping(pages, skipped, mapped));
}

uint8_t* Mapping::ready() const {
    // Populating for reading is enough for memory that will be written too: its pages are writable
    // at once, and the kernel maps sixteen at a time. A kernel that does not know this advice
    // refuses it, and each page then takes a fault of its own.
    madvise(mPages, mLength, MADV_POPULATE_READ);
    return static_cast<uint8_t*>(mPages) + mSkipped;
}

Mapping::~Mapping() {
    munmap(mPages, mLength);
}

}  // namespace qoz::host::vppservice
