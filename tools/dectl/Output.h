// SPDX-License-Identifier: Apache-2.0
// What dectl writes to standard output.
#pragma once

#include <nlohmann/json.hpp>

namespace control {

/** Keeps the order in which members were added. */
using Json = nlohmann::ordered_json;

/**
 * Writes JSON, one document a line, or plain text. Texts that come from the service are escaped as
 * in JSON in both, so that they neither forge lines nor reach a terminal's controls.
 */
class Output {
public:
    explicit Output(bool isJson) : mIsJson(isJson) {}

    /** An object of plain values: "name: value" lines. */
    void printValues(const Json& values) const;
    /** An object of plain values and objects of such: one line of "name=value" words. */
    void printEvent(const Json& event) const;

private:
    const bool mIsJson;
};

}  // namespace control
