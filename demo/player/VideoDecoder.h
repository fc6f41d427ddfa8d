// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "FramePool.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace player {

/** A video that cannot be played. The text names the file and says why. */
class VideoError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Decodes the pictures of a video file of any format to NV12. For one thread. */
class VideoDecoder {
public:
    /** Throws VideoError when the file cannot be opened or holds no picture that can be decoded. */
    explicit VideoDecoder(const std::string& path);
    VideoDecoder(const VideoDecoder&) = delete;
    VideoDecoder& operator=(const VideoDecoder&) = delete;

    /** The nominal rate in frames per second; 25 when the file does not tell. */
    double frameRate() const { return mFrameRate; }

    /** Decodes the next picture; false at the end. Damaged packets are skipped, as players do. */
    bool next();

    /** Size of the picture in pixels. It can change from picture to picture. */
    int width() const { return mPicture->width; }
    int height() const { return mPicture->height; }

    /** Converts the picture into a frame of its size. Throws VideoError if that is impossible. */
    void convertTo(Frame& frame);

    /**
     * Whether the file was found to end before its time: within a picture, with an error, or more
     * than a second before the length that it states. Not every format tells. Set at the end.
     */
    bool isTruncated() const { return mIsTruncated; }

    /** Starts again from the first picture; false when the file cannot be rewound. */
    bool rewind();

private:
    void openCodec();
    bool decode();
    bool sendPacket();
    void notePacket();
    void noteEnd(int status);

    struct Close {
        void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
        void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
        void operator()(AVFrame* frame) const { av_frame_free(&frame); }
        void operator()(AVPacket* packet) const { av_packet_free(&packet); }
        void operator()(SwsContext* context) const { sws_freeContext(context); }
    };

    const std::string mPath;
    std::unique_ptr<AVFormatContext, Close> mFormat;
    std::unique_ptr<AVCodecContext, Close> mCodec;
    std::unique_ptr<AVFrame, Close> mPicture;
    std::unique_ptr<AVPacket, Close> mPacket;
    std::unique_ptr<SwsContext, Close> mConverter;
    AVStream* mStream = nullptr; /**< Owned by the format context. */
    double mFrameRate = 0;
    double mLastSecond = 0;        /**< End of the latest packet of any stream. */
    bool mIsPacketComplete = true; /**< Whether the last one of the video is. */
    bool mIsTruncated = false;
    bool mIsDrained = false;
    bool mHasFirst = false; /**< The first picture is decoded and not yet asked for. */
};

}  // namespace player
