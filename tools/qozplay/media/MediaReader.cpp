// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/MediaReader.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <utility>

#include "qozplay/media/YuvToRgba.h"

namespace qozplay {
namespace {

constexpr AVRational kNanoseconds{1, 1'000'000'000};
constexpr AVRational kMicroseconds{1, 1'000'000};

constexpr int kVector = 16;  // greatest number of pixels that the scaler writes at once

// These flags keep the error within one level, at ten times the cost of the default. The common
// pixel format does not use the scaler; see convertExactly().
constexpr int kScalerFlags = SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT;

// The "yuvj" formats are full range even if the frame does not say so.
bool isFullRange(const AVFrame& frame) {
    const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame.format));
    return frame.color_range == AVCOL_RANGE_JPEG ||
           (name != nullptr && std::strncmp(name, "yuvj", 4) == 0);
}

}  // namespace

MediaReader::MediaReader(const std::string& path, std::optional<Size> rawSize, AVRational rawRate,
                         const StopRequest& stop)
    : mName(path == "-" ? "standard input" : path),
      mStop(stop),
      mFrame(owned(av_frame_alloc())),
      mConverted(owned(av_frame_alloc())) {
    openFile(path);
    openContainer(rawSize, rawRate);
    chooseStreams();
    refuseRotation();
    openDecoder();
    describe();
}

// Opens the file, or duplicates the descriptor of standard input. Throws BadInput.
void MediaReader::openFile(const std::string& path) {
    mFile.set(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                          : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (mFile.get() < 0) throw BadInput("cannot read " + mName + ": " + std::strerror(errno));
    struct stat info {};
    if (fstat(mFile.get(), &info) == 0 && S_ISDIR(info.st_mode)) {
        throw BadInput("cannot read " + mName + ": it is a directory");
    }
    if (S_ISREG(info.st_mode) && info.st_size == 0) throw BadInput(mName + " is empty");
    mIo.emplace(mFile.get(), MediaIo::Direction::Read, mStop);
}

// Recognises the container and reads its properties. Raw input has no header, so its size, format
// and rate are passed to libavformat.
void MediaReader::openContainer(std::optional<Size> rawSize, AVRational rawRate) {
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) throw std::bad_alloc();
    context->pb = mIo->context();
    AVDictionary* options = nullptr;
    if (rawSize) {
        av_dict_set(&options, "video_size", toText(*rawSize).c_str(), 0);
        av_dict_set(&options, "pixel_format", "rgba", 0);
        av_dict_set(&options, "framerate", format("%d/%d", rawRate.num, rawRate.den).c_str(), 0);
    }
    const AVInputFormat* input = rawSize ? av_find_input_format("rawvideo") : nullptr;
    const int error = avformat_open_input(&context, mName.c_str(), input, &options);
    av_dict_free(&options);
    mContainer.reset(context);  // after an error, avformat_open_input() has set it to null
    if (error < 0)
        throw BadInput("cannot read " + mName + ": it is not a clip (" + avText(error) + ")");
    const int found = avformat_find_stream_info(context, nullptr);
    if (found < 0) throw BadInput("cannot read " + mName + ": " + avText(found));
}

