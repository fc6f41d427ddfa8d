#pragma once

#include <cstdint>

#include "Frame.h"

namespace android {
namespace transport {

// How a service of another process is found: the client connects to the service's socket and is
// greeted; it asks, and is answered. The socket then becomes the connection of the two processes,
// or is closed when they have one.

struct Greeting {
    uint32_t magic = kFrameMagic;
    uint32_t reserved = 0;
    uint64_t instance = 0;  ///< of the service's process
};

enum class Wish : uint32_t {
    kConnect = 1,
    kUseConnection = 2,  ///< there is a connection, only the service's handle is wanted
};

struct Request {
    uint32_t magic = kFrameMagic;
    Wish wish = Wish::kConnect;
    uint64_t instance = 0;  ///< of the client's process
};

enum class Outcome : uint32_t { kGranted = 1, kRetry = 2 };

struct Answer {
    uint32_t magic = kFrameMagic;
    Outcome outcome = Outcome::kRetry;
    uint64_t handle = 0;
};

}  // namespace transport
}  // namespace android
