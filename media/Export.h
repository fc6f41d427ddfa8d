// SPDX-License-Identifier: Apache-2.0
#pragma once

/** Marks what libdisplayengine-media shows in its dynamic symbol table; the rest stays hidden. */
#define DE_MEDIA_EXPORT __attribute__((visibility("default")))
