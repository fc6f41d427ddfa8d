// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

/** The records of video enhancement that clients fill. */
namespace Aisr {

/**
 * One decoded video frame, as a media client offers it for enhancement.
 *
 * The caller owns the planes. They must stay allocated, and unread, for the whole call that takes
 * this record; and when that call gave up waiting for the frame (it expired), until a later frame
 * has completed, or else until the process has ended, because the processing library may still be
 * writing them. The pixel format and the unit of the stride are agreed between the client and the
 * processing library; this library only forwards the addresses.
 *
 * The layout is fixed: clients and this library are built apart.
 */
struct BufferInfo {
    uint64_t id;   /**< Identifier of the stream the frame belongs to; never 0 in a valid record. */
    void* y;       /**< Luma plane. */
    void* uv;      /**< Chroma plane. */
    int32_t width; /**< Pixels, at least 1. */
    int32_t height; /**< Rows, at least 1. */
    int32_t stride; /**< Row stride of the planes, at least 1. */
    uint64_t idx;   /**< Index of the frame within its stream; written by the engine. */
};

static_assert(sizeof(BufferInfo) == 48 && alignof(BufferInfo) == 8);
static_assert(offsetof(BufferInfo, id) == 0);
static_assert(offsetof(BufferInfo, y) == 8);
static_assert(offsetof(BufferInfo, uv) == 16);
static_assert(offsetof(BufferInfo, width) == 24);
static_assert(offsetof(BufferInfo, height) == 28);
static_assert(offsetof(BufferInfo, stride) == 32);
static_assert(offsetof(BufferInfo, idx) == 40);

}  // namespace Aisr
