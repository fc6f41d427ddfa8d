// SPDX-License-Identifier: Apache-2.0
#include "media/VideoSession.h"

#include <utility>

namespace displayengine::media {

class VideoSession::Impl {};

const char* outcomeName(Outcome) {
    return "unknown";
}

const char* reasonName(Reason) {
    return "none";
}

VideoSession::VideoSession(std::unique_ptr<Impl> impl) : mImpl(std::move(impl)) {}

VideoSession::~VideoSession() = default;

std::unique_ptr<VideoSession> VideoSession::open(const Options&, std::string* why) {
    if (why != nullptr) {
        *why = "not implemented yet";
    }
    return nullptr;
}

void VideoSession::setSize(int32_t, int32_t) {}
void VideoSession::setFrameRate(double) {}
void VideoSession::restartStream() {}

Wanted VideoSession::wanted() const {
    return {Reason::kClosed, "not implemented yet"};
}

bool VideoSession::isWanted() const {
    return false;
}

std::optional<Limits> VideoSession::limits() const {
    return std::nullopt;
}

size_t VideoSession::heldCount() const {
    return 0;
}

Result VideoSession::offer(const Frame&, Release release) {
    if (release) {
        release();
    }
    return {Outcome::kNotOffered, 0, "not implemented yet"};
}

void VideoSession::close() {}

}  // namespace displayengine::media
