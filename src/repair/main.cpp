#include <algorithm>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "cli/options.h"
#include "package/safe.h"
#include "platform/signals.h"
#include "repair/back.h"
#include "repair/history.h"

namespace fs = std::filesystem;

static void tellPath(const char* what, const fs::path& path) {
    if (stands(path)) std::cout << what << path.native() << '\n';
}

static bool differs(const Bundle& bundle) {
    return !bundle.listed.empty() && bundle.listed != bundle.inPlace;
}

// `own` tells whether the receipt in place is whole and the run's own.
static const char* stateOf(const Bundle& bundle, bool own) {
    if (!stands(bundle.place)) return "absent";
    const bool listed = same(bundle.inPlace, bundle.listed);
    if (own) return listed ? "as this run brought it" : "changed since";
    if (listed || same(bundle.inPlace, bundle.inBackup)) return "as before this run";
    return bundle.movedIn && !bundle.inPlace.empty() ? "not proved" : "changed since";
}

static void tellRun(const History& history, const Run& run) {
    const bool own = run.ownReceipt && !history.damaged;
    tellPath(run.removal ? "  a removal: " : "  an install: ", run.directory);
    for (const Bundle& bundle : run.bundles) {
        if (bundle.listed.empty() && !stands(bundle.backup) && !bundle.notInstalled &&
            !bundle.takenBack && !bundle.movedOut && !bundle.movedIn)
            continue;
        std::cout << "  " << bundle.key << " in place: " << stateOf(bundle, own) << '\n';
        const bool lost = bundle.movedOut && !stands(bundle.original);
        tellPath("    the old one: ", lost ? bundle.backup : bundle.original);
        for (const char* const area : {"staged", "failed", "repaired"})
            tellPath("    the new one: ", run.directory / area / bundle.key);
    }
    std::cout << "  receipt in place: "
              << (!stands(history.receipt)  ? "absent\n"
                  : history.damaged         ? "damaged\n"
                  : run.ownReceipt          ? "as this run brought it\n"
                  : !stands(run.oldReceipt) ? "as before this run\n"
                                            : "changed since\n");
    tellPath("    the old one: ", run.oldReceipt);
}

static void tell(const History& history) {
    std::cout << history.product << ' ' << history.format
              << (!history.last               ? ": no transaction to go back to\n"
                  : history.last->interrupted ? ": a run was interrupted\n"
                  : history.last->asBefore    ? ": the last run left all as it was\n"
                                              : ": the last run has finished\n");
    if (history.last) {
        tellRun(history, *history.last);
    } else {
        for (const Bundle& bundle : history.bundles)
            if (differs(bundle))
                std::cout << "  " << bundle.key << " in place: " << stateOf(bundle, false) << '\n';
        if (history.damaged) std::cout << "  receipt in place: damaged\n";
    }
    tellPath("  left by an interrupted run: ", history.temporary);
    for (const fs::path& run : history.passed)
        tellPath(stands(run / "failed") || stands(run / "repaired" / history.format)
                     ? "  passed over, undone: "
                     : "  passed over, changed nothing: ",
                 run);
}

// Gives a line of what is to be done, or nothing if nothing is interrupted or damaged.
static std::string advice(const History& history) {
    const bool stale = stands(history.temporary);
    if (stale && history.newest.empty()) return "Move that file away by hand\n";
    if (stale || (history.last && history.last->interrupted)) {
        std::string root = history.testRoot.native();
        // A quote in the path would end the text for the shell.
        for (auto at = root.find('\''); at != std::string::npos; at = root.find('\'', at + 4))
            root.replace(at, 1, R"('\'')");
        return "Close all hosts and type: orvelline-repair" +
               (root.empty() ? "" : " --test-root '" + root + "'") + " --product " +
               history.product + " --format " + history.format + " --back\n";
    }
    if (!history.damaged) return "";
    return "Move the damaged receipt away by hand, and install the installed version again: " +
           history.receipt.native() + '\n';
}

// Gives whether something is interrupted or damaged in the end.
static bool repair(int argc, char** argv) {
    fs::path testRoot;
    std::string product;
    std::string format;
    bool back = false;
    takeOptions(argc, argv,
                {{"--test-root", [&](const char* value) { testRoot = absoluteForm(value); }},
                 {"--product", [&](const char* value) { product = value; }},
                 {"--format", [&](const char* value) { format = value; }}},
                {{"--back", &back}});
    const bool all = product.empty() && format.empty();
    if (all ? back : product.empty() || format.empty())
        throw std::runtime_error("Product and format required");
    if (!all) checkProduct(product);
    if (!all) checkFormat(format);
    if (back) goBack(survey(testRoot, product, format));
    std::vector<History> histories;
    for (const std::string_view one : products)
        for (const std::string_view other : formats)
            if (all || (one == product && other == format))
                histories.push_back(survey(testRoot, std::string(one), std::string(other)));
    std::string todo;
    bool changed = false;
    for (const History& history : histories) {
        // Unless it was asked for, what has left no trace is left out.
        if (!all || !history.newest.empty() || stands(history.receipt) || stands(history.temporary))
            tell(history);
        todo += advice(history);
        changed = changed || std::any_of(history.bundles.begin(), history.bundles.end(), differs);
    }
    std::cout << (!todo.empty() ? todo
                  : changed     ? "A bundle is absent or changed since: move what is changed to a "
                                  "place of your own, and install its package again\n"
                                : "Nothing needs to be done\n");
    return !todo.empty();
}

int main(int argc, char** argv) {
    blockWriteSignals();
    try {
        return repair(argc, argv) ? 1 : 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 3;
    }
}
