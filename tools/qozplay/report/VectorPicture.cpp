#include "qozplay/report/VectorPicture.h"

#include "qozplay/media/Canvas.h"

#include <cutils/properties.h>

#include <cstdlib>
#include <system_error>
#include <utility>
#include <vector>

namespace qozplay {
namespace {

namespace fs = std::filesystem;

constexpr int32_t kTitleDot = 2;
constexpr int32_t kTitleRoom = 34;

// As many frames as a vector needs, and nothing that would come in between.
Options forTwoFrames(Options options) {
    options.frames = 2;
    options.changes.clear();
    options.verify = false;
    return options;
}

// The field is drawn in cells of one colour with an arrow of pure white and yellow in the middle;
// grey cells are at rest. The frame shows through without colours of its own.
void layOver(const Surface& frame, const Image& field) {
    constexpr uint8_t kTint = 150;  // of 255
    for (uint32_t y = 0; y < frame.size.height; ++y) {
        for (uint32_t x = 0; x < frame.size.width; ++x) {
            uint8_t* pixel = frame.at(x, y);
            const auto grey =
                static_cast<uint8_t>((pixel[0] * 77 + pixel[1] * 150 + pixel[2] * 29) / 256);
            const uint8_t* over = field.pixels.data() + field.stride() * y + size_t{4} * x;
            const bool arrow = over[0] == 255 && over[1] == 255;
            const bool rest = over[0] == over[1] && over[1] == over[2];
            const Box dot{static_cast<int32_t>(x), static_cast<int32_t>(y), 1, 1};
            fill(frame, dot, {grey, grey, grey});
            if (arrow || !rest) {
                fill(frame, dot, {over[0], over[1], over[2], arrow ? uint8_t{255} : kTint});
            }
        }
    }
}

}  // namespace

VectorPicture::Folder::Folder() {
    std::error_code error;
    std::string pattern = (fs::temp_directory_path(error) / "qozplay-XXXXXX").string();
    if (pattern.size() >= PROPERTY_VALUE_MAX) {  // the converter is told of it by a property
        throw BadInput("--vectors: the folder for temporary files has too long a name");
    }
    if (error || mkdtemp(pattern.data()) == nullptr) {
        throw BadInput("--vectors: no folder for temporary files");
    }
    path = pattern;
}

VectorPicture::Folder::~Folder() {
    std::error_code ignored;  // what cannot be removed stays
    fs::remove_all(path, ignored);
}

VectorPicture::VectorPicture(const Options& options, std::unique_ptr<FrameSource> clip,
                             uint64_t frame)
    : mOptions(forTwoFrames(options)), mClip(std::move(clip)), mFrame(frame) {}

void VectorPicture::save(Simulator& simulator) {
    skipTo(mFrame);
    simulator.dumpInto(mFolder.path);
    mSession = std::make_unique<Session>(
        mOptions, "vectors", *mClip, std::vector<FrameSink*>(), mWarmUp,
        [&simulator] { return simulator.serviceDied(); }, nullptr);
    const SessionStats stats = mSession->run();
    if (!stats.failure.empty()) throw SessionFailed("--vectors: " + stats.failure);
    draw();
}

void VectorPicture::skipTo(uint64_t frame) {
    Image skipped(mClip->size());
    for (uint64_t i = 0; i < frame; ++i) {
        if (!mClip->next(skipped.pixels.data(), skipped.stride())) return;
    }
}

// The field from the first frame to the second is dumped with the second.
void VectorPicture::draw() const {
    std::optional<Image> frame = readPng(mFolder.path / "00000_Game_Source.png");
    const std::optional<Image> field = readPng(mFolder.path / "00001_FW_MV.png");
    const auto number = static_cast<unsigned long long>(mFrame);
    if (!frame || !field || field->size.width < frame->size.width ||
        field->size.height < frame->size.height) {
        throw SessionFailed(
            format("--vectors: there are none from frame %llu to the next", number));
    }
    layOver(frame->surface(), *field);
    Image page({frame->size.width, frame->size.height + kTitleRoom});
    fill(page.surface(), {0, 0, static_cast<int32_t>(page.size.width), kTitleRoom}, kGround);
    drawText(page.surface(), kTitleRoom / 2, (kTitleRoom - textHeight(kTitleDot)) / 2, kTitleDot,
             format("FRAME %llu > %llu:  HUE IS DIRECTION, BRIGHTNESS LENGTH, GREY AT REST", number,
                    number + 1),
             kInk);
    paste(page.surface(), 0, kTitleRoom, *frame);
    if (!writePng(page, mOptions.vectors)) throw SessionFailed("cannot write " + mOptions.vectors);
}

}  // namespace qozplay
