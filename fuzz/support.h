// SPDX-License-Identifier: Apache-2.0
// Provides the input of a fuzz target as a file.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>

namespace qoz::fuzz {

// A file in memory with the given content, which exists as long as the object.
class MemoryFile {
  public:
    MemoryFile(const uint8_t* data, size_t size) : mFd(memfd_create("fuzz", MFD_CLOEXEC)) {
        if (write(mFd, data, size) != static_cast<ssize_t>(size)) _exit(1);
    }
    ~MemoryFile() { close(mFd); }

    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(mFd); }

  private:
    const int mFd;
};

}  // namespace qoz::fuzz
