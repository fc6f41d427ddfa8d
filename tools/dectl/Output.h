// SPDX-License-Identifier: Apache-2.0
// What dectl writes to standard output.
#pragma once

#include "tools/support/JsonText.h"

namespace control {

/** Writes JSON, one document a line, or plain text. */
class Output {
public:
    explicit Output(bool isJson) : mIsJson(isJson) {}

    bool isJson() const { return mIsJson; }

    /**
     * An object: "name: value" lines. A text of several lines, which is not empty, goes out as it
     * is, but for a terminal's controls.
     */
    void printValues(const Json& values) const;
    /** An object of plain values and objects of such: one line of "name=value" words. */
    void printEvent(const Json& event) const;

private:
    const bool mIsJson;
};

}  // namespace control
