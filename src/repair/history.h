#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "package/identity.h"

using Time = std::chrono::system_clock::time_point;

// One bundle, as a run and what came after it have left it. A manifest is empty where there is no
// whole bundle.
struct Bundle {
    BundleKey key;
    std::filesystem::path place;     // its destination
    std::filesystem::path original;  // where the run puts what stood there
    std::filesystem::path backup;    // where the run puts a copy of that
    Manifest now;                    // what is in place
    Manifest saved;                  // what is in the copy
    bool waiting;                    // what the run brings is staged, or has failed
    bool aside;                      // a way back has moved something of it aside
    bool taken = false;              // what stood before is not in place, as the run took it
    bool brought = false;            // the run brought what is in place, where nothing stood
};

// One run that has moved something which is not back, as it now stands on disk.
struct Run {
    std::filesystem::path directory;
    Time start;                        // the time in the directory's name
    Time earliest;                     // nothing that was written before comes from this run
    bool removal;                      // else an install
    std::filesystem::path oldReceipt;  // where the run puts the receipt that it replaces
    std::vector<Bundle> bundles;       // all of the product and format, in key order
    bool ownReceipt = false;           // the receipt in place is the one it wrote
    bool receiptMoved = false;         // so it is, or the old one is where the run puts it
    bool asBefore = true;              // what is in place equals what stood before
    bool interrupted = false;          // it does not, and the run has not finished; or it does,
                                       // and an older run was interrupted
};

// One product in one format, as it now stands on disk.
struct History {
    std::filesystem::path testRoot;
    std::string product;
    std::string format;
    std::filesystem::path receipt;
    std::filesystem::path temporary;            // the receipt's .tmp file
    std::filesystem::path newest;               // the newest run; empty when there is none
    std::vector<std::filesystem::path> passed;  // runs newer than the last, newest first
    std::optional<Run> last;                    // the newest that has moved something
};

// Takes the test root, a product and a format, and gives what the disk tells of them, by the rules
// in ARCHITECTURE.md. Fails with "Run lies in the future; check the clock: " and its directory,
// like `supportdir` and `stands`, or in the library's words.
History survey(const std::filesystem::path& testRoot, const std::string& product,
               const std::string& format);
