#pragma once

/** Marks what the shared library shows in its dynamic symbol table; the rest stays hidden. */
#define DE_EXPORT __attribute__((visibility("default")))
