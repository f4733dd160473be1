#include "host/vppservice/Mapping.h"

#include <sys/mman.h>

#include <algorithm>

namespace qoz::host::vppservice {
namespace {

// Twice what a stream has under way: all 64 output slots, and a dozen frames with side buffers.
constexpr size_t kMostEntries = 128;

}  // namespace

std::shared_ptr<Mapping> Mapping::make(int fd, size_t length, bool writable) {
    const int access = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* address = mmap(nullptr, length, access, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) return nullptr;
    return std::shared_ptr<Mapping>(new Mapping(address, length));
}

Mapping::~Mapping() {
    munmap(mAddress, mLength);
}

std::shared_ptr<Mapping> MappingCache::map(int fd, const struct stat& file, bool writable) {
    const auto known = std::find_if(mEntries.begin(), mEntries.end(), [&](const Entry& entry) {
        return entry.device == file.st_dev && entry.inode == file.st_ino &&
               entry.size == file.st_size && entry.writable == writable;
    });
    if (known != mEntries.end()) {
        std::rotate(known, known + 1, mEntries.end());
        return mEntries.back().mapping;
    }
    auto mapping = Mapping::make(fd, static_cast<size_t>(file.st_size), writable);
    if (mapping == nullptr) return nullptr;
    if (mEntries.size() == kMostEntries) mEntries.erase(mEntries.begin());
    mEntries.push_back({file.st_dev, file.st_ino, file.st_size, writable, mapping});
    return mapping;
}

}  // namespace qoz::host::vppservice
