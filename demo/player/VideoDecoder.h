// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "FramePool.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwsContext;

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
    ~VideoDecoder();
    VideoDecoder(const VideoDecoder&) = delete;
    VideoDecoder& operator=(const VideoDecoder&) = delete;

    /** The nominal rate in frames per second; 25 when the file does not tell. */
    double frameRate() const { return mFrameRate; }

    /** Decodes the next picture; false at the end. Damaged packets are skipped, as players do. */
    bool next();

    /** Size of the picture in pixels. It can change from picture to picture. */
    int width() const;
    int height() const;

    /** Converts the picture into a frame of its size. Throws VideoError if that is impossible. */
    void convertTo(Frame& frame);

    /** Starts again from the first picture; false when the file cannot be rewound. */
    bool rewind();

private:
    void openCodec();
    bool decode();
    bool sendPacket();

    struct Close {
        void operator()(AVFormatContext* context) const;
        void operator()(AVCodecContext* context) const;
        void operator()(AVFrame* frame) const;
        void operator()(AVPacket* packet) const;
        void operator()(SwsContext* context) const;
    };

    const std::string mPath;
    std::unique_ptr<AVFormatContext, Close> mFormat;
    std::unique_ptr<AVCodecContext, Close> mCodec;
    std::unique_ptr<AVFrame, Close> mPicture;
    std::unique_ptr<AVPacket, Close> mPacket;
    std::unique_ptr<SwsContext, Close> mConverter;
    AVStream* mStream = nullptr;  // owned by the format context
    double mFrameRate = 0;
    bool mIsDrained = false;
    bool mHasFirst = false;  // the first picture is decoded and not yet asked for
};

}  // namespace player
