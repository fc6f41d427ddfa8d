// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "common/BufferInfo.h"

/**
 * The texts that log lines about a frame are made of. AisrAlgorithm's static operations of the same
 * names show them to other modules.
 */
namespace Aisr {

/** Lowercase hexadecimal without prefix. */
std::string toString(uint64_t value);
/** The whole record: "data:{ id=7b3f idx=3 y=0xa00 uv=0xc00 640(704)x360 }". */
std::string toString(const BufferInfo& info);
/** The record without its addresses: "data:{ id=7b3f idx=3 640(704)x360 }". */
std::string toStringSafe(const BufferInfo& info);
/** The geometry, width(stride)xheight: "640(704)x360". */
std::string rectToString(const BufferInfo& info);

}  // namespace Aisr
