#include "repair/facts.h"

#include <iostream>
#include <string_view>

// No text needs escaping: the version, our own words, digests and the names of runs are plain.
static std::string quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

static std::string member(std::string_view name, std::string_view text) {
    return quoted(name) + ": " + quoted(text);
}

static std::string member(std::string_view name, bool value) {
    return quoted(name) + (value ? ": true" : ": false");
}

static void printState(const State& state) {
    const std::string last = state.last ? state.last->name : "";
    const bool undoable = state.last && !state.over;
    const bool returns = undoable && state.last->oldReceipt.present;
    const Receipt& before = returns ? state.last->oldReceipt : state.receipt;
    std::cout << '{' << member("product", state.product) << ", " << member("format", state.format)
              << ",\n  " << member("receipt", state.receipt.found) << ", "
              << member("digest", state.receipt.digest) << ", " << member("tmp", state.unfinished)
              << ",\n  " << quoted("bundles") << ": {";
    for (const Bundle& bundle : state.bundles)
        std::cout << (&bundle == &state.bundles.front() ? "" : ", ")
                  << member(bundle.key, bundle.found);
    std::cout << "},\n  " << member("interrupted", state.interrupted ? last : "") << ", "
              << member("undo", undoable ? last : "") << ", "
              << member("before", undoable ? before.digest : "") << ",\n  " << quoted("runs")
              << ": [";
    for (const Run& run : state.runs)
        std::cout << (&run == &state.runs.front() ? "{" : ", {") << member("name", run.name) << ", "
                  << member("holds", run.holds) << '}';
    std::cout << "]}";
}

void printFacts(const std::string& version, const std::vector<State>& states) {
    std::cout << '{' << member("version", version) << ", " << quoted("formats") << ": [";
    for (const State& state : states) {
        std::cout << (&state == &states.front() ? "\n " : ",\n ");
        printState(state);
    }
    std::cout << "]}\n";
}
