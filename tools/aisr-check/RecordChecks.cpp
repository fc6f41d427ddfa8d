// SPDX-License-Identifier: Apache-2.0
// The records, the parameters and the statuses.
#include <algorithm>
#include <climits>
#include <cstring>

#include "Check.h"
#include "Library.h"
#include "Report.h"

namespace checker {
namespace {

/** The list and its node as the engine hands them over, in memory that can be taken away. */
class LooseRecords {
public:
    explicit LooseRecords(const AisrBuffer& buffer)
        : mList("list", sizeof(AisrBufferList), Surroundings::kGuardBehind),
          mNode("node", sizeof(AisrBufferNode), Surroundings::kGuardBehind) {
        auto* list = reinterpret_cast<AisrBufferList*>(mList.begin());
        auto* node = reinterpret_cast<AisrBufferNode*>(mNode.begin());
        *list = {{&node->links, &node->links}, 1};
        *node = {{&list->ends, &list->ends}, buffer};
        mListBefore = *list;
        mNodeBefore = *node;
    }

    const void* list() const { return mList.begin(); }

    void expectUnchanged(const std::string& after) const {
        expectSame("list", mList.begin(), &mListBefore, sizeof(mListBefore), after);
        expectSame("node", mNode.begin(), &mNodeBefore, sizeof(mNodeBefore), after);
    }
    void takeAway() {
        mList.takeAway();
        mNode.takeAway();
    }

