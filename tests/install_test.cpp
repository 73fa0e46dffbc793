// Whole runs that nothing disturbs: installs, upgrades, removals, and what preflight refuses.

#include <sys/stat.h>

#include "harness.h"
#include "transaction/backup.h"

namespace fs = std::filesystem;

[[maybe_unused]] static const Ended ready = {0, "READY: verified package; no files changed\n", ""};
[[maybe_unused]] static const std::string loaded =
    "Plugin is loaded or load check unavailable; save/close hosts first";

static Files hd(const std::string& content) {
    return {{"VST3/MarbrelHD.vst3/Contents/MacOS/MarbrelHD", content},
            {"VST3/MarbrelHD.vst3/Contents/Info.plist", "info " + content}};
}

[[maybe_unused]] static Files low(const std::string& content) {
    return {{"VST3/MarbrelLowCPU.vst3/Contents/MacOS/MarbrelLowCPU", content}};
}

[[maybe_unused]] static Files au(const std::string& content) {
    return {{"Components/MarbrelHDAU.component/Contents/MacOS/MarbrelHDAU", content}};
}

[[maybe_unused]] static Files quellotrone(const std::string& content) {
    return {{"VST3/Quellotrone.vst3/Contents/MacOS/Quellotrone", content}};
}

class Install : public Studio {
  protected:
    // Runs the tool on a package with "r" as test root.
    Ended on(const std::string& package, const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments = {"--package", package, "--test-root", "r"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return tool(arguments);
    }

    // Runs it to a good end and gives the transaction directory that it names.
    fs::path done(const std::string& package, const std::vector<std::string>& options = {}) const {
        const Ended ended = on(package, options);
        const std::string head =
            options.empty() ? "INSTALLED; rollback backup: " : "REMOVED to backup: ";
        EXPECT_EQ(ended.status, 0) << ended;
        EXPECT_EQ(ended.out.find(head + support().string() + "/Backups/"), 0) << ended;
        EXPECT_EQ(ended.err, "");
        return ended.out.substr(head.size(), ended.out.size() - head.size() - 1);
    }

    fs::path support() const {
        return dir / "r/support";
    }
    fs::path plugins() const {
        return dir / "r/plugins";
    }
    std::map<std::string, std::string> payload(const std::string& package) const {
        return disk(dir / package / "payload");
    }
};

TEST_F(Install, TellsWhatItMayNotRead) {
    const fs::path bundle = package("p", "Marbrel", hd("1")) / "payload/VST3/MarbrelHD.vst3";
    const auto ended = [this](const fs::path& path, unsigned mode) {
        const auto before = fs::status(path).permissions();
        fs::permissions(path, fs::perms(mode));
        const Ended result = tool({"--package", "p", "--dry-run"}, dropprivileges);
        fs::permissions(path, before);
        return result;
    };
    const fs::path file = bundle / "Contents/MacOS/MarbrelHD";
    EXPECT_EQ(ended(file, 0), failed("Cannot read " + file.string()));
    EXPECT_EQ(ended(dir / "p/CONTENTS.sha256", 0),
              failed("Manifest missing: " + (dir / "p/CONTENTS.sha256").string()));
    EXPECT_EQ(ended(dir / "p/PRODUCT.txt", 0), failed("Unknown product"));
    // Neither listed nor, though listed, searched.
    for (const unsigned mode : {0311U, 0444U}) {
        const Ended result = ended(bundle / "Contents/MacOS", mode);
        EXPECT_EQ(result.status, 3);
        EXPECT_TRUE(result.err.starts_with("filesystem error")) << result;
    }
}

TEST_F(Install, NoTwoRunsShareATransactionDirectory) {
    const fs::path tx = opentx(dir / "s", "Marbrel", -12);
    EXPECT_EQ(tx, dir / "s/Backups/Marbrel--12");
    EXPECT_EQ(failure([&] { opentx(dir / "s", "Marbrel", -12); }),
              "Backup transaction already exists");
    EXPECT_EQ(opentx(dir / "s", "Quellotrone", -12).filename(), "Quellotrone--12");
    write(dir / "s/Backups/Marbrel-5", "kept");
    EXPECT_NE(failure([&] { opentx(dir / "s", "Marbrel", 5); }), "");
    EXPECT_EQ(slurp(dir / "s/Backups/Marbrel-5"), "kept");
    fs::rename(dir / "s/Backups", dir / "elsewhere");
    fs::create_directory_symlink("../elsewhere", dir / "s/Backups");
    EXPECT_EQ(failure([&] { opentx(dir / "s", "Marbrel", 6); }),
              "Symlink path refused: " + (dir / "s/Backups").string());
}