// Chooses the best video stream, takes all audio streams, and discards the packets of the others.
void MediaReader::chooseStreams() {
    const int best = av_find_best_stream(mContainer.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (best < 0) throw BadInput(mName + " has no video in it");
    mVideo = static_cast<size_t>(best);
    mStart = mContainer->start_time != AV_NOPTS_VALUE ? mContainer->start_time : 0;
    mTrackOfStream.assign(mContainer->nb_streams, -1);
    for (size_t i = 0; i < mContainer->nb_streams; ++i) {
        AVStream& one = *mContainer->streams[i];
        if (one.codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            mTrackOfStream[i] = static_cast<int>(mAudio.tracks.size());
            mAudio.tracks.push_back({owned(avcodec_parameters_alloc()), one.time_base});
            avcodec_parameters_copy(mAudio.tracks.back().parameters.get(), one.codecpar);
        } else if (i != mVideo) {
            one.discard = AVDISCARD_ALL;
        }
    }
}

// Throws BadInput for a clip that players are to show rotated, because its frames are processed
// without rotation.
void MediaReader::refuseRotation() const {
    const auto* matrix = reinterpret_cast<const int32_t*>(
        av_stream_get_side_data(&stream(), AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    if (matrix == nullptr) return;
    const double angle = av_display_rotation_get(matrix);
    if (std::isnan(angle) || std::abs(angle) < 1) return;
    throw BadInput(
        format("%s is to be shown turned by %.0f degrees, which is not done here; "
               "turn its frames first, as ffmpeg -i IN OUT does",
               mName.c_str(), std::abs(angle)));
}

// Opens the decoder for the video stream. Throws BadInput if there is none.
void MediaReader::openDecoder() {
    const AVCodecParameters& parameters = *stream().codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
    if (codec == nullptr) {
        throw BadInput(mName + ": there is no decoder for " +
                       avcodec_get_name(parameters.codec_id));
    }
    mDecoder = owned(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(mDecoder.get(), &parameters);
    mDecoder->pkt_timebase = stream().time_base;
    const int error = avcodec_open2(mDecoder.get(), codec, nullptr);
    if (error < 0) throw BadInput(mName + ": " + avText(error));
}

// Fills in the properties of the clip. Throws BadInput if its size cannot be used.
void MediaReader::describe() {
    const AVCodecParameters& parameters = *stream().codecpar;
    if (parameters.width <= 0 || parameters.height <= 0) {
        throw BadInput(mName + ": a size of 0 holds no picture");
    }
    mInfo.size = {static_cast<uint32_t>(parameters.width),
                  static_cast<uint32_t>(parameters.height)};
    if (std::max(mInfo.size.width, mInfo.size.height) > kMaxSide) {
        throw BadInput(format("%s: a side is more than %u", mName.c_str(), kMaxSide));
    }
    AVStream* video = mContainer->streams[mVideo];
    const AVRational average = video->avg_frame_rate;
    const AVRational rate =
        average.num > 0 ? average : av_guess_frame_rate(mContainer.get(), video, nullptr);
    if (rate.num > 0 && rate.den > 0) mInfo.rate = rate;
    const AVRational aspect = av_guess_sample_aspect_ratio(mContainer.get(), video, nullptr);
    if (aspect.num > 0 && aspect.den > 0) mInfo.sampleAspect = aspect;
    mInfo.primaries = parameters.color_primaries;
    mInfo.transfer = parameters.color_trc;
    mInfo.length = length();
}

// Returns the number of frames, estimated from the duration if the container does not store it.
std::optional<uint64_t> MediaReader::length() const {
    if (mIo->context()->seekable == 0) return std::nullopt;
    if (stream().nb_frames > 0) return static_cast<uint64_t>(stream().nb_frames);
    if (mContainer->duration <= 0) return std::nullopt;
    return static_cast<uint64_t>(
        av_rescale_q(mContainer->duration, kMicroseconds, av_inv_q(mInfo.rate)));
}

std::optional<int64_t> MediaReader::next(uint8_t* rgba, size_t stride) {
    if (!decode()) {
        if (!mDamage.empty()) throw BadInput(mDamage);
        return std::nullopt;
    }
    advanceTime();
    convert(rgba, stride);
    ++mFrames;
    return mTime;
}

// Decodes the next frame into mFrame. Returns false at the end of the clip and after a stop
// request.
bool MediaReader::decode() {
    for (;;) {
        if (mStop.requested()) return false;
        const int got = avcodec_receive_frame(mDecoder.get(), mFrame.get());
        if (got == 0) return true;
        if (got == AVERROR_EOF) return false;
        if (got != AVERROR(EAGAIN)) damaged(got);
        feed();
    }
}

void MediaReader::damaged(int error) const {
    throw BadInput(format("%s: frame %llu is damaged: %s", mName.c_str(), big(mFrames),
                          avText(error).c_str()));
}

// Sends the next video packet to the decoder and keeps the audio packets that precede it. At the
// end of the clip, or at damage, tells the decoder that there are no more packets, so that it
// outputs the frames that it still holds.
void MediaReader::feed() {
    for (;;) {
        AvPtr<AVPacket> packet = owned(av_packet_alloc());
        const int got = av_read_frame(mContainer.get(), packet.get());
        if (got < 0 || (packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
            if (got >= 0 || (got != AVERROR_EOF && got != AVERROR_EXIT)) {
                mDamage = format("%s is damaged behind frame %llu: %s", mName.c_str(), big(mFrames),
                                 got < 0 ? avText(got).c_str() : "a frame is cut short");
            } else {
                checkWhole();
            }
            avcodec_send_packet(mDecoder.get(), nullptr);
            return;
        }
        if (packet->stream_index != static_cast<int>(mVideo)) {
            take(std::move(packet));
            continue;
        }
        mWholeUpTo = std::max(mWholeUpTo, packet->pos + packet->size);
        const int sent = avcodec_send_packet(mDecoder.get(), packet.get());
        if (sent == 0) return;
        damaged(sent);
    }
}

// Detects a y4m clip that ends within a frame. libavformat drops such a frame and reports the end
// of the clip without an error.
void MediaReader::checkWhole() {
    if (std::strcmp(mContainer->iformat->name, "yuv4mpegpipe") != 0) return;
    if (mStop.requested() || avio_tell(mIo->context()) == mWholeUpTo) return;
    mDamage = format("%s: frame %llu is cut short", mName.c_str(), big(mFrames));
}

// Adds an audio packet to its track, with times relative to the start of the clip.
void MediaReader::take(AvPtr<AVPacket> packet) {
    const auto index = static_cast<size_t>(packet->stream_index);
    if (index >= mTrackOfStream.size() || mTrackOfStream[index] < 0) return;
    const auto track = static_cast<size_t>(mTrackOfStream[index]);
    const int64_t start = av_rescale_q(mStart, kMicroseconds, mAudio.tracks[track].timeBase);
    if (packet->pts != AV_NOPTS_VALUE) packet->pts -= start;
    if (packet->dts != AV_NOPTS_VALUE) packet->dts -= start;
    mAudio.packets.push_back({track, std::move(packet)});
}

// Sets the presentation time of the decoded frame. A frame follows the previous one at the clip's
// rate if it has no time, or if its time in whole microseconds is not later.
void MediaReader::advanceTime() {
    int64_t own = -1;
    if (mFrame->best_effort_timestamp != AV_NOPTS_VALUE) {
        own = av_rescale_q(mFrame->best_effort_timestamp, stream().time_base, kNanoseconds) -
              av_rescale_q(mStart, kMicroseconds, kNanoseconds);
    }
    const bool first = mTime < 0;
    const int64_t next = first ? 0 : mTime + timestampOf(mInfo.rate, 1);
    mTime = own >= 0 && (first || own / 1000 > mTime / 1000) ? own : next;
}

AVColorSpace MediaReader::matrixOf(const AVFrame& frame) const {
    return frame.colorspace != AVCOL_SPC_UNSPECIFIED ? frame.colorspace : usualMatrix(mInfo.size);
}

// Converts a frame in planar YUV 4:2:0, by far the most common format, exactly and without the
// scaler. Returns false if the frame has another format or size.
bool MediaReader::convertExactly(uint8_t* rgba, size_t stride) const {
    const AVFrame& frame = *mFrame;
    const bool planar = frame.format == AV_PIX_FMT_YUV420P || frame.format == AV_PIX_FMT_YUVJ420P;
    const std::optional<YuvMatrix> matrix = yuvMatrix(matrixOf(frame), isFullRange(frame));
    const bool sized = frame.width == static_cast<int>(mInfo.size.width) &&
                       frame.height == static_cast<int>(mInfo.size.height);
    if (!planar || !sized || !matrix) return false;
    yuvToRgba(*matrix,
              {frame.data[0], frame.data[1], frame.data[2], frame.linesize[0], frame.linesize[1],
               frame.linesize[2]},
              rgba, stride, mInfo.size.width, mInfo.size.height);
    return true;
}

// Converts the decoded frame to RGBA of the clip's size. Size and format may change from frame to
// frame. The scaler writes whole vectors, beyond the end of a row, so it writes to a picture with
// longer rows, which is then copied.
void MediaReader::convert(uint8_t* rgba, size_t stride) {
    if (convertExactly(rgba, stride)) return;
    const auto format = static_cast<AVPixelFormat>(mFrame->format);
    const auto width = static_cast<int>(mInfo.size.width);
    const auto height = static_cast<int>(mInfo.size.height);
    mScaler.reset(sws_getCachedContext(mScaler.release(), mFrame->width, mFrame->height, format,
                                       width, height, AV_PIX_FMT_RGBA, kScalerFlags, nullptr,
                                       nullptr, nullptr));
    if (mScaler == nullptr) {
        const char* name = av_get_pix_fmt_name(format);
        throw BadInput(mName + ": no way from " + (name != nullptr ? name : "its pixels") +
                       " to RGB");
    }
    const int* matrix = sws_getCoefficients(matrixOf(*mFrame));
    sws_setColorspaceDetails(mScaler.get(), matrix, isFullRange(*mFrame) ? 1 : 0, matrix, 1, 0,
                             1 << 16, 1 << 16);
    if (mConverted->data[0] == nullptr) {
        mConverted->format = AV_PIX_FMT_RGBA;
        mConverted->width = width + kVector;
        mConverted->height = height;
        if (av_frame_get_buffer(mConverted.get(), 0) < 0) throw std::bad_alloc();
    }
    sws_scale(mScaler.get(), mFrame->data, mFrame->linesize, 0, mFrame->height, mConverted->data,
              mConverted->linesize);
    av_image_copy_plane(rgba, static_cast<int>(stride), mConverted->data[0],
                        mConverted->linesize[0], 4 * width, height);
}

}  // namespace qozplay
