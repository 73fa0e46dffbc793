#pragma once

// Both functions block signals until the process ends, but not in children (see `runChild`).

// Blocks PIPE and XFSZ. A write to a pipe without a reader, or beyond the file size limit, then
// fails and does not end the process.
void blockWriteSignals();

// Blocks the signals that are used to stop a program: INT, TERM, HUP and QUIT.
void blockStops();
