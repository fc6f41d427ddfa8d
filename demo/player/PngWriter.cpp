// SPDX-License-Identifier: Apache-2.0
#include "PngWriter.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace player {
namespace {

struct Free {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

Owned<AVFrame> toRgb(const uint8_t* y, const uint8_t* uv, int width, int height, int stride) {
    Owned<AVFrame> rgb(av_frame_alloc());
    if (rgb == nullptr) {
        return nullptr;
    }
    rgb->format = AV_PIX_FMT_RGB24;
    rgb->width = width;
    rgb->height = height;
    const Owned<SwsContext> converter(sws_getContext(width, height, AV_PIX_FMT_NV12, width, height,
                                                     AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr,
                                                     nullptr, nullptr));
    if (converter == nullptr || av_frame_get_buffer(rgb.get(), 0) < 0) {
        return nullptr;
    }
    const std::array<const uint8_t*, 4> planes = {y, uv, nullptr, nullptr};
    const std::array<int, 4> strides = {stride, stride, 0, 0};
    const int rows = sws_scale(converter.get(), planes.data(), strides.data(), 0, height, rgb->data,
                               rgb->linesize);
    return rows == height ? std::move(rgb) : nullptr;
}

Owned<AVPacket> encode(const AVFrame& rgb) {
    const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_PNG);
    const Owned<AVCodecContext> codec(avcodec_alloc_context3(encoder));
    Owned<AVPacket> packet(av_packet_alloc());
    if (encoder == nullptr || codec == nullptr || packet == nullptr) {
        return nullptr;
    }
    codec->width = rgb.width;
    codec->height = rgb.height;
    codec->pix_fmt = AV_PIX_FMT_RGB24;
    codec->time_base = {1, 1};
    const bool isEncoded = avcodec_open2(codec.get(), encoder, nullptr) >= 0 &&
                           avcodec_send_frame(codec.get(), &rgb) >= 0 &&
                           avcodec_receive_packet(codec.get(), packet.get()) >= 0;
    return isEncoded ? std::move(packet) : nullptr;
}

}  // namespace

std::string writePng(const std::string& path, const uint8_t* y, const uint8_t* uv, int width,
                     int height, int stride) {
    const Owned<AVFrame> rgb = toRgb(y, uv, width, height, stride);
    const Owned<AVPacket> packet = rgb != nullptr ? encode(*rgb) : nullptr;
    if (packet == nullptr) {
        return "the picture cannot be encoded";
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(packet->data), packet->size);
    file.close();
    if (!file) {
        const std::string reason = std::strerror(errno);
        std::remove(path.c_str());
        return "'" + path + "' cannot be written: " + reason;
    }
    return std::string();
}

}  // namespace player
