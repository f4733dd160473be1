// ImportedBuffer memory, mapped.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace qoz::host::vppservice {

class Mapping {
  public:
    // Null when the memory cannot be mapped; errno says why.
    static std::shared_ptr<Mapping> make(int fd, size_t length, bool writable);
    ~Mapping();

    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    uint8_t* data() const { return static_cast<uint8_t*>(mAddress); }

  private:
    Mapping(void* address, size_t length) : mAddress(address), mLength(length) {}

    void* mAddress;
    size_t mLength;
};

// Frames come from small rings of buffers, so the same memory arrives again and again under new
// descriptors; a mapping kept spares its page faults. A mapping keeps its inode alive, so an inode
// number found here is still the same memory. Not for use from two threads at once.
class MappingCache {
  public:
    std::shared_ptr<Mapping> map(int fd, const struct stat& file, bool writable);
    void clear() { mEntries.clear(); }

  private:
    struct Entry {
        dev_t device;
        ino_t inode;
        off_t size;
        bool writable;
        std::shared_ptr<Mapping> mapping;
    };

    std::vector<Entry> mEntries;  // least recently used first
};

}  // namespace qoz::host::vppservice
