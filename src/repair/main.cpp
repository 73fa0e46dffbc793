#include <exception>
#include <iostream>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "cli/options.h"
#include "install/locations.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/signals.h"
#include "repair/back.h"
#include "repair/history.h"

namespace fs = std::filesystem;

static void tellpath(const char* what, const fs::path& path) {
    if (stands(path)) std::cout << what << path.native() << '\n';
}

static const char* stateof(const Run& run, const Bundle& bundle, const Manifest& receipt) {
    if (!stands(bundle.place)) return "absent";
    if (bundle.now.empty()) return "changed since";
    const bool listed = bundle.now == sub(receipt, bundle.key);
    if (run.ownReceipt && !receipt.empty())
        return listed ? "as this run brought it" : "changed since";
    if (listed || bundle.now == bundle.saved) return "as before this run";
    const bool moved = bundle.taken || bundle.brought;
    return moved && !bundle.waiting && !bundle.aside && !run.removal ? "not proved"
                                                                     : "changed since";
}

static void tellbundle(const Run& run, const Bundle& bundle, const Manifest& receipt) {
    if (!bundle.waiting && !bundle.aside && !bundle.taken && !bundle.brought &&
        !stands(bundle.backup) && sub(receipt, bundle.key).empty())
        return;
    std::cout << "  " << bundle.key << " in place: " << stateof(run, bundle, receipt) << '\n';
    const bool gone = bundle.taken && !stands(bundle.original);
    tellpath("    the old one: ", gone ? bundle.backup : bundle.original);
    for (const char* const area : {"staged", "failed", "repaired"})
        tellpath("    the new one: ", run.directory / area / bundle.key);
}

static void tellrun(const History& history, const Run& run, const Manifest& receipt) {
    tellpath(run.removal ? "  a removal: " : "  an install: ", run.directory);
    for (const Bundle& bundle : run.bundles) tellbundle(run, bundle, receipt);
    const char* const state = !stands(history.receipt)  ? "absent"
                              : receipt.empty()         ? "damaged"
                              : run.ownReceipt          ? "as this run brought it"
                              : !stands(run.oldReceipt) ? "as before this run"
                                                        : "changed since";
    std::cout << "  receipt in place: " << state << '\n';
    tellpath("    the old one: ", run.oldReceipt);
}

// Gives the bundles that the receipt lists and that are not in place as it lists them.
static std::set<BundleKey> differing(const History& history, const Manifest& receipt) {
    std::set<BundleKey> bundles = knownbundles(history.product, history.format);
    std::erase_if(bundles, [&](const BundleKey& key) {
        const Manifest listed = sub(receipt, key);
        return listed.empty() || listed == readorempty(tree, target(history.testRoot, key));
    });
    return bundles;
}

static const char* outcomeof(const History& history) {
    if (!history.last) return "no transaction to go back to";
    if (history.last->interrupted) return "a run was interrupted";
    return history.last->asBefore ? "the last run left all as it was" : "the last run has finished";
}

// What is to be done in the end.
struct Advice {
    std::string lines;     // where something is interrupted or damaged
    bool differs = false;  // a bundle is not as its receipt lists it
};

static void advise(const History& history, bool damaged, Advice& advice) {
    const bool stale = stands(history.temporary);
    if (stale && history.newest.empty()) {
        advice.lines += "Move that file away by hand\n";
    } else if (stale || (history.last && history.last->interrupted)) {
        // A quote in the path would end the text for the shell.
        const std::string root =
            std::regex_replace(history.testRoot.native(), std::regex("'"), R"('\'')");
        advice.lines += "Close all hosts and type: orvelline-repair" +
                        (root.empty() ? "" : " --test-root '" + root + "'") + " --product " +
                        history.product + " --format " + history.format + " --back\n";
    } else if (damaged) {
        advice.lines +=
            "Move the damaged receipt away by hand, and install the installed version "
            "again: " +
            history.receipt.native() + '\n';
    }
}

// Unless asked, it leaves out what has left no trace.
static void tell(const History& history, bool asked, Advice& advice) {
    if (!asked && !stands(history.temporary) && !history.last && history.passed.empty() &&
        !stands(history.receipt))
        return;
    const Manifest receipt = readorempty(read, history.receipt);
    const std::set<BundleKey> others = differing(history, receipt);
    const bool damaged = stands(history.receipt) && receipt.empty();
    std::cout << history.product << ' ' << history.format << ": " << outcomeof(history) << '\n';
    if (history.last) {
        tellrun(history, *history.last, receipt);
    } else {
        for (const BundleKey& key : others)
            std::cout << "  " << key << " in place: "
                      << (stands(target(history.testRoot, key)) ? "changed since\n" : "absent\n");
        if (damaged) std::cout << "  receipt in place: damaged\n";
    }
    tellpath("  left by an interrupted run: ", history.temporary);
    for (const fs::path& run : history.passed)
        tellpath(stands(run / "failed") || stands(run / "repaired" / history.format)
                     ? "  passed over, undone: "
                     : "  passed over, changed nothing: ",
                 run);
    advise(history, damaged, advice);
    advice.differs = advice.differs || !others.empty();
}

// Gives whether something is interrupted or damaged in the end.
static bool repair(int argc, char** argv) {
    fs::path testRoot;
    std::string product;
    std::string format;
    bool back = false;
    takeoptions(argc, argv,
                {{"--test-root", [&](const char* value) { testRoot = absoluteform(value); }},
                 {"--product", [&](const char* value) { product = value; }},
                 {"--format", [&](const char* value) { format = value; }}},
                {{"--back", &back}});
    const bool all = product.empty() && format.empty();
    if (all ? back : product.empty() || format.empty())
        throw std::runtime_error("Product and format required");
    if (!all) checkproduct(product);
    if (!all) checkformat(format);
    if (back) goback(survey(testRoot, product, format));
    std::vector<History> histories;
    for (const std::string_view one : products)
        for (const std::string_view other : formats)
            if (all || (one == product && other == format))
                histories.push_back(survey(testRoot, std::string(one), std::string(other)));
    Advice advice;
    for (const History& history : histories) tell(history, !all, advice);
    if (advice.lines.empty())
        std::cout << (advice.differs ? "A bundle is absent or changed since: move what is changed "
                                       "to a place of your own, and install its package again\n"
                                     : "Nothing needs to be done\n");
    std::cout << advice.lines;
    return !advice.lines.empty();
}

int main(int argc, char** argv) {
    blockwritesignals();
    try {
        return repair(argc, argv) ? 1 : 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 3;
    }
}
