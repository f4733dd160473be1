// SPDX-License-Identifier: Apache-2.0
// A descriptor as libavformat reads and writes it: files with seeking, pipes without. Where the
// other end of a pipe keeps us waiting, a stop request ends the wait.
#pragma once

#include "qozplay/media/Av.h"
#include "qozplay/media/StopRequest.h"

namespace qozplay {

class MediaIo {
  public:
    enum class Direction { Read, Write };

    // The descriptor stays its owner's. Throws std::bad_alloc.
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
    bool mMayFill = false;  // a pipe or a socket
    AVIOContext* mContext = nullptr;
};

}  // namespace qozplay
