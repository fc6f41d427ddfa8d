// SPDX-License-Identifier: Apache-2.0
// Copying images between graphic buffers.
#pragma once

#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace sample {

/**
 * Copies the pixels of `from` to `to`. False, with nothing copied, when one is null or without
 * memory, when size, stride or format differ, or when the format's row size is not known.
 */
bool copyImage(const android::sp<android::GraphicBuffer>& from,
               const android::sp<android::GraphicBuffer>& to);

}  // namespace sample
