/* SPDX-License-Identifier: Apache-2.0 */
#pragma once

/**
 * @file
 * What the display engine client and the closed AI super-resolution library share: the six entry
 * points, the records that are handed over, the parameter tags and the status codes. The two are
 * built apart, so every layout and every number here is fixed.
 *
 * The header is for those who make such a library. It is valid C11 and C++17, and depends on
 * nothing of the client's. What each entry has to do is told by docs/processing-library.md.
 */

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/** One frame. The planes belong to the media client. */
typedef struct AisrBuffer {
    uint64_t id;       /**< Identifier of the stream the frame belongs to. */
    uint64_t idx;      /**< Index of the frame within its stream. */
    int32_t width;     /**< Pixels. */
    int32_t height;    /**< Rows. */
    int32_t stride;    /**< Row stride of the planes. */
    uint32_t reserved; /**< Always 0. */
    void* y;           /**< Luma plane. */
    void* uv;          /**< Chroma plane. */
} AisrBuffer;

static_assert(sizeof(AisrBuffer) == 48, "size of AisrBuffer");
static_assert(offsetof(AisrBuffer, id) == 0, "offset of id");
static_assert(offsetof(AisrBuffer, idx) == 8, "offset of idx");
static_assert(offsetof(AisrBuffer, width) == 16, "offset of width");
static_assert(offsetof(AisrBuffer, height) == 20, "offset of height");
static_assert(offsetof(AisrBuffer, stride) == 24, "offset of stride");
static_assert(offsetof(AisrBuffer, reserved) == 28, "offset of reserved");
static_assert(offsetof(AisrBuffer, y) == 32, "offset of y");
static_assert(offsetof(AisrBuffer, uv) == 40, "offset of uv");

/**
 * Links of the buffer list: the header is a node without an element, and the list is circular
 * through it. In the header `prev` is the last node and `next` the first.
 */
typedef struct AisrBufferLinks {
    struct AisrBufferLinks* prev; /**< The node before; from the first one, the header. */
    struct AisrBufferLinks* next; /**< The node behind; from the last one, the header. */
} AisrBufferLinks;

/**
 * Header of a list of frames. It has the layout of the linked list of the device's C++ runtime,
 * which the processing library takes it for. The list is spelled out because other runtimes order
 * the header the other way round.
 */
typedef struct AisrBufferList {
    AisrBufferLinks ends; /**< Last node, then first node; the header itself when empty. */
    uint64_t count;       /**< Number of nodes; this client always submits one. */
} AisrBufferList;

/** A node of the list. */
typedef struct AisrBufferNode {
    AisrBufferLinks links; /**< Its place in the list. */
    AisrBuffer buffer;     /**< The element. */
} AisrBufferNode;

static_assert(sizeof(AisrBufferList) == 24, "size of AisrBufferList");
static_assert(sizeof(AisrBufferNode) == 64, "size of AisrBufferNode");
static_assert(offsetof(AisrBufferLinks, prev) == 0, "offset of prev");
static_assert(offsetof(AisrBufferLinks, next) == 8, "offset of next");
static_assert(offsetof(AisrBufferList, ends) == 0, "offset of ends");
static_assert(offsetof(AisrBufferList, count) == 16, "offset of count");
static_assert(offsetof(AisrBufferNode, links) == 0, "offset of links");
static_assert(offsetof(AisrBufferNode, buffer) == 16, "offset of buffer");

/** Second argument of AisrSetParam: what the data is. */
enum AisrTag {
    AISR_TAG_NEW_MEM = 0,       /**< Never sent. */
    AISR_TAG_DEL_MEM = 1,       /**< Never sent. */
    AISR_TAG_SET_BUF = 2,       /**< AisrBufferList, 24: what the next AisrProcess takes. */
    AISR_TAG_SET_TIMEOUT = 3,   /**< AisrBuffer, 48: a frame to abandon; also during AisrProcess. */
    AISR_TAG_SET_LOG_LEVEL = 4, /**< int32_t, 4: 3 when the product is debugged, else 1. */
    AISR_TAG_NUM = 5            /**< The number of tags; never sent. */
};

/** Result of every entry; any value but AISR_SUCCESS is a failure. */
enum AisrStatus {
    AISR_SUCCESS = 0,
    AISR_ERR_FATAL = 1,
    AISR_ERR_BUF_COPY = 2,
    AISR_ERR_TIMEOUT = 3
};

/** Stands before each entry's definition, so that the library exports it. */
#define AISR_ENTRY __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes the library ready for frames. `context` is the address of a pointer that is the library's
 * own, null before the first call; every entry is given the same address.
 */
AISR_ENTRY int32_t AisrInit(void** context);
/** Undoes AisrInit. Overlaps neither AisrProcess nor AisrSetParam. */
AISR_ENTRY int32_t AisrDeinit(void** context);
/** Enhances the frames submitted last, in place, and returns when it is done with their planes. */
AISR_ENTRY int32_t AisrProcess(void** context);
/**
 * Takes a parameter: `size` bytes at `data`, which are the caller's again on return. With
 * AISR_TAG_SET_TIMEOUT it is called on the media client's thread while AisrProcess may be running
 * on another, and has to return at once: the client waits for it.
 */
AISR_ENTRY int32_t AisrSetParam(void** context, int32_t tag, const void* data, uint64_t size);
/** Has to be there, and is never called. Its arguments are the maker's choice. */
AISR_ENTRY int32_t AisrDoClean(void** context);
/** Has to be there, and is never called. Its arguments are the maker's choice. */
AISR_ENTRY int32_t AisrGetParam(void** context, int32_t tag, void* data, uint64_t size);

#ifdef __cplusplus
}
#endif
