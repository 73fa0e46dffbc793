#include <iostream>
#include <stdexcept>

#include "cli/options.h"
#include "install/locations.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/signals.h"
#include "repair/history.h"

namespace fs = std::filesystem;

static void tellpath(const char* what, const fs::path& path) {
    if (stands(path)) std::cout << what << path.native() << '\n';
}

// `package` is what the transaction brings, as far as that is known.
static const char* stateof(const Transaction& last, const BundleKey& key, const fs::path& dest,
                           const Manifest& package) {
    if (!stands(dest)) return "absent";
    const Manifest now = readorempty(tree, dest);
    const bool moved = last.moved.contains(key);
    if (!moved && now == readorempty(tree, last.directory / "verified-backup" / key)) return "old";
    const Manifest brought = sub(package, key);
    const bool known = now == brought || (brought.empty() && !now.empty());
    return moved && !last.removal && known ? "new" : "changed since";
}

static void tellstates(const History& history, const Transaction& last) {
    tellpath(last.removal ? "  a removal: " : "  an install: ", last.directory);
    const Manifest package =
        readorempty(read, last.newReceipt ? history.receipt : history.temporary);
    for (const BundleKey& key : last.bundles) {
        const fs::path dest = target(history.testRoot, key);
        std::cout << "  " << key << " in place: " << stateof(last, key, dest, package) << '\n';
        const fs::path original = last.directory / "original" / key;
        const bool gone = last.moved.contains(key) && !stands(original);
        tellpath("    the old one: ", gone ? last.directory / "verified-backup" / key : original);
        for (const char* const area : {"staged", "failed", "repaired"})
            tellpath("    the new one: ", last.directory / area / key);
    }
    const char* const receipt = !stands(history.receipt)   ? "absent"
                                : last.newReceipt          ? "new"
                                : !stands(last.oldReceipt) ? "old"
                                                           : "changed since";
    std::cout << "  receipt in place: " << receipt << '\n';
    tellpath("    the old one: ", last.oldReceipt);
}

// Gives what to do, nothing if nothing is interrupted. Unless asked, it leaves out what has left no
// trace.
static std::string tell(const History& history, bool asked) {
    const bool stale = stands(history.temporary);
    if (!asked && !stale && !history.last && history.passed.empty() && !stands(history.receipt))
        return "";
    std::cout << history.product << ' ' << history.format << ": "
              << (!history.last               ? "no transaction to go back to"
                  : history.last->interrupted ? "a run was interrupted"
                                              : "the last run has finished")
              << '\n';
    if (history.last) tellstates(history, *history.last);
    tellpath("  left by an interrupted run: ", history.temporary);
    for (const fs::path& tx : history.passed)
        tellpath(stands(tx / "original") || stands(tx / "failed") || stands(tx / "repaired")
                     ? "  passed over, undone: "
                     : "  passed over, changed nothing: ",
                 tx);
    if (!stale && !(history.last && history.last->interrupted)) return "";
    if (!history.last && history.passed.empty()) return "Move that file away by hand\n";
    const std::string& root = history.testRoot.native();
    return "Close all hosts and type: orvelline-repair" +
           (root.empty() ? "" : " --test-root '" + root + "'") + " --product " + history.product +
           " --format " + history.format + " --back\n";
}

// Gives whether something is interrupted in the end.
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
    std::string advice;
    for (const std::string one : {"Marbrel", "Quellotrone"})
        for (const std::string other : {"VST3", "Components"})
            if (all || (one == product && other == format))
                advice += tell(survey(testRoot, one, other), !all);
    std::cout << (advice.empty() ? "Nothing needs to be done\n" : advice);
    return !advice.empty();
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
