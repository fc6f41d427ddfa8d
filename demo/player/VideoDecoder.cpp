// SPDX-License-Identifier: Apache-2.0
#include "VideoDecoder.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace player {
namespace {

constexpr double kDefaultRate = 25;
constexpr double kHighestRate = 1000;

std::string errorText(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(error, text.data(), text.size());
    return text.data();
}

}  // namespace

VideoDecoder::VideoDecoder(const std::string& path)
    : mPath(path), mPicture(av_frame_alloc()), mPacket(av_packet_alloc()) {
    if (mPicture == nullptr || mPacket == nullptr) {
        throw std::bad_alloc();
    }
    AVFormatContext* format = nullptr;
    // The file protocol, so that a name with a colon in it is not taken for a network address.
    const int opened = avformat_open_input(&format, ("file:" + path).c_str(), nullptr, nullptr);
    if (opened < 0) {
        throw VideoError("cannot open '" + path + "': " + errorText(opened));
    }
    mFormat.reset(format);
    const int probed = avformat_find_stream_info(format, nullptr);
    if (probed < 0) {
        throw VideoError("cannot read '" + path + "': " + errorText(probed));
    }
    openCodec();
    const double rate = av_q2d(av_guess_frame_rate(mFormat.get(), mStream, nullptr));
    mFrameRate = std::isfinite(rate) && rate > 0 && rate <= kHighestRate ? rate : kDefaultRate;
    mHasFirst = decode();
    if (!mHasFirst) {
        throw VideoError("no picture can be decoded from '" + path + "'");
    }
}

void VideoDecoder::openCodec() {
    const AVCodec* decoder = nullptr;
    const int index = av_find_best_stream(mFormat.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (index < 0) {
        throw VideoError("no video that can be decoded in '" + mPath + "'");
    }
    mStream = mFormat->streams[index];
    mCodec.reset(avcodec_alloc_context3(decoder));
    if (mCodec == nullptr) {
        throw std::bad_alloc();
    }
    mCodec->thread_count = 0;  // as many as the machine has
    mCodec->pkt_timebase = mStream->time_base;
    int status = avcodec_parameters_to_context(mCodec.get(), mStream->codecpar);
    if (status >= 0) {
        status = avcodec_open2(mCodec.get(), decoder, nullptr);
    }
    if (status < 0) {
        throw VideoError("cannot decode '" + mPath + "': " + errorText(status));
    }
}

bool VideoDecoder::next() {
    if (mHasFirst) {
        mHasFirst = false;
        return true;
    }
    return decode();
}

bool VideoDecoder::decode() {
    for (;;) {
        const int status = avcodec_receive_frame(mCodec.get(), mPicture.get());
        if (status == 0) {
            return true;
        }
        const bool wantsInput = status != AVERROR_EOF && !mIsDrained;
        if (!wantsInput || !sendPacket()) {
            return false;
        }
    }
}

/** Feeds the decoder one packet of the stream, or the end of it; false when it takes neither. */
bool VideoDecoder::sendPacket() {
    int read = 0;
    while ((read = av_read_frame(mFormat.get(), mPacket.get())) >= 0) {
        notePacket();
        const bool isOurs = mPacket->stream_index == mStream->index;
        const int status = isOurs ? avcodec_send_packet(mCodec.get(), mPacket.get()) : 0;
        av_packet_unref(mPacket.get());
        if (isOurs && status >= 0) {
            return true;
        }
    }
    noteEnd(read);
    mIsDrained = true;
    return avcodec_send_packet(mCodec.get(), nullptr) >= 0;
}

void VideoDecoder::notePacket() {
    const AVStream& stream = *mFormat->streams[mPacket->stream_index];
    if (mPacket->pts != AV_NOPTS_VALUE) {
        const auto end = static_cast<double>(mPacket->pts + mPacket->duration);
        mLastSecond = std::max(mLastSecond, end * av_q2d(stream.time_base));
    }
    if (&stream == mStream) {
        mIsPacketComplete = (mPacket->flags & AV_PKT_FLAG_CORRUPT) == 0;
    }
}

void VideoDecoder::noteEnd(int status) {
    // A length that was not stated but estimated from the bit rate proves nothing.
    const bool isStated = mFormat->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
    const double missing = static_cast<double>(mFormat->duration) / AV_TIME_BASE - mLastSecond;
    mIsTruncated = mIsTruncated || status != AVERROR_EOF || !mIsPacketComplete ||
                   (isStated && missing > 1 + 1 / mFrameRate);
}

void VideoDecoder::convertTo(Frame& frame) {
    const AVFrame& picture = *mPicture;
    mConverter.reset(sws_getCachedContext(mConverter.release(), picture.width, picture.height,
                                          static_cast<AVPixelFormat>(picture.format), frame.width(),
                                          frame.height(), AV_PIX_FMT_NV12, SWS_BILINEAR, nullptr,
                                          nullptr, nullptr));
    if (mConverter == nullptr) {
        throw VideoError("cannot convert the pictures of '" + mPath + "'");
    }
    const std::array<uint8_t*, 4> planes = {frame.y(), frame.uv(), nullptr, nullptr};
    const std::array<int, 4> strides = {frame.stride(), frame.stride(), 0, 0};
    const int rows = sws_scale(mConverter.get(), picture.data, picture.linesize, 0, picture.height,
                               planes.data(), strides.data());
    if (rows != frame.height()) {
        throw VideoError("cannot convert the pictures of '" + mPath + "'");
    }
}

bool VideoDecoder::rewind() {
    if (avformat_seek_file(mFormat.get(), mStream->index, INT64_MIN, 0, 0, AVSEEK_FLAG_BACKWARD) <
            0 &&
        av_seek_frame(mFormat.get(), mStream->index, 0, AVSEEK_FLAG_BYTE) < 0) {
        return false;
    }
    avcodec_flush_buffers(mCodec.get());
    mIsDrained = false;
    return true;
}

}  // namespace player
