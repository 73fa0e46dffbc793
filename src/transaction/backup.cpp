#include "transaction/backup.h"

#include <charconv>
#include <chrono>
#include <functional>
#include <map>
#include <stdexcept>

#include "install/locations.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/walk.h"
#include "transaction/copytree.h"

std::filesystem::path opentx(const std::filesystem::path& support, const std::string& product) {
    std::filesystem::create_directories(support);
    const auto ticks = std::chrono::system_clock::now().time_since_epoch().count();
    std::filesystem::path tx = support / "Backups" / (product + '-' + std::to_string(ticks));
    safe(tx);
    if (!std::filesystem::create_directories(tx))
        throw std::runtime_error("Backup transaction already exists");
    return tx;
}

// Gives whether a name is that of a transaction directory of the product, and its ticks.
static bool ticksof(const std::string& name, const std::string& product, long long& ticks) {
    const char* const end = name.data() + name.size();
    if (!name.starts_with(product + '-')) return false;
    const auto [rest, error] = std::from_chars(name.data() + product.size() + 1, end, ticks);
    return rest == end && error == std::errc();
}

// The format is not in a transaction directory's name.
static bool holds(const std::filesystem::path& tx, const std::string& format) {
    for (const char* const area : {"verified-backup", "staged", "original", "failed"})
        if (stands(tx / area / format)) return true;
    const Manifest removed = readorempty(read, tx / "removed-receipt.sha256");
    return !removed.empty() && removed.begin()->first.starts_with(format + '/');
}

std::vector<std::filesystem::path> transactions(const std::filesystem::path& support,
                                                const std::string& product,
                                                const std::string& format) {
    const std::filesystem::path backups = support / "Backups";
    std::map<long long, std::filesystem::path, std::greater<>> sorted;
    if (stands(backups))
        for (const std::string& name : names(backups))
            if (long long ticks = 0; ticksof(name, product, ticks) && holds(backups / name, format))
                sorted.emplace(ticks, backups / name);
    std::vector<std::filesystem::path> newest;
    newest.reserve(sorted.size());
    for (const auto& [order, tx] : sorted) newest.push_back(tx);
    return newest;
}

void backup(const Work& work) {
    for (const auto& [key, found] : work.captured) {
        const std::filesystem::path copy = work.tx / "verified-backup" / key;
        copyTree(target(work.testRoot, key), copy);
        if (tree(copy) != found) throw std::runtime_error("Backup verification failed");
    }
}
