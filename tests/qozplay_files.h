// SPDX-License-Identifier: Apache-2.0
// Definitions that the tests of the player share: files, clips and runs.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "qozplay/media/Types.h"
#include "qozplay/run/Player.h"

namespace qozplay {

using testing::HasSubstr;

// Returns the contents of a file. For a file under /proc whose process ends during the read,
// returns the part that was read.
inline std::string contentOf(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

// A temporary folder for one test; the destructor removes it.
class Folder {
  public:
    Folder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "qozplayXXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder for the test");
        mPath = pattern;
    }
    ~Folder() { std::filesystem::remove_all(mPath); }

    std::string file(const std::string& name) const { return (mPath / name).string(); }
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(file(name), std::ios::binary) << bytes;
        return file(name);
    }
    std::string read(const std::string& name) const { return contentOf(file(name)); }

  private:
    std::filesystem::path mPath;
};

// The size of a planar 4:2:0 picture in bytes.
inline size_t i420Bytes(Size size) {
    const size_t chroma = size_t{(size.width + 1) / 2} * ((size.height + 1) / 2);
    return size_t{size.width} * size.height + 2 * chroma;
}

// Returns a grey planar picture.
inline std::string grey(Size size, char luma) {
    const size_t pixels = static_cast<size_t>(size.width) * size.height;
    return std::string(pixels, luma) + std::string(i420Bytes(size) - pixels, '\x80');
}

// The exit code of a run, its standard output and its standard error.
struct Outcome {
    int code;
    std::string out, err;
};

// Runs the player in this process, with the options in `line` separated by blanks; '' stands for an
// empty one.
inline int run(const std::string& line, const StopRequest& stop, std::ostream& out,
               std::ostream& err) {
    std::istringstream words("qozplay " + line);
    const std::vector<std::string> typed(std::istream_iterator<std::string>(words), {});
    std::vector<const char*> args;
    args.reserve(typed.size());
    for (const std::string& word : typed)
        args.push_back(word == "''" ? "" : word.c_str());
    Console console(out, err, false);
    return play(static_cast<int>(args.size()), args.data(), console, stop);
}

// Runs the player in the same way and returns its output.
inline Outcome run(const std::string& line) {
    std::ostringstream out, err;
    const int code = run(line, StopRequest(), out, err);
    return {code, out.str(), err.str()};
}

}  // namespace qozplay
