// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace player {

/**
 * Writes NV12 planes as an RGB PNG file. Returns an empty text or what went wrong; a file that
 * could not be finished is removed.
 */
std::string writePng(const std::string& path, const uint8_t* y, const uint8_t* uv, int width,
                     int height, int stride);

}  // namespace player
