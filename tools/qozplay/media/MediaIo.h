// SPDX-License-Identifier: Apache-2.0
// Reading and writing through a descriptor for libavformat.
#pragma once

#include "qozplay/media/Av.h"
#include "qozplay/media/StopRequest.h"

namespace qozplay {

// Provides libavformat with an I/O context for a descriptor: a file is seekable, a pipe is not. A
// wait for the other end of a pipe ends at a stop request. Owned by a reader or a writer, and used
// on its thread.
class MediaIo {
  public:
    enum class Direction { Read, Write };

    // Does not take ownership of the descriptor, which must exist for longer than the object.
    // Throws std::bad_alloc.
    MediaIo(int descriptor, Direction direction, const StopRequest& stop);
    ~MediaIo();

    MediaIo(const MediaIo&) = delete;
    MediaIo& operator=(const MediaIo&) = delete;

    AVIOContext* context() const { return mContext; }

  private:
    static int read(void* self, uint8_t* bytes, int size);
    static int write(void* self, uint8_t* bytes, int size);
    static int64_t seek(void* self, int64_t offset, int whence);
    bool await(short events) const;
    int atOnce(int size) const;

    const int mDescriptor;
    const StopRequest& mStop;
    bool mMayFill = false;  // true for a pipe or a socket, to which a write may have to wait
    AVIOContext* mContext = nullptr;
};

}  // namespace qozplay
