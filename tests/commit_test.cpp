// Runs that go wrong between preflight and their end. The stand-in for lsof, asked once for each
// bundle in preflight and once in the commit, changes the disk at exactly these moments.

#include <algorithm>

#include "harness.h"

namespace fs = std::filesystem;

class Commit : public Studio {
  protected:
    Commit() {
        for (const std::string version : {"1", "2"})
            package(version, "Marbrel",
                    {{"VST3/MarbrelHD.vst3/Contents/MacOS/a", "hd " + version},
                     {"VST3/MarbrelLowCPU.vst3/Contents/MacOS/a", "low " + version}});
    }

    fs::path plugins() const {
        return dir / "r/plugins";
    }
    fs::path receipt() const {
        return dir / "r/support/Marbrel-VST3.sha256";
    }

    // The transaction directory of the last run.
    fs::path tx() const {
        fs::path last;
        for (const auto& entry : fs::directory_iterator(dir / "r/support/Backups"))
            last = std::max(last, entry.path());
        return last;
    }

    // Every bundle that stands in one of a transaction directory's areas.
    std::string bundles(const std::string& area) const {
        std::string names;
        for (const auto& [path, entry] : disk(tx() / area))
            if (std::count(path.begin(), path.end(), '/') == 1 && path.starts_with("VST3/"))
                names += path.find("HD") == std::string::npos ? "Low " : "HD ";
        return names;
    }
};

TEST_F(Commit, PutsBackWhatStoodThereAfterAnyFailure) {
    const std::string words =
        "t=$(echo r/support/Backups/Marbrel-*); t=${t##* }; s=$t/staged/VST3; receipt=r/support/"
        "Marbrel-VST3.sha256; p=r/plugins/VST3; payload=2/payload/VST3; HD=MarbrelHD.vst3; "
        "Low=MarbrelLowCPU.vst3; undo() { echo \"rm $1\" >undo; }; ";
    const std::string mismatch = "Installed readback mismatch";
    const std::string stale = "Stale transaction receipt preserved; contact support";
    const std::string link = "Symlink path refused: " + receipt().string() + ".tmp";
    const struct {
        int call;  // 1 and 2 come in preflight, 3 and 4 in the commit
        std::string change;
        bool remove;
        std::string message;  // empty: the library's words
        std::string failed;   // what must stand in the area of that name
        std::string staged;   // and in this one
    } cases[] = {
        // Before the commit region: the backup and the staged copy.
        {2, "echo >$p/$HD/x; undo $p/$HD/x", false, "Backup verification failed", "", ""},
        {2, "echo >$p/$Low/x; undo $p/$Low/x", true, "Backup verification failed", "", ""},
        {2, "echo >$payload/$Low/x", false, "Stage verification failed", "", "HD Low "},
        {2, "mkfifo $payload/$Low/x", false, "", "", "HD Low "},
        // Inside: each step of each bundle.
        {3, "exit 0", false, loaded, "", "HD Low "},
        {4, "exit 0", false, loaded, "HD ", "Low "},
        {4, "exit 0", true, loaded, "", ""},
        {4, "echo >$p/$Low/x; undo $p/$Low/x", false, "Plugin changed during transaction", "HD ",
         "Low "},
        {4, "ln -s no $p/$Low/x; undo $p/$Low/x", true, "Symlink member refused", "", ""},
        {4, "mkdir -p $t/original/VST3/$Low/x", false, "", "HD ", "Low "},
        {4, "mv $s/$Low gone", false, "", "HD ", ""},
        {3, "echo >$s/$Low/x", false, mismatch, "HD Low ", ""},
        {3, "echo >$s/$HD/x", false, mismatch, "HD ", "Low "},
        {4, "ln -s no $s/$Low/x", false, "Symlink member refused", "HD Low ", ""},
        // The receipt.
        {4, "echo >$receipt.tmp", false, stale, "HD Low ", ""},
        {4, "ln -s no $receipt.tmp", false, link, "HD Low ", ""},
        {4, "mkdir $t/previous-receipt.sha256", false, "", "HD Low ", ""},
        {4, "mkdir $t/removed-receipt.sha256", true, "", "", ""},
        {4, "echo >$t/previous-receipt.sha256; exit 0", false, loaded, "HD ", "Low "},
    };
    ASSERT_EQ(tool({"--package", "1", "--test-root", "r"}).status, 0);
    sh("cp -R 2 2.clean");
    for (const auto& [call, change, remove, message, failedarea, stagedarea] : cases) {
        sh("rm -rf 2 undo r/support/*.tmp; cp -R 2.clean 2; echo : >undo");
        lsof({{call, words + change}});
        const auto before = disk(plugins());
        const std::string receiptbefore = slurp(receipt());
        std::vector<std::string> arguments = {"--package", "2", "--test-root", "r"};
        if (remove) arguments.emplace_back("--remove");
        const Ended ended = tool(arguments);
        const Ended expected = {3, "", message.empty() ? ended.err : message + '\n'};
        EXPECT_EQ(ended, expected) << change;
        EXPECT_EQ(ended.err.starts_with("filesystem error"), message.empty()) << change << ended;
        sh(slurp(dir / "undo"));
        EXPECT_EQ(disk(plugins()), before) << change;
        EXPECT_EQ(slurp(receipt()), receiptbefore) << change;
        EXPECT_EQ(bundles("failed"), failedarea) << change;
        EXPECT_EQ(bundles("staged"), stagedarea) << change;
        EXPECT_EQ(fs::is_regular_file(tx() / "previous-receipt.sha256"),
                  change.starts_with("echo >$t/previous"))
            << change;
    }
}

