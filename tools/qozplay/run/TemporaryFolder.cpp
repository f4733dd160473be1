// SPDX-License-Identifier: Apache-2.0
#include "qozplay/run/TemporaryFolder.h"

#include <cstdlib>
#include <mutex>
#include <system_error>

#include "qozplay/media/Types.h"

namespace qozplay {
namespace {

namespace fs = std::filesystem;

std::mutex gLock;
fs::path gExisting;  // one run, one folder

void removeQuietly(const fs::path& path) {
    std::error_code ignored;  // what cannot be removed stays
    if (!path.empty()) fs::remove_all(path, ignored);
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    std::error_code error;
    std::string pattern = (fs::temp_directory_path(error) / "qozplay-XXXXXX").string();
    if (error || mkdtemp(pattern.data()) == nullptr) {
        throw BadInput("there is no folder for temporary files");
    }
    mPath = pattern;
    const std::lock_guard lock(gLock);
    gExisting = mPath;
}

TemporaryFolder::~TemporaryFolder() {
    const std::lock_guard lock(gLock);
    removeQuietly(mPath);
    gExisting.clear();
}

void TemporaryFolder::removeForGood() noexcept {
    try {
        const std::lock_guard lock(gLock);
        removeQuietly(gExisting);
    } catch (...) {  // there is nobody left to tell
    }
}

}  // namespace qozplay
