#include "cli/run.h"

#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "cli/options.h"
#include "install/locations.h"
#include "install/preflight.h"
#include "package/identity.h"
#include "package/manifest.h"
#include "package/safe.h"
#include "platform/signals.h"
#include "transaction/backup.h"
#include "transaction/commit.h"
#include "transaction/receipt.h"
#include "transaction/rollback.h"
#include "transaction/staging.h"

void run(int argc, char** argv) {
    const auto [package, testRoot, remove, dryRun] = scan(argc, argv);
    safe(package);
    const Manifest manifest = read(package / "CONTENTS.sha256");
    const std::set<BundleKey> bundles = bundlesof(manifest);
    const std::string product = productof(package);
    checkoneproduct(bundles, product);
    const std::filesystem::path support = supportdir(testRoot);
    safe(support);
    const std::string format = oneformat(bundles);
    const std::filesystem::path receiptPath = receiptpath(support, product, format);
    const Manifest receiptManifest = stands(receiptPath) ? read(receiptPath) : Manifest();
    const CapturedTrees captured = preflight(package, testRoot, manifest, bundles, receiptManifest);

    if (dryRun) {
        std::cout << "READY: verified package; no files changed\n";
        return;
    }

    const std::filesystem::path tx = opentx(support, product);
    backup(testRoot, captured, tx);
    if (!remove) stage(package, manifest, bundles, tx);

    // Room for both lists now: inside the region no append may fail behind a rename.
    std::vector<BundleKey> moved;
    std::vector<BundleKey> installed;
    moved.reserve(bundles.size());
    installed.reserve(bundles.size());
    blockstops();
    try {
        commit(testRoot, remove, manifest, bundles, captured, tx, moved, installed);
        if (remove) {
            removereceipt(receiptPath, tx);
        } else {
            writereceipt(manifest, receiptPath, tx);
        }
    } catch (...) {
        rollback(testRoot, receiptPath, tx, moved, installed);
        throw;
    }

    const char* const finalText = remove ? "REMOVED to backup: " : "INSTALLED; rollback backup: ";
    std::cout << finalText << tx.native() << '\n';
}
