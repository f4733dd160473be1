// SPDX-License-Identifier: Apache-2.0
// A file that the player writes and replaces as a whole.
#pragma once

#include <android/binder_auto_utils.h>

#include <string>

#include "qozplay/media/Types.h"

namespace qozplay {

// The contents are written to a file in the folder of the target that has no name, or a hidden
// temporary one. commit() moves this file to the target's name, so that the target is always either
// the old file or the complete new one. Without commit(), the destructor discards the contents.
// Devices and pipes are written directly and never replaced or removed. The class takes no lock.
class OutputFile {
  public:
    // "-" is standard output. Throws BadInput if the target cannot be written. A symbolic link to a
    // file is refused too: the rename would replace the link and leave the file unchanged.
    explicit OutputFile(const std::string& path);
    ~OutputFile();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& name() const { return mName; }
    int descriptor() const { return mFile.get(); }

    // A path by which a library can open the file that is being written.
    std::string openPath() const { return format("/proc/self/fd/%d", descriptor()); }

    // Both throw SessionFailed. commit() does nothing for a device or a pipe.
    void write(const std::string& text);
    void commit();

  private:
    void openBeside();

    const std::string mPath;
    const std::string mName;
    ndk::ScopedFileDescriptor mFile;
    bool mDirect = false;    // true for a device or a pipe
    std::string mTemporary;  // the temporary name; empty for a file without one
};

}  // namespace qozplay
