#pragma once

#include "transaction/work.h"

// For each bundle of the package: moves the installed bundle, if any, to `original` in the run
// directory. Except if `remove` is set, moves the staged bundle to its destination and reads it
// back. Records each move in `done` directly after its rename.
// Fails with "Plugin changed during transaction", "New destination appeared" or
// "Installed readback mismatch", like `target`, `unloaded` and `tree`, or in the library's words.
void commit(const Work& work, bool remove, Done& done);
