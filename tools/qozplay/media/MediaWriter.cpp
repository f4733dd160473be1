// SPDX-License-Identifier: Apache-2.0
#include "qozplay/media/MediaWriter.h"

#include <strings.h>

#include <array>
#include <filesystem>
#include <new>

namespace qozplay {
namespace {

using Container = MediaWriter::Container;

constexpr AVRational kMicroseconds{1, 1'000'000};

// FFV1 is lossless, so .mkv suits further processing. Nearly every player supports H.264.
constexpr std::array<Container, 5> kContainers{{
    {".y4m", "yuv4mpegpipe", AV_CODEC_ID_WRAPPED_AVFRAME, false},
    {".mkv", "matroska", AV_CODEC_ID_FFV1, true},
    {".mp4", "mp4", AV_CODEC_ID_H264, true},
    {".m4v", "mp4", AV_CODEC_ID_H264, true},
    {".mov", "mov", AV_CODEC_ID_H264, true},
}};

// Chooses the container by the ending of the path. Throws BadInput for an unknown ending.
const Container& containerOf(const std::string& path) {
    const std::string ending = std::filesystem::path(path).extension();
    if (ending.empty()) return kContainers[0];  // for a pipe or a device
    std::string all;
    for (const Container& one : kContainers) {
        if (strcasecmp(ending.c_str(), one.ending) == 0) return one;
        all += format(" %s", one.ending);
    }
    throw BadInput(path + ": the ending is none of" + all);
}

// The encoder supports subsampled chroma only for even sizes.
AVPixelFormat pixelFormat(const Container& container, Size size) {
    const bool odd = (size.width | size.height) % 2 != 0;
    return container.codec == AV_CODEC_ID_H264 && odd ? AV_PIX_FMT_YUV444P : AV_PIX_FMT_YUV420P;
}

}  // namespace

MediaWriter::MediaWriter(const std::string& path, const ClipInfo& info, AudioTracks* audio,
                         const StopRequest& stop)
    : mKind(containerOf(path)),
      mFile(path),
      mInfo(info),
      mAudio(audio),
      mIo(mFile.descriptor(), MediaIo::Direction::Write, stop),
      mFrame(owned(av_frame_alloc())),
      mPacket(owned(av_packet_alloc())) {}

// Starts the clip. This needs the first frame, whose size and matrix are not known earlier.
void MediaWriter::open(const FinishedFrame& first) {
    AVFormatContext* muxer = nullptr;
    if (avformat_alloc_output_context2(&muxer, nullptr, mKind.muxer, nullptr) < 0) {
        throw std::bad_alloc();
    }
    mMuxer.reset(muxer);
    mMuxer->pb = mIo.context();
    mMuxer->flags |= AVFMT_FLAG_CUSTOM_IO;
    openEncoder(first);
    addAudio();
    const int error = avformat_write_header(mMuxer.get(), nullptr);
    if (error < 0) failed(error);
}

// Opens the encoder with the size and the matrix of the first frame and the other properties of the
// clip, and adds the video stream.
void MediaWriter::openEncoder(const FinishedFrame& first) {
    const AVCodec* codec = avcodec_find_encoder(mKind.codec);
    if (codec == nullptr) {
        throw SessionFailed(mFile.name() + ": there is no encoder for " +
                            avcodec_get_name(mKind.codec));
    }
    mEncoder = owned(avcodec_alloc_context3(codec));
    AVCodecContext& to = *mEncoder;
    to.width = static_cast<int>(first.picture.size.width);
    to.height = static_cast<int>(first.picture.size.height);
    to.pix_fmt = pixelFormat(mKind, first.picture.size);
    to.sample_aspect_ratio = mInfo.sampleAspect;
    to.color_range = AVCOL_RANGE_MPEG;
    to.colorspace = first.matrix;
    to.color_primaries = mInfo.primaries;
    to.color_trc = mInfo.transfer;
    to.chroma_sample_location = AVCHROMA_LOC_CENTER;
    to.framerate = mInfo.rate;
    to.time_base = mKind.keepsTimes ? kMicroseconds : av_inv_q(to.framerate);
    if ((mMuxer->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        to.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    const int error = avcodec_open2(&to, codec, nullptr);
    if (error < 0) throw SessionFailed("cannot write " + mFile.name() + ": " + avText(error));
    AVStream* stream = avformat_new_stream(mMuxer.get(), nullptr);
    if (stream == nullptr) throw std::bad_alloc();
    avcodec_parameters_from_context(stream->codecpar, &to);
    stream->time_base = to.time_base;
    stream->avg_frame_rate = to.framerate;
    stream->sample_aspect_ratio = mInfo.sampleAspect;
}

// Adds a stream for each audio track that the container can store. The packets are copied without
// being decoded.
void MediaWriter::addAudio() {
    if (mAudio == nullptr) return;
    for (const AudioTracks::Track& track : mAudio->tracks) {
        const AVCodecID codec = track.parameters->codec_id;
        if (!mKind.keepsTimes || avformat_query_codec(mMuxer->oformat, codec, 0) != 1) {
            mLeftOut.emplace_back(avcodec_get_name(codec));
            mStreamOfTrack.push_back(-1);
            continue;
        }
        AVStream* stream = avformat_new_stream(mMuxer.get(), nullptr);
        if (stream == nullptr) throw std::bad_alloc();
        avcodec_parameters_copy(stream->codecpar, track.parameters.get());
        stream->codecpar->codec_tag = 0;  // the tag of the input may not suit this container
        stream->time_base = track.timeBase;
        mStreamOfTrack.push_back(stream->index);
    }
}

// Converts the frame to the clip's pixel format and size, in mFrame.
void MediaWriter::convert(const FinishedFrame& frame) {
    const Nv12View& view = frame.picture;
    const auto width = static_cast<int>(view.size.width);
    const auto height = static_cast<int>(view.size.height);
    if (mFrame->data[0] == nullptr) {
        mFrame->format = mEncoder->pix_fmt;
        mFrame->width = mEncoder->width;
        mFrame->height = mEncoder->height;
        mFrame->sample_aspect_ratio = mInfo.sampleAspect;
        mFrame->color_range = mEncoder->color_range;
        mFrame->colorspace = mEncoder->colorspace;
        if (av_frame_get_buffer(mFrame.get(), 0) < 0) throw std::bad_alloc();
    }
    if (av_frame_make_writable(mFrame.get()) < 0) throw std::bad_alloc();
    mScaler.reset(sws_getCachedContext(mScaler.release(), width, height, AV_PIX_FMT_NV12,
                                       mEncoder->width, mEncoder->height, mEncoder->pix_fmt,
                                       SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (mScaler == nullptr) throw std::bad_alloc();
    const uint8_t* const planes[4] = {view.luma, view.chroma};
    const int strides[4] = {view.stride, view.stride};
    sws_scale(mScaler.get(), planes, strides, 0, height, mFrame->data, mFrame->linesize);
    if (width != mEncoder->width || height != mEncoder->height) ++mScaledFrames;
}

bool MediaWriter::take(const FinishedFrame& frame) {
    if (mReaderGone) return false;
    if (mMuxer == nullptr) open(frame);
    convert(frame);
    mFrame->pts = static_cast<int64_t>(mKind.keepsTimes ? frame.timestamp : mFrames);
    if (!mReaderGone) ++mFrames;
    return encode(mFrame.get()) && writeAudio();
}

// Encodes a frame and writes the resulting packets; a null frame makes the encoder output all
// frames that it still holds. Returns false if the reader is gone.
bool MediaWriter::encode(const AVFrame* frame) {
    if (mReaderGone) return false;
    const int sent = avcodec_send_frame(mEncoder.get(), frame);
    if (sent < 0) throw SessionFailed("cannot write " + mFile.name() + ": " + avText(sent));
    while (avcodec_receive_packet(mEncoder.get(), mPacket.get()) == 0) {
        mPacket->stream_index = 0;
        av_packet_rescale_ts(mPacket.get(), mEncoder->time_base, mMuxer->streams[0]->time_base);
        if (!write(mPacket.get())) return false;
    }
    return true;
}

// Writes all audio packets that have been read so far. Returns false if the reader is gone.
bool MediaWriter::writeAudio() {
    if (mAudio == nullptr) return true;
    for (auto& packets = mAudio->packets; !packets.empty(); packets.pop_front()) {
        AVPacket& packet = *packets.front().data;
        const size_t track = packets.front().track;
        if (mStreamOfTrack[track] < 0) continue;
        packet.stream_index = mStreamOfTrack[track];
        av_packet_rescale_ts(&packet, mAudio->tracks[track].timeBase,
                             mMuxer->streams[packet.stream_index]->time_base);
        packet.pos = -1;
        if (!write(&packet)) return false;
    }
    return true;
}

bool MediaWriter::write(AVPacket* packet) {
    const int error = av_interleaved_write_frame(mMuxer.get(), packet);
    if (error < 0) return failed(error);
    return mIo.context()->error >= 0 || failed(mIo.context()->error);
}

// Handles a write error. It is no failure if the reader has closed the pipe, or if a stop request
// ended a wait for it: then nothing more is written, and the function returns false. For any other
// error it throws SessionFailed.
bool MediaWriter::failed(int error) {
    if (error != AVERROR(EPIPE) && error != AVERROR_EXIT) {
        mFailed = true;
        throw SessionFailed("cannot write " + mFile.name() + ": " + avText(error));
    }
    mReaderGone = true;
    return false;
}

void MediaWriter::finish() {
    if (mMuxer == nullptr || mFailed) return;
    if (!mReaderGone && encode(nullptr) && writeAudio()) {
        const int error = av_write_trailer(mMuxer.get());
        avio_flush(mIo.context());
        if (error < 0 || mIo.context()->error < 0) {
            failed(error < 0 ? error : mIo.context()->error);
        }
    }
    mFile.commit();
}

}  // namespace qozplay
