// SPDX-License-Identifier: Apache-2.0
// A folder for what a run needs for its own duration. It is gone with the object, and also when the
// process ends at once and no object is destroyed.
#pragma once

#include <filesystem>

namespace qozplay {

class TemporaryFolder {
  public:
    // Throws BadInput.
    TemporaryFolder();
    ~TemporaryFolder();

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return mPath; }

    // Removes the folder that exists, if any, for a process that is about to end. Any thread;
    // throws nothing.
    static void removeForGood() noexcept;

  private:
    std::filesystem::path mPath;
};

}  // namespace qozplay
