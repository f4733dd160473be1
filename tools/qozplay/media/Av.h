// SPDX-License-Identifier: Apache-2.0
// Smart pointers for the objects of libavformat, libavcodec and libswscale, and the text of their
// errors.
#pragma once

#include "qozplay/media/Types.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <memory>
#include <string>

namespace qozplay {

// The deleter of AvPtr.
struct AvFree {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

template <typename Type>
using AvPtr = std::unique_ptr<Type, AvFree>;

inline std::string avText(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(error, text.data(), text.size());
    return text.data();
}

// Takes ownership of a new object. These libraries return null on allocation failure, for which
// this function throws std::bad_alloc.
template <typename Type>
AvPtr<Type> owned(Type* pointer) {
    if (pointer == nullptr) throw std::bad_alloc();
    return AvPtr<Type>(pointer);
}

}  // namespace qozplay