    static void expectSame(const std::string& name, const uint8_t* now, const void* before,
                           size_t size, const std::string& after) {
        for (size_t i = 0; i < size; ++i) {
            if (now[i] != static_cast<const uint8_t*>(before)[i]) {
                failAndStop(after + " changed the " + name + " at offset " + std::to_string(i));
            }
        }
    }

private:
    Memory mList;
    Memory mNode;
    AisrBufferList mListBefore{};
    AisrBufferNode mNodeBefore{};
};

std::string sizeText(size_t size) {
    return std::to_string(size) + (size == 1 ? " byte" : " bytes");
}

/** A parameter that the engine never sends. */
struct Unknown {
    const char* name;
    int32_t tag;
    size_t size;
};

constexpr Unknown kUnknown[] = {
    {"AISR_TAG_NEW_MEM", AISR_TAG_NEW_MEM, 24},
    {"AISR_TAG_DEL_MEM", AISR_TAG_DEL_MEM, 24},
    {"AISR_TAG_NUM", AISR_TAG_NUM, 24},
    {"tag 6", 6, 24},
    {"tag 6", 6, 48},
    {"tag -1", -1, 24},
    {"tag 2147483647", INT_MAX, 4},
    {"tag -2147483648", INT_MIN, 24},
    {"AISR_TAG_SET_BUF", AISR_TAG_SET_BUF, 0},
    {"AISR_TAG_SET_BUF", AISR_TAG_SET_BUF, 16},
    {"AISR_TAG_SET_BUF", AISR_TAG_SET_BUF, 23},
    {"AISR_TAG_SET_BUF", AISR_TAG_SET_BUF, 48},
    {"AISR_TAG_SET_TIMEOUT", AISR_TAG_SET_TIMEOUT, 0},
    {"AISR_TAG_SET_TIMEOUT", AISR_TAG_SET_TIMEOUT, 24},
    {"AISR_TAG_SET_TIMEOUT", AISR_TAG_SET_TIMEOUT, 47},
    {"AISR_TAG_SET_TIMEOUT", AISR_TAG_SET_TIMEOUT, 64},
    {"AISR_TAG_SET_LOG_LEVEL", AISR_TAG_SET_LOG_LEVEL, 0},
    {"AISR_TAG_SET_LOG_LEVEL", AISR_TAG_SET_LOG_LEVEL, 3},
    {"AISR_TAG_SET_LOG_LEVEL", AISR_TAG_SET_LOG_LEVEL, 8},
};

/** Sends the parameter with as much of a sound record as its size leaves room for. */
int32_t send(Library& library, const Unknown& parameter, const Frame& frame,
             const AisrBuffer& record) {
    const Memory data("parameter", parameter.size, Surroundings::kGuardBehind);
    const bool isCancel = parameter.tag == AISR_TAG_SET_TIMEOUT;
    const void* sound = isCancel ? static_cast<const void*>(&record) : &frame.list();
    const size_t size = isCancel ? sizeof(AisrBuffer) : sizeof(AisrBufferList);
    std::memset(data.begin(), 0, parameter.size);
    std::memcpy(data.begin(), sound, std::min(size, parameter.size));
    const std::string what =
        std::string("AisrSetParam(") + parameter.name + ") with " + sizeText(parameter.size);
    return library.setParam(what.c_str(), parameter.tag, data.begin(), parameter.size);
}

}  // namespace

void checkRecordsKept(const Settings& settings) {
    Library library(settings);
    library.start();
    Frame frame({1280, 720, 1344});
    for (int i = 0; i < 3; ++i) {
        LooseRecords records(frame.buffer());
        const int32_t submitted =
            library.setParam("AisrSetParam(AISR_TAG_SET_BUF)", AISR_TAG_SET_BUF, records.list(),
                             sizeof(AisrBufferList), &frame);
        records.expectUnchanged("AisrSetParam(AISR_TAG_SET_BUF), " + frame.text() + ",");
        const int32_t status = submitted == AISR_SUCCESS ? library.process(frame) : submitted;
        records.expectUnchanged("AisrProcess, " + frame.text() + ",");
        if (status != AISR_SUCCESS && i == 0) {  // Later ones may suffer from the cancels.
            failAndStop(frame.text() + " ended with " + statusText(status));
        }
        records.takeAway();
        Memory cancel("cancel's record", sizeof(AisrBuffer), Surroundings::kGuardBehind);
        std::memcpy(cancel.begin(), &frame.buffer(), sizeof(AisrBuffer));
        library.setParam("AisrSetParam(AISR_TAG_SET_TIMEOUT)", AISR_TAG_SET_TIMEOUT, cancel.begin(),
                         sizeof(AisrBuffer));
        LooseRecords::expectSame("record", cancel.begin(), &frame.buffer(), sizeof(AisrBuffer),
                                 "AisrSetParam(AISR_TAG_SET_TIMEOUT)");
        cancel.takeAway();
        frame.next();
    }
    library.enhance(frame);
    library.end();
}

void checkUnknownParameters(const Settings& settings) {
    Library library(settings);
    library.start();
    Frame frame({1280, 720, 1344});
    for (const Unknown& parameter : kUnknown) {
        const std::string name = std::string(parameter.name) + " with " + sizeText(parameter.size);
        const bool isTaken = send(library, parameter, frame, frame.buffer()) == AISR_SUCCESS;
        if (isTaken) {
            warn("AisrSetParam took " + name);
            library.enhance(frame);  // A cancel that was obeyed ends with this frame.
        } else {
            library.mustEnhance(frame, "after " + name + " was refused");
        }
        frame.next();
    }
    library.end();
}

void checkStatuses(const Settings& settings) {
    Library library(settings);
    library.start();
    Frame frame({1280, 720, 1280});
    library.enhance(frame);
    library.cancel(frame.buffer());
    frame.next();
    // A client may offer what no library can process; the planes have room for an attempt.
    frame.buffer().width = 1281;
    if (library.enhance(frame) == AISR_SUCCESS) {
        warn("AisrProcess took a frame whose stride, 1280, is less than its width, 1281");
    }
    frame.buffer().width = 1280;
    frame.next();
    library.cancel(frame.buffer());
    library.enhance(frame);
    library.setParam("AisrSetParam(tag 6)", 6, &frame.list(), sizeof(AisrBufferList));
    library.deinit();
    std::string seen;
    for (const char* entry : kEntries) {
        for (const int32_t status : library.statuses(entry)) {
            if (status < AISR_SUCCESS || status > AISR_ERR_TIMEOUT) {
                warn(std::string(entry) + " returned " + statusText(status));
            }
            seen += (seen.empty() ? "" : ", ") + std::string(entry) + " " + std::to_string(status);
        }
    }
    note("seen: " + seen);
}

}  // namespace checker
