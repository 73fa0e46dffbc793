#include "repair/state.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "install/locations.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/file.h"
#include "platform/walk.h"

namespace fs = std::filesystem;

Receipt receiptAt(const fs::path& path) {
    if (!stands(path)) return {path};
    Receipt receipt = {path, true, "damaged"};
    // No other type can be a receipt, and reading a device might never end.
    if (!fs::is_regular_file(path)) return receipt;
    std::string text;
    const ReadEnd end = readFile(path, [&](std::string_view block) {
        text.append(block);
        return true;
    });
    if (end != ReadEnd::complete) throw std::runtime_error("Cannot read " + path.string());
    receipt.digest = digest(text);
    try {
        receipt.manifest = parse(text);
        receipt.found = "whole";
    } catch (const std::runtime_error&) {  // so `found` stays "damaged"
    }
    return receipt;
}

std::optional<Manifest> contentOf(const fs::path& path) {
    if (!stands(path) || !fs::is_directory(path)) return {};
    try {
        return tree(path);
    } catch (const fs::filesystem_error&) {  // its text names the path
        throw;
    } catch (const std::runtime_error& failure) {
        const std::string reason = failure.what();
        // Only with these two it certainly is no bundle. With others, a file could not be read.
        if (reason == "Symlink member refused" || reason == "Empty bundle refused") return {};
        throw std::runtime_error(reason + "; " + path.string());
    }
}

static std::string_view find(const fs::path& place, const Manifest& listed) {
    const bool present = stands(place);
    if (listed.empty()) return present ? "unlisted" : "absent";
    if (!present) return "missing";
    return contentOf(place) == listed ? "installed" : "changed";
}

// Gives the run directories of a product, newest first.
static std::vector<fs::path> runsOf(const fs::path& backups, const std::string& product) {
    std::vector<fs::path> runs;
    if (!stands(backups)) return runs;
    const std::string prefix = product + '-';
    for (const std::string& name : names(backups)) {
        if (!name.starts_with(prefix) || name == prefix) continue;
        const bool isNumber = name.find_first_not_of("0123456789", prefix.size()) == name.npos &&
                              name[prefix.size()] != '0';
        if (isNumber && fs::is_directory(backups / name)) runs.push_back(backups / name);
    }
    // A number with more digits is greater.
    std::sort(runs.begin(), runs.end(), [](const fs::path& one, const fs::path& other) {
        return std::pair(one.native().size(), one) > std::pair(other.native().size(), other);
    });
    return runs;
}

static Run runAt(const fs::path& directory, const std::vector<Bundle>& bundles) {
    Run run = {directory.filename().string(), directory,
               receiptAt(directory / "previous-receipt.sha256"), false, false};
    if (!run.moved.present) {
        run.moved = receiptAt(directory / "removed-receipt.sha256");
        run.removal = run.moved.present;
    }
    run.holds = run.moved.present;
    for (const Bundle& bundle : bundles)
        run.holds = run.holds || stands(directory / "original" / bundle.key);
    return run;
}

static bool isOf(const Run& run, std::string_view format) {
    for (const char* const area : {"verified-backup", "staged", "original", "failed", "repaired"})
        if (stands(run.directory / area / format)) return true;
    const Manifest& listed = run.moved.manifest;
    return !listed.empty() && listed.begin()->first.starts_with(format);
}

// The name of a run does not contain its format. An empty run may be of each.
static bool mayBeOf(const Run& run, std::string_view format) {
    const auto isOfOne = [&](std::string_view one) { return isOf(run, one); };
    return isOf(run, format) || std::none_of(formats.begin(), formats.end(), isOfOne);
}

static bool isInterrupted(const State& state) {
    if (!state.last || state.last->removal) return false;
    if (state.last->moved.present)
        return state.unfinished &&
               (!state.receipt.present || state.receipt.manifest == state.last->moved.manifest);
    if (!state.receipt.present) return false;
    for (const Bundle& bundle : state.bundles) {
        if (bundle.found == "changed" || bundle.found == "missing") return true;
        const fs::path original = state.last->directory / "original" / bundle.key;
        if (bundle.found == "absent" && stands(original)) return true;
    }
    return state.receipt.found == "damaged";
}

State stateOf(const fs::path& testRoot, const std::string& product, const std::string& format) {
    const fs::path support = supportDir(testRoot);
    State state = {product, format, receiptAt(receiptPath(support, product, format))};
    state.temporary = state.receipt.path.string() + ".tmp";
    state.unfinished = stands(state.temporary);
    for (const std::string_view name : bundleNames) {
        if (!isOfFormat(name, format) || !isOfProduct(name, product)) continue;
        const BundleKey key = format + '/' + std::string(name);
        const fs::path place = target(testRoot, key);
        state.bundles.push_back({key, place, find(place, sub(state.receipt.manifest, key))});
    }
    for (const fs::path& directory : runsOf(support / "Backups", product)) {
        const Run run = runAt(directory, state.bundles);
        if (!mayBeOf(run, format)) continue;
        state.runs.push_back(run);
        if (run.holds && !state.last) state.last = run;
    }
    state.interrupted = isInterrupted(state);
    state.over = state.last && state.last->removal && state.receipt.present;
    return state;
}

std::vector<State> survey(const fs::path& testRoot) {
    std::vector<State> states;
    for (const std::string_view product : products)
        for (const std::string_view format : formats)
            states.push_back(stateOf(testRoot, std::string(product), std::string(format)));
    return states;
}
