/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A processing library to start from: it keeps every rule of docs/processing-library.md, and leaves
 * its frames as they are. The place for your own work is marked in AisrProcess.
 */
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>

#include "common/AisrProcess.h"

/** What lasts from AisrInit to AisrDeinit. An id of 0 means no frame. */
typedef struct Session {
    pthread_mutex_t lock; /**< Held for moments only: a cancel has to return at once. */
    AisrBuffer frame;     /**< Submitted, or in processing. */
    AisrBuffer cancelled; /**< Named by a cancel before it was submitted. */
    atomic_int stop;      /**< The frame is to be abandoned. */
} Session;

static atomic_int logLevel = 1; /* Sent before there is a session, hence the whole library's. */

static int isSame(const AisrBuffer* a, const AisrBuffer* b) {
    return a->id == b->id && a->idx == b->idx;
}

int32_t AisrInit(void** context) {
    if (*context != NULL || (*context = calloc(1, sizeof(Session))) == NULL) {
        return AISR_ERR_FATAL;
    }
    pthread_mutex_init(&((Session*)*context)->lock, NULL);
    if (logLevel >= 3) {
        fputs("aisr template: initialised\n", stderr);
    }
    return AISR_SUCCESS;
}

int32_t AisrDeinit(void** context) {
    if (*context == NULL) {
        return AISR_ERR_FATAL;
    }
    pthread_mutex_destroy(&((Session*)*context)->lock);
    free(*context);
    *context = NULL;
    return AISR_SUCCESS;
}

static void setFrame(Session* session, AisrBuffer frame) {
    pthread_mutex_lock(&session->lock);
    session->frame = frame;
    session->stop = isSame(&session->cancelled, &frame);
    session->cancelled.id = 0; /* Frames come in order: a cancel for another is out of date. */
    pthread_mutex_unlock(&session->lock);
}

int32_t AisrProcess(void** context) {
    Session* const session = *context;
    if (session == NULL || session->frame.id == 0) {
        return session == NULL ? AISR_ERR_FATAL : AISR_ERR_BUF_COPY;
    }
    const AisrBuffer frame = session->frame;
    for (int32_t row = 0; row < frame.height && !session->stop; ++row) {
        /* Your work, in place: `width` bytes of luma at y + row * stride, and in every second row
         * as many of chroma at uv + row / 2 * stride. The bytes behind `width` are not yours. */
    }
    const int isStopped = session->stop;
    pthread_mutex_lock(&session->lock);
    session->frame.id = 0;
    pthread_mutex_unlock(&session->lock);
    return isStopped ? AISR_ERR_TIMEOUT : AISR_SUCCESS;
}

static int32_t submit(Session* session, const AisrBufferList* list) {
    const AisrBuffer* const frame = &((const AisrBufferNode*)list->ends.next)->buffer;
    if (list->count != 1 || frame->stride < frame->width) {
        return AISR_ERR_BUF_COPY;
    }
    setFrame(session, *frame);
    return AISR_SUCCESS;
}

static int32_t cancel(Session* session, const AisrBuffer* frame) {
    pthread_mutex_lock(&session->lock);
    if (isSame(frame, &session->frame)) {
        session->stop = 1;
    } else {
        session->cancelled = *frame;
    }
    pthread_mutex_unlock(&session->lock);
    return AISR_SUCCESS;
}

int32_t AisrSetParam(void** context, int32_t tag, const void* data, uint64_t size) {
    if (tag == AISR_TAG_SET_LOG_LEVEL && size == sizeof(int32_t)) {
        logLevel = *(const int32_t*)data;
        return AISR_SUCCESS;
    }
    if (tag == AISR_TAG_SET_BUF && size == sizeof(AisrBufferList) && *context != NULL) {
        return submit(*context, data);
    }
    if (tag == AISR_TAG_SET_TIMEOUT && size == sizeof(AisrBuffer) && *context != NULL) {
        return cancel(*context, data);
    }
    return AISR_ERR_FATAL; /* What is not known is answered, not obeyed. */
}

int32_t AisrDoClean(void** context) {
    return *context != NULL ? AISR_SUCCESS : AISR_ERR_FATAL;
}

int32_t AisrGetParam(void** context, int32_t tag, void* data, uint64_t size) {
    (void)context, (void)tag, (void)data, (void)size;
    return AISR_ERR_FATAL;
}
