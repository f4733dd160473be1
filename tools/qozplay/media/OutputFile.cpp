// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace qozplay {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kMode = 0666;  // mode of a new file, before the umask is applied

std::string cannotWrite(const std::string& name, const std::string& why) {
    return "cannot write " + name + ": " + why;
}

std::string cannotWrite(const std::string& name) {
    return cannotWrite(name, std::strerror(errno));
}

fs::path folderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

// Returns a hidden name in the target's folder. It contains the process number, so that two
// processes do not use the same name.
std::string temporaryName(const fs::path& path) {
    return folderOf(path) / format(".%s.%d", path.filename().c_str(), getpid());
}

}  // namespace

OutputFile::OutputFile(const std::string& path)
    : mPath(path), mName(path == "-" ? "standard output" : path) {
    struct stat info {};
    std::error_code none;
    const bool there = path != "-" && stat(path.c_str(), &info) == 0;
    const bool leads = path != "-" && fs::is_symlink(path, none);
    if (there && S_ISDIR(info.st_mode)) throw BadInput(cannotWrite(mName, "it is a directory"));
    mDirect = path == "-" || (there && !S_ISREG(info.st_mode));
    if (leads && !mDirect) {
        throw BadInput(cannotWrite(mName, "it is a link; name the file that it leads to"));
    }
    if (!mDirect && there && access(path.c_str(), W_OK) != 0) throw BadInput(cannotWrite(mName));
    if (!mDirect) {
        openBeside();
        if (there) (void)!fchmod(mFile.get(), info.st_mode & 07777);  // the replaced file's mode
        return;
    }
    mFile.set(path == "-" ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)
                          : open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    if (mFile.get() < 0) throw BadInput(cannotWrite(mName));
}

// Opens a file without a name in the target's folder; on a file system that does not support
// O_TMPFILE, one with a temporary name.
void OutputFile::openBeside() {
    mFile.set(open(folderOf(mPath).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kMode));
    if (mFile.get() >= 0) return;
    const std::string name = temporaryName(mPath);
    mFile.set(open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, kMode));
    if (mFile.get() < 0) throw BadInput(cannotWrite(mName));
    mTemporary = name;
}

OutputFile::~OutputFile() {
    if (!mTemporary.empty()) unlink(mTemporary.c_str());
}

void OutputFile::write(const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t wrote = ::write(descriptor(), text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) throw SessionFailed(cannotWrite(mName));
        done += static_cast<size_t>(wrote);
    }
}

void OutputFile::commit() {
    if (mDirect) return;
    if (mTemporary.empty()) {
        // linkat() does not replace an existing file, but rename() does. A file without a name
        // therefore gets a temporary one first.
        const std::string name = temporaryName(mPath);
        if (linkat(AT_FDCWD, openPath().c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0)
            throw SessionFailed(cannotWrite(mName));
        mTemporary = name;
    }
    if (std::rename(mTemporary.c_str(), mPath.c_str()) != 0) {
        throw SessionFailed(cannotWrite(mName));
    }
    mTemporary.clear();
}

}  // namespace qozplay
