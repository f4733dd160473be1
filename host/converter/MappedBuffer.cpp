// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <host/converter/MappedBuffer.h>
#include <ui/GraphicBufferMapper.h>

using android::GraphicBuffer;
using android::GraphicBufferMapper;
using android::sp;

namespace qoz::host {
namespace {

// Returns the reason why the buffer cannot be mapped, for the log; null if there is none.
const char* defectOf(const sp<GraphicBuffer>& buffer) {
    if (buffer == nullptr) return "is null";
    if (buffer->initCheck() != android::OK || buffer->handle == nullptr) return "has no memory";

    const size_t needed =
        pixelBytes(buffer->getWidth(), buffer->getHeight(), buffer->getPixelFormat());
    if (needed == 0) return "has no pixels or an unknown format";

    uint64_t held = 0;
    auto& mapper = GraphicBufferMapper::getInstance();
    if (mapper.getAllocationSize(buffer->handle, &held) != android::OK) return "has no known size";
    return held < needed ? "holds fewer bytes than its pixels need" : nullptr;
}

}  // namespace

Nv12Picture Nv12Picture::over(uint8_t* pixels, uint32_t width, uint32_t height) {
    const Nv12Layout layout = nv12Layout(width, height);
    return {pixels, pixels + layout.chromaOffset, static_cast<int>(layout.stride),
            static_cast<int>(width), static_cast<int>(height)};
}

std::optional<MappedBuffer> MappedBuffer::map(const sp<GraphicBuffer>& buffer,
                                              const char* operation, const char* role) {
    const char* defect = defectOf(buffer);
    void* pixels = nullptr;
    if (defect == nullptr &&
        (buffer->lock(GraphicBuffer::USAGE_SW_READ_OFTEN | GraphicBuffer::USAGE_SW_WRITE_OFTEN,
                      &pixels) != android::OK ||
         pixels == nullptr)) {
        defect = "cannot be locked";
    }
    if (defect != nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, "Rgb2Yuv", "%s: the %s buffer %s", operation, role,
                            defect);
        return std::nullopt;
    }
    return MappedBuffer(buffer, static_cast<uint8_t*>(pixels));
}

MappedBuffer::~MappedBuffer() {
    if (mPixels != nullptr) mBuffer->unlock();
}

}  // namespace qoz::host
