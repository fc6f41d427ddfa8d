// SPDX-License-Identifier: Apache-2.0
// The records, the parameters and the statuses.
#include <algorithm>
#include <climits>
#include <cstring>

#include "Library.h"

namespace checker {
namespace {

/** A record in memory that can be taken away, of which it is known whether it was changed. */
template <typename RECORD>
class LooseRecord {
public:
    explicit LooseRecord(const char* name)
        : mMemory(name, sizeof(RECORD), Surroundings::kGuardBehind) {}

    RECORD* get() const { return reinterpret_cast<RECORD*>(mMemory.begin()); }
    void fill(const RECORD& record) { *get() = mBefore = record; }
    void expectSame(const std::string& after) const {
        const auto* before = reinterpret_cast<const uint8_t*>(&mBefore);
        const auto* changed = std::mismatch(before, before + sizeof(RECORD), mMemory.begin()).first;
        if (changed != before + sizeof(RECORD)) {
            failAndStop(after + " changed the " + mMemory.name() + " at offset " +
                        std::to_string(changed - before));
        }
    }
    void takeAway() { mMemory.takeAway(); }

private:
    Memory mMemory;
    RECORD mBefore{};
};

/** A parameter that the engine never sends. */
struct Unknown {
    const char* name;
    int32_t tag;
    std::vector<size_t> sizes;
};

const Unknown kUnknown[] = {
    {"AISR_TAG_NEW_MEM", AISR_TAG_NEW_MEM, {24}},
    {"AISR_TAG_DEL_MEM", AISR_TAG_DEL_MEM, {24}},
    {"AISR_TAG_NUM", AISR_TAG_NUM, {24}},
    {"tag 6", 6, {4, 24, 48}},
    {"tag -1", -1, {24}},
    {"tag 2147483647", INT_MAX, {24}},
    {"tag -2147483648", INT_MIN, {24}},
    {"AISR_TAG_SET_BUF", AISR_TAG_SET_BUF, {0, 16, 23, 48}},
    {"AISR_TAG_SET_TIMEOUT", AISR_TAG_SET_TIMEOUT, {0, 24, 47, 64}},
    {"AISR_TAG_SET_LOG_LEVEL", AISR_TAG_SET_LOG_LEVEL, {0, 3, 8}},
};

/** Sends as much of a sound record as the size has room for. */
void sendUnknown(Library& library, const Unknown& unknown, size_t size, Frame* frame) {
    const Memory data("parameter", size, Surroundings::kGuardBehind);
    const bool isCancel = unknown.tag == AISR_TAG_SET_TIMEOUT;
    const void* sound = isCancel ? static_cast<const void*>(&frame->buffer()) : &frame->list();
    std::memset(data.begin(), 0, size);
    std::memcpy(data.begin(), sound,
                std::min(size, isCancel ? sizeof(AisrBuffer) : sizeof(AisrBufferList)));
    const std::string words =
        std::string(unknown.name) + " with " + std::to_string(size) + " bytes";
    if (library.setParam("AisrSetParam, " + words, unknown.tag, data.begin(), size) ==
        AISR_SUCCESS) {
        warn("AisrSetParam takes " + words);
        library.enhance(*frame);  // A cancel that was obeyed ends with this frame.
    } else {
        library.mustEnhance(*frame, "after the refused " + words);
    }
    frame->next();
}

}  // namespace

void checkRecordsKept(const Settings& settings) {
    Library library(settings);
    library.start();
    Frame frame({1280, 720, 1344});
    for (int i = 0; i < 3; ++i) {
        LooseRecord<AisrBufferList> list("list");
        LooseRecord<AisrBufferNode> node("node");
        LooseRecord<AisrBuffer> cancel("cancel's record");
        list.fill({{&node.get()->links, &node.get()->links}, 1});
        node.fill({{&list.get()->ends, &list.get()->ends}, frame.buffer()});
        cancel.fill(frame.buffer());
        int32_t status = library.submit(frame, list.get());
        list.expectSame("AisrSetParam(AISR_TAG_SET_BUF), " + frame.text() + ",");
        node.expectSame("AisrSetParam(AISR_TAG_SET_BUF), " + frame.text() + ",");
        status = status == AISR_SUCCESS ? library.process(frame) : status;
        list.expectSame("AisrProcess, " + frame.text() + ",");
        node.expectSame("AisrProcess, " + frame.text() + ",");
        if (status != AISR_SUCCESS && i == 0) {  // Later ones may suffer from the cancels.
            failAndStop(frame.text() + " ended with " + statusText(status));
        }
        list.takeAway();
        node.takeAway();
        library.cancel(cancel.get());
        cancel.expectSame("AisrSetParam(AISR_TAG_SET_TIMEOUT)");
        cancel.takeAway();
        frame.next();
    }
    library.enhance(frame);
    library.end();
}

void checkUnknownParameters(const Settings& settings) {
    Library library(settings);
    library.start();
    Frame frame({768, 576, 832});
    for (const Unknown& unknown : kUnknown) {
        for (const size_t size : unknown.sizes) {
            sendUnknown(library, unknown, size, &frame);
        }
    }
    library.end();
}

void checkStatuses(const Settings& settings) {
    Library library(settings);
    std::string seen;
    const auto take = [&](const std::string& what, int32_t status) {
        seen += (seen.empty() ? "" : ", ") + what + " " + std::to_string(status);
        if (status < AISR_SUCCESS || status > AISR_ERR_TIMEOUT) {
            warn(what + " returned " + statusText(status));
        }
        return status;
    };
    take("log level", library.setLogLevel(1));
    take("init", library.init());
    Frame frame({1280, 720, 1280});
    take("frame", library.enhance(frame));
    frame.next();
    // A client may offer what no library can process; the planes have room for an attempt.
    frame.buffer().width = 1281;
    if (take("impossible frame", library.enhance(frame)) == AISR_SUCCESS) {
        warn("a frame whose stride, 1280, is less than its width, 1281, is processed");
    }
    frame.buffer().width = 1280;
    frame.next();
    take("cancel", library.cancel(&frame.buffer()));
    take("cancelled frame", library.enhance(frame));
    take("unknown tag", library.setParam("AisrSetParam, tag 6", 6, &frame.list(), 24));
    take("deinit", library.deinit());
    note(seen);
}

}  // namespace checker
