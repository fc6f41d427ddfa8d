// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

/**
 * @file
 * The records, parameter tags and status codes shared with the processing library. That library is
 * built apart, so every layout and every number here is fixed.
 */

/** One frame, in the processing library's order. The planes belong to the media client. */
struct AisrBuffer {
    uint64_t id;       /**< Identifier of the stream the frame belongs to. */
    uint64_t idx;      /**< Index of the frame within its stream. */
    int32_t width;     /**< Pixels. */
    int32_t height;    /**< Rows. */
    int32_t stride;    /**< Row stride of the planes. */
    uint32_t reserved; /**< Always 0. */
    void* y;           /**< Luma plane. */
    void* uv;          /**< Chroma plane. */
};

static_assert(sizeof(AisrBuffer) == 48 && alignof(AisrBuffer) == 8);
static_assert(offsetof(AisrBuffer, id) == 0);
static_assert(offsetof(AisrBuffer, idx) == 8);
static_assert(offsetof(AisrBuffer, width) == 16);
static_assert(offsetof(AisrBuffer, height) == 20);
static_assert(offsetof(AisrBuffer, stride) == 24);
static_assert(offsetof(AisrBuffer, reserved) == 28);
static_assert(offsetof(AisrBuffer, y) == 32);
static_assert(offsetof(AisrBuffer, uv) == 40);

/**
 * Links of the buffer list: the header is a node without an element, and the list is circular
 * through it. In the header `prev` is the last node and `next` the first.
 */
struct AisrBufferLinks {
    AisrBufferLinks* prev; /**< The node before; from the first one, the header. */
    AisrBufferLinks* next; /**< The node behind; from the last one, the header. */
};

/**
 * Header of a list of frames. It has the layout of the linked list of the device's C++ runtime,
 * which the processing library takes it for. The list is spelled out because other runtimes order
 * the header the other way round.
 */
struct AisrBufferList {
    AisrBufferLinks ends; /**< Last node, then first node; the header itself when empty. */
    uint64_t count;       /**< Number of nodes. */
};

/** A node of the list. */
struct AisrBufferNode {
    AisrBufferLinks links; /**< Its place in the list. */
    AisrBuffer buffer;     /**< The element. */
};

static_assert(sizeof(AisrBufferList) == 24 && sizeof(AisrBufferNode) == 64);
static_assert(offsetof(AisrBufferLinks, prev) == 0);
static_assert(offsetof(AisrBufferLinks, next) == 8);
static_assert(offsetof(AisrBufferList, ends) == 0);
static_assert(offsetof(AisrBufferList, count) == 16);
static_assert(offsetof(AisrBufferNode, links) == 0);
static_assert(offsetof(AisrBufferNode, buffer) == 16);

/** Second argument of the set-parameter entry: what the data is. */
enum AisrTag : int32_t {
    AISR_TAG_NEW_MEM = 0,
    AISR_TAG_DEL_MEM = 1,
    AISR_TAG_SET_BUF = 2,     /**< AisrBufferList of the frames that the next process call takes. */
    AISR_TAG_SET_TIMEOUT = 3, /**< AisrBuffer of a frame to abandon; may come during processing. */
    AISR_TAG_SET_LOG_LEVEL = 4, /**< int32: 3 when the product is debugged, else 1. */
    AISR_TAG_NUM = 5,
};

/** Result of every entry point; any value but AISR_SUCCESS is a failure. */
enum AisrStatus : int32_t {
    AISR_SUCCESS = 0,
    AISR_ERR_FATAL = 1,
    AISR_ERR_BUF_COPY = 2,
    AISR_ERR_TIMEOUT = 3,
};
