// SPDX-License-Identifier: Apache-2.0
#include "Output.h"

#include <algorithm>
#include <iostream>
#include <string>

namespace control {

void Output::printValues(const Json& values) const {
    if (mIsJson) {
        std::cout << documentOf(values) << '\n';
    } else if (values.is_string()) {
        std::string text = values;
        const auto isControl = [](unsigned char c) {
            return (c < 0x20 && c != '\n' && c != '\t') || c == 0x7F;
        };
        std::replace_if(text.begin(), text.end(), isControl, '?');
        std::cout << text << (text.back() == '\n' ? "" : "\n");
    } else {
        std::cout << linesOf(values);
    }
}

void Output::printEvent(const Json& event) const {
    // Flushed for each event: a script reads along.
    std::cout << (mIsJson ? documentOf(event) : wordsOf(event)) << std::endl;
}

}  // namespace control
