// The player's readers: whatever is in a clip, they give frames or throw BadInput.
#include <qozplay/media/FrameSource.h>
#include <qozplay/media/Types.h>

#include <vector>

#include "support.h"

namespace {

// Larger pictures are honest work that finds nothing new.
constexpr uint64_t kPixels = 1 << 16;
constexpr int kFrames = 4;

void readAll(qozplay::FrameSource& clip) {
    const qozplay::Size size = clip.size();
    if (uint64_t{size.width} * size.height > kPixels) return;
    std::vector<uint8_t> rgba(size_t{size.width} * size.height * 4);
    for (int n = 0; n < kFrames && clip.next(rgba.data(), size_t{size.width} * 4); ++n) {
    }
}

}  // namespace

// The first byte chooses the reader.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const qoz::fuzz::MemoryFile file(data + 1, size - 1);
    try {
        const auto clip = data[0] % 4 == 0
                              ? qozplay::openRaw(file.path(), {data[0] / 8U + 1U, 3}, {30, 1})
                              : qozplay::openY4m(file.path());
        readAll(*clip);
    } catch (const qozplay::BadInput&) {
    }
    return 0;
}
