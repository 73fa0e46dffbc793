#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "package/identity.h"

// One bundle as it now stands, and what one run has done to it. A manifest is empty where there is
// no whole bundle.
struct Bundle {
    BundleKey key;
    std::filesystem::path place;          // its destination
    Manifest inPlace;                     // what stands there
    Manifest listed;                      // what the receipt in place says of it
    std::filesystem::path original = {};  // where the run puts what stood there
    std::filesystem::path backup = {};    // where the run puts a copy of that
    Manifest inBackup = {};               // what is in the copy
    bool notInstalled = false;            // what the run was to bring is in `staged` or `failed`
    bool takenBack = false;               // a way back has put something of it into `repaired`
    bool movedOut = false;                // the run moved out what stood there, and it is not back
    bool movedIn = false;                 // the run moved in what now stands there
};

// One run that has moved something which is not back.
struct Run {
    std::filesystem::path directory;
    std::filesystem::file_time_type start;     // the time in the directory's name
    std::filesystem::file_time_type earliest;  // nothing written before comes from this run
    std::filesystem::path oldReceipt;          // where the run puts the receipt that it replaces
    std::vector<Bundle> bundles;               // all of the product and format, in key order
    bool removal = false;                      // else an install
    bool ownReceipt = false;                   // the receipt in place is the one it wrote
    bool receiptMoved = false;                 // it wrote that one, or moved the old one
    bool asBefore = false;                     // what is in place equals what stood before
    bool interrupted = false;  // it does not, and the run has not finished; or it does,
                               // and an older run was interrupted
};

// One product in one format, as it now stands on disk.
struct History {
    std::filesystem::path testRoot;
    std::string product;
    std::string format;
    std::filesystem::path receipt;
    std::filesystem::path temporary;    // the receipt's .tmp file
    bool damaged;                       // a receipt is in place, and cannot be read as one
    std::vector<Bundle> bundles = {};   // without what a run has done
    std::filesystem::path newest = {};  // the newest run; empty when there is none
    std::vector<std::filesystem::path> passed = {};  // runs newer than the last, newest first
    std::optional<Run> last = {};                    // the newest that has moved something
};

// Takes the test root, a product and a format, and gives what the disk tells of them, by the rules
// in ARCHITECTURE.md. Fails with "Run lies in the future; check the clock: " and its directory,
// like `supportDir` and `stands`, or in the library's words.
History survey(const std::filesystem::path& testRoot, const std::string& product,
               const std::string& format);

// Takes what was found of a bundle at two places, and gives whether both are whole and equal.
bool same(const Manifest& one, const Manifest& other);
