// SPDX-License-Identifier: Apache-2.0
#include "qozplay/run/TemporaryFolder.h"

#include <android-base/thread_annotations.h>

#include <cstdlib>
#include <mutex>
#include <system_error>

#include "qozplay/media/Types.h"

namespace qozplay {
namespace {

namespace fs = std::filesystem;

std::mutex gLock;
fs::path gExisting GUARDED_BY(gLock);     // one run, one folder
bool gForGood GUARDED_BY(gLock) = false;  // the process is about to end: none is made any more

// Under another name first: whoever is about to make something in the folder does not find it, so
// that all of it goes.
void removeQuietly(const fs::path& path) {
    if (path.empty()) return;
    const fs::path going = path.string() + ".going";
    std::error_code ignored;  // what cannot be removed stays
    fs::rename(path, going, ignored);
    fs::remove_all(ignored ? path : going, ignored);
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    const std::lock_guard lock(gLock);
    std::error_code error;
    std::string pattern = (fs::temp_directory_path(error) / "qozplay-XXXXXX").string();
    if (error || gForGood || mkdtemp(pattern.data()) == nullptr) {
        throw BadInput(
            "no folder for temporary files can be made; the variable TMPDIR names where, else "
            "it is /tmp");
    }
    mPath = pattern;
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
        gForGood = true;
        removeQuietly(gExisting);
    } catch (...) {  // there is nobody left to tell
    }
}

}  // namespace qozplay
