// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * Marks what the shared library shows in its dynamic symbol table; the rest stays hidden. A name
 * also has to be in cmake/exported-symbols.map.
 */
#define DE_EXPORT __attribute__((visibility("default")))

/** Hides a member of an exported class: one that only the library itself calls. */
#define DE_HIDDEN __attribute__((visibility("hidden")))
