#include "repair/words.h"

#include <algorithm>
#include <iostream>

#include "package/safe.h"

namespace fs = std::filesystem;

static constexpr const char* changed =
    " was changed: move it away by hand, and install its package again";
static constexpr const char* missing = " is missing: install its package again";
static constexpr const char* unlisted =
    " is on no receipt: install its package again, or remove it with that package and --remove";
static constexpr const char* damaged =
    "Move the damaged receipt away by hand, and install the same version again: ";

static std::string commandFor(const fs::path& testRoot, const std::string& run) {
    std::string root = testRoot.native();
    // A quote in the path would end the quoted text in the shell.
    for (auto at = root.find('\''); at != std::string::npos; at = root.find('\'', at + 4))
        root.replace(at, 1, R"('\'')");
    const std::string option = root.empty() ? "" : " --test-root '" + root + "'";
    return "orvelline-repair" + option + " --undo " + run;
}

Advice advise(const fs::path& testRoot, const State& state) {
    const std::string close = "Close all music programs and type: ";
    if (state.interrupted) return {close + commandFor(testRoot, state.last->name)};
    if (state.unfinished) {
        // A run that failed has left the file, and undoing that run moves it.
        for (const Run& run : state.runs)
            if (!run.holds && !stands(run.directory / "repaired" / state.temporary.filename()))
                return {close + commandFor(testRoot, run.name)};
        return {"Move this file away by hand: " + state.temporary.string()};
    }
    if (state.receipt.found == "damaged") return {damaged + state.receipt.path.string()};
    for (const auto& [found, words] :
         {std::pair("changed", changed), std::pair("missing", missing)})
        for (const Bundle& bundle : state.bundles)
            if (bundle.found == found) return {bundle.key + words};
    for (const Bundle& bundle : state.bundles)
        if (bundle.found == "unlisted") return {bundle.key + unlisted, !state.receipt.present};
    return {"", false};
}

static void printState(const State& state, const Advice& advice) {
    const char* const calm = advice.line.empty() ? ": well\n" : ": not well\n";
    std::cout << state.product << ' ' << state.format
              << (state.interrupted ? ": interrupted\n" : calm);
    for (const Bundle& bundle : state.bundles)
        if (bundle.found != "absent")
            std::cout << "  " << bundle.key << ": "
                      << (bundle.found == "unlisted" ? "on no receipt" : bundle.found) << '\n';
    if (state.receipt.found != "whole") std::cout << "  receipt: " << state.receipt.found << '\n';
    if (state.unfinished) std::cout << "  unfinished receipt: " << state.temporary.native() << '\n';
}

// Prints the last run, the bundles and receipt in its directory, and how to undo it.
static void printLast(const fs::path& testRoot, const State& state) {
    std::cout << "  last run: " << state.last->directory.native() << '\n';
    for (const std::string area : {"original", "verified-backup", "staged", "failed", "repaired"})
        for (const Bundle& bundle : state.bundles)
            if (stands(state.last->directory / area / bundle.key))
                std::cout << "    " << area << '/' << bundle.key << '\n';
    const Receipt& moved = state.last->moved;
    if (moved.present) std::cout << "    " << moved.path.filename().native() << '\n';
    if (!state.over)
        std::cout << "  to undo it, type: " << commandFor(testRoot, state.last->name) << '\n';
}

void printWords(const fs::path& testRoot, const std::vector<State>& states) {
    std::string advices;
    for (const State& state : states) {
        const Advice advice = advise(testRoot, state);
        if (!advice.line.empty()) advices += advice.line + '\n';
        const bool none = !state.receipt.present && state.runs.empty() && advice.line.empty();
        if (none) continue;
        printState(state, advice);
        if (state.last) printLast(testRoot, state);
    }
    std::cout << (advices.empty() ? "Nothing needs to be done\n" : advices);
}
