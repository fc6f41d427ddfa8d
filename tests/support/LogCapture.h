// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/Lines.h"

/**
 * Collects the process's log messages while it lives; one at a time. A line reads "priority tag
 * text" with the source line number replaced by "#": "5 DE N AISRAlgo enhance:#: Retry init()
 * failed!".
 */
class LogCapture : public Lines {
public:
    LogCapture();
    ~LogCapture();
};
