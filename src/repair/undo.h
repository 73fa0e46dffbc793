#pragma once

#include <filesystem>
#include <string>

// Takes the test root and the name of a run, and undoes that run: moves the bundles that it
// installed to `repaired` in its run directory, then the originals and the old receipt back, then
// an unfinished receipt to `repaired`. Gives whether anything was moved. Checks all moves before
// the first one, and blocks the signals that stop a program from then on.
// Fails with "No such run: ", "Undo this run first: " or "A later run replaced what it left: " and
// the name of a run, with "Backup verification failed; ", "New destination appeared; " or
// "Installed readback mismatch; " and a path, like `survey` and `unloaded`, or in the library's
// words.
bool undo(const std::filesystem::path& testRoot, const std::string& name);
