// Bytes from a file or from standard input.
#pragma once

#include "qozplay/media/Types.h"

#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>

namespace qozplay {

class InputFile {
  public:
    // "-" is standard input. Throws BadInput.
    explicit InputFile(const std::string& path);

    const std::string& name() const { return mName; }
    std::optional<uint64_t> bytes() const;  // of a regular file

    // Fills `data`; fewer bytes only at the end. Throws BadInput on a read error.
    size_t read(void* data, size_t size);

    // Reads up to a line feed, which is left out. Empty at the end of the file. Throws BadInput
    // when the end comes within the line or no line feed within `limit` bytes.
    std::optional<std::string> line(size_t limit);

  private:
    struct Close {
        void operator()(std::FILE* file) const {
            if (file != stdin) std::fclose(file);
        }
    };

    std::string mName;
    std::unique_ptr<std::FILE, Close> mFile;
};

}  // namespace qozplay
