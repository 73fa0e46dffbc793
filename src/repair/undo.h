#pragma once

#include <filesystem>
#include <string>

// Takes the test root and the name of a run, and undoes that run: moves what it installed to
// `repaired` in its directory, then its originals and the old receipt back, then an unfinished
// receipt to `repaired`. Gives whether anything has moved. Everything is verified before the first
// move; from there on the signals that stop a program are blocked.
// Fails with "No such run: ", "Undo this run first: " or "A later run replaced what it left: " and
// the name of a run, "Backup verification failed; ", "New destination appeared; " or
// "Installed readback mismatch; " and a path, like `survey` and `unloaded`, or in the library's
// words.
bool undo(const std::filesystem::path& testRoot, const std::string& name);
