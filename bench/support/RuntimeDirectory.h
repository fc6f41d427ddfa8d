// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bench {

/**
 * Makes a runtime directory of this process's own, names it in the environment for this process and
 * its children, and removes it at exit.
 */
void useRuntimeDirectory();

}  // namespace bench
