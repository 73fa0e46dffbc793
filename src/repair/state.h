#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "package/identity.h"
#include "package/manifest.h"

struct Receipt {
    std::filesystem::path path;
    bool present = false;
    std::string_view found = "absent";  // or "whole", or "damaged" if it certainly is no receipt
    Manifest manifest = {};             // empty unless it is whole
    std::string digest = {};            // SHA-256 of the file; empty if there is no regular file
};

struct Bundle {
    BundleKey key;
    std::filesystem::path place;  // its destination
    // Its state: "installed", "changed" or "missing" if the receipt lists the bundle, "unlisted" or
    // "absent" if it does not.
    std::string_view found;
};

struct Run {
    std::string name;
    std::filesystem::path directory;
    Receipt moved;  // the receipt that it replaced or removed
    bool removal;   // it removed that receipt
    bool holds;     // its directory has an original bundle or a moved receipt
};

// One product in one format, as it is on disk now.
struct State {
    std::string product;
    std::string format;
    Receipt receipt;
    std::filesystem::path temporary = {};  // the receipt's .tmp file
    bool unfinished = false;               // that file is present
    std::vector<Bundle> bundles = {};      // all known bundles
    std::vector<Run> runs = {};            // newest first
    std::optional<Run> last = {};          // the newest run that `holds`
    bool interrupted = false;              // the last run was interrupted
    bool over = false;                     // a later run installed; `last` cannot be undone
};

// Takes the test root, a product and a format, and gives their state. Only content decides, never a
// date. Fails like `supportDir`, `stands`, `receiptAt` and `contentOf`, or in the library's words.
State stateOf(const std::filesystem::path& testRoot, const std::string& product,
              const std::string& format);

// Takes the test root and gives the state of each product in each format. Fails like `stateOf`.
std::vector<State> survey(const std::filesystem::path& testRoot);

// Takes the path of a receipt, and gives the receipt there. Fails with "Cannot read " and the path,
// like `stands`, or in the library's words.
Receipt receiptAt(const std::filesystem::path& path);

// Takes the path of a bundle and gives its content, or nothing if there certainly is no bundle.
// Fails like `stands`, or like `tree` with "; " and the path at the end.
std::optional<Manifest> contentOf(const std::filesystem::path& path);
