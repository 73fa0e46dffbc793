#pragma once

#include "transaction/work.h"

// Moves each captured bundle from its destination to `original` in the transaction directory and,
// unless `remove` is set, each staged bundle to its destination, and reads it back. Records each
// move in `done` directly after its rename.
// Fails with "Plugin changed during transaction", "New destination appeared", "Installed readback
// mismatch", like `target`, `unloaded` and `tree`, or in the library's words.
void commit(const Work& work, bool remove, Done& done);