TEST_F(Commit, LeavesAnEmptyDestinationEmpty) {
    // Only the first bundle is installed; the second appears or fails.
    const Files half = {{"VST3/MarbrelHD.vst3/Contents/MacOS/a", "hd 1"}};
    package("half", "Marbrel", half);
    const fs::path dest = plugins() / "VST3/MarbrelLowCPU.vst3";
    ASSERT_EQ(tool({"--package", "half", "--test-root", "r"}).status, 0);
    const auto before = disk(plugins());
    for (const bool remove : {false, true}) {
        lsof({{2, "mkdir r/plugins/VST3/MarbrelLowCPU.vst3"}});
        std::vector<std::string> arguments = {"--package", "2", "--test-root", "r"};
        if (remove) arguments.emplace_back("--remove");
        EXPECT_EQ(tool(arguments), failed("New destination appeared"));
        EXPECT_TRUE(fs::remove(dest));
        EXPECT_EQ(disk(plugins()), before);
    }
    lsof({{2, "echo x >r/plugins/VST3/MarbrelLowCPU.vst3"}});
    EXPECT_TRUE(tool({"--package", "2", "--test-root", "r"}).err.starts_with("filesystem error"));
    EXPECT_EQ(slurp(dest), "x\n");
    fs::remove(dest);
    lsof({{2,
           "echo x >>r/support/Backups/$(ls r/support/Backups | tail -n 1)/"
           "staged/VST3/MarbrelLowCPU.vst3/Contents/MacOS/a"}});
    EXPECT_EQ(tool({"--package", "2", "--test-root", "r"}), failed("Installed readback mismatch"));
    EXPECT_EQ(disk(plugins()), before);

    // A file in the place of the format's directory: nothing is installed there, nor can it be.
    fs::remove_all(plugins());
    write(plugins() / "VST3", "x");
    lsof();
    EXPECT_TRUE(tool({"--package", "2", "--test-root", "r"}).err.starts_with("filesystem error"));
    EXPECT_EQ(slurp(plugins() / "VST3"), "x");
    EXPECT_EQ(tool({"--package", "2", "--test-root", "r", "--remove"}).status, 0);
}

TEST_F(Commit, ReportsTheFailureOfItsRollbackAndLosesNothing) {
    ASSERT_EQ(tool({"--package", "1", "--test-root", "r"}).status, 0);
    // The second is loaded, and an obstacle stands where the first new bundle has to go.
    lsof({{4,
           "t=r/support/Backups/$(ls r/support/Backups | tail -n 1); echo x >$t/failed; exit 0"}});
    const Ended ended = tool({"--package", "2", "--test-root", "r"});
    EXPECT_EQ(ended.status, 3);
    EXPECT_TRUE(ended.err.starts_with("filesystem error")) << ended;
    EXPECT_EQ(slurp(plugins() / "VST3/MarbrelHD.vst3/Contents/MacOS/a"), "hd 2");
    EXPECT_EQ(slurp(plugins() / "VST3/MarbrelLowCPU.vst3/Contents/MacOS/a"), "low 1");
    EXPECT_EQ(slurp(tx() / "original/VST3/MarbrelHD.vst3/Contents/MacOS/a"), "hd 1");
    EXPECT_EQ(bundles("staged"), "Low ");
    EXPECT_EQ(slurp(receipt()), slurp(dir / "1/CONTENTS.sha256"));
}

TEST_F(Commit, ARemovalDoesNotMindAStaleTemporaryReceipt) {
    ASSERT_EQ(tool({"--package", "1", "--test-root", "r"}).status, 0);
    write(receipt().string() + ".tmp", "stale");
    EXPECT_EQ(tool({"--package", "1", "--test-root", "r", "--remove"}).status, 0);
    EXPECT_EQ(slurp(receipt().string() + ".tmp"), "stale");
    EXPECT_EQ(tool({"--package", "1", "--test-root", "r"}),
              failed("Stale transaction receipt preserved; contact support"));
    EXPECT_TRUE(fs::is_empty(plugins() / "VST3"));
    EXPECT_FALSE(fs::exists(receipt()));
}
