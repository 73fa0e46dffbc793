#pragma once

// Both hold signals back until the process ends; children start without (see runchild).

// Lets a write to a pipe without a reader, or beyond the file size limit, fail instead of ending
// the process.
void holdwrites();

// Holds back the signals that end a program from outside: INT, TERM, HUP and QUIT.
void holdends();
