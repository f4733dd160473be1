#include "qozplay/media/InputFile.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

namespace qozplay {

InputFile::InputFile(const std::string& path)
    : mName(path == "-" ? "standard input" : path),
      mFile(path == "-" ? stdin : std::fopen(path.c_str(), "rbe")) {
    if (mFile == nullptr) {
        throw BadInput("cannot read " + mName + ": " + std::strerror(errno));
    }
    struct stat info {};
    if (fstat(fileno(mFile.get()), &info) == 0 && S_ISDIR(info.st_mode)) {
        throw BadInput("cannot read " + mName + ": it is a directory");
    }
}

std::optional<uint64_t> InputFile::bytes() const {
    struct stat info {};
    if (fstat(fileno(mFile.get()), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    return static_cast<uint64_t>(info.st_size);
}

size_t InputFile::read(void* data, size_t size) {
    const size_t got = std::fread(data, 1, size, mFile.get());
    if (got < size && std::ferror(mFile.get()) != 0) {
        throw BadInput("cannot read " + mName + ": " + std::strerror(errno));
    }
    return got;
}

std::optional<std::string> InputFile::line(size_t limit) {
    std::string text;
    for (int c = std::fgetc(mFile.get()); c != '\n'; c = std::fgetc(mFile.get())) {
        if (c == EOF && text.empty()) return std::nullopt;
        if (c == EOF) throw BadInput(mName + " ends in the middle of a header line");
        if (text.size() == limit) throw BadInput(mName + " has no header line where one belongs");
        text.push_back(static_cast<char>(c));
    }
    return text;
}

}  // namespace qozplay
