#pragma once

#include <cstdint>
#include <list>
#include <vector>

/**
 * The processing library's own view of what is submitted to it, declared apart from the client
 * library's: a list of the C++ runtime that both are built with.
 */
namespace runtime_list {

struct Frame {
    uint64_t id;
    uint64_t idx;
    int32_t width;
    int32_t height;
    int32_t stride;
    uint32_t reserved;
    const void* y;
    const void* uv;
};

inline bool operator==(const Frame& a, const Frame& b) {
    return a.id == b.id && a.idx == b.idx && a.width == b.width && a.height == b.height &&
           a.stride == b.stride && a.reserved == b.reserved && a.y == b.y && a.uv == b.uv;
}

using Frames = std::list<Frame>;

/** One submission, as it was found by the process call that follows it. */
struct Submission {
    uint64_t dataSize;  ///< The size that came with the list.
    size_t count;       ///< What the list says of its length.
    std::vector<Frame> forwards;
    std::vector<Frame> backwards;
};

}  // namespace runtime_list

/** Called by the process entry of the library, defined by the test. */
extern "C" void runtimeListProcessed(const runtime_list::Submission& submission);
