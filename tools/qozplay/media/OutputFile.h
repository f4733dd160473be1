// SPDX-License-Identifier: Apache-2.0
// A file that the player writes. What is written lies beside the target under no name, or under a
// temporary one, until commit() puts it in the target's place as a whole; what is not committed is
// gone with the object. Devices and pipes are written to directly, and never replaced or removed.
#pragma once

#include <android/binder_auto_utils.h>

#include <string>

#include "qozplay/media/Types.h"

namespace qozplay {

class OutputFile {
  public:
    // "-" is standard output. Throws BadInput when it cannot be written, or is a link to a file: a
    // rename would replace the link and leave the file as it was.
    explicit OutputFile(const std::string& path);
    ~OutputFile();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& name() const { return mName; }
    int descriptor() const { return mFile.get(); }

    // A path that opens what is being written, for those who want one.
    std::string openPath() const { return format("/proc/self/fd/%d", descriptor()); }

    // Throws SessionFailed.
    void write(const std::string& text);
    void commit();

  private:
    void openBeside();

    const std::string mPath;
    const std::string mName;
    ndk::ScopedFileDescriptor mFile;
    bool mDirect = false;    // a device or a pipe: there is nothing to put in its place
    std::string mTemporary;  // empty: under no name
};

}  // namespace qozplay
