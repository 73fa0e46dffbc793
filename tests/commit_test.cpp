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
                names += path.substr(5, path.find('.') - 5) + ' ';
        return names;
    }
};

TEST_F(Commit, PutsBackWhatStoodThereAfterAnyFailure) {
    // The pieces run in the test's directory: calls 1 and 2 in preflight, 3 and 4 in the commit.
    const std::string cd = "t=$(echo r/support/Backups/Marbrel-*); t=${t##* }; p=r/plugins/VST3; ";
    const std::string loaded = "Plugin is loaded or load check unavailable; save/close hosts first";
    const struct {
        std::string name;
        bool remove;
        std::map<int, std::string> calls;
        std::string message;  // empty: the library's words
        std::string failed;   // what must stand in the area of that name
        std::string staged;   // and in this one
    } cases[] = {
        // Before the commit region: the backup and the staged copy.
        {"bundle changes before its backup",
         false,
         {{2, "echo x >$p/MarbrelHD.vst3/x; echo $p/MarbrelHD.vst3/x >undo"}},
         "Backup verification failed",
         "",
         ""},
        {"bundle changes before its backup, removal",
         true,
         {{2, "echo x >$p/MarbrelLowCPU.vst3/x; echo $p/MarbrelLowCPU.vst3/x >undo"}},
         "Backup verification failed",
         "",
         ""},
        {"payload changes before staging",
         false,
         {{2, "echo x >2/payload/VST3/MarbrelLowCPU.vst3/x"}},
         "Stage verification failed",
         "",
         "MarbrelHD MarbrelLowCPU "},
        {"payload gains a FIFO before staging",
         false,
         {{2, "mkfifo 2/payload/VST3/MarbrelLowCPU.vst3/x"}},
         "",
         "",
         "MarbrelHD MarbrelLowCPU "},
        // Inside: each step of each bundle.
        {"first is loaded", false, {{3, "exit 0"}}, loaded, "", "MarbrelHD MarbrelLowCPU "},
        {"second is loaded", false, {{4, "exit 0"}}, loaded, "MarbrelHD ", "MarbrelLowCPU "},
        {"second is loaded, removal", true, {{4, "exit 0"}}, loaded, "", ""},
        {"second changed",
         false,
         {{4, "echo x >$p/MarbrelLowCPU.vst3/x; echo $p/MarbrelLowCPU.vst3/x >undo"}},
         "Plugin changed during transaction",
         "MarbrelHD ",
         "MarbrelLowCPU "},
        {"second gained a link",
         true,
         {{4, "ln -s nothing $p/MarbrelLowCPU.vst3/x; echo $p/MarbrelLowCPU.vst3/x >undo"}},
         "Symlink member refused",
         "",
         ""},
        {"no room in original",
         false,
         {{4,
           "mkdir $t/original/VST3/MarbrelLowCPU.vst3; echo x "
           ">$t/original/VST3/MarbrelLowCPU.vst3/x"}},
         "",
         "MarbrelHD ",
         "MarbrelLowCPU "},
        {"staged copy gone",
         false,
         {{4, "mv $t/staged/VST3/MarbrelLowCPU.vst3 gone"}},
         "",
         "MarbrelHD ",
         ""},
        {"staged copy damaged",
         false,
         {{3, "echo x >$t/staged/VST3/MarbrelLowCPU.vst3/x"}},
         "Installed readback mismatch",
         "MarbrelHD MarbrelLowCPU ",
         ""},
        {"first staged copy damaged",
         false,
         {{3, "echo x >$t/staged/VST3/MarbrelHD.vst3/x"}},
         "Installed readback mismatch",
         "MarbrelHD ",
         "MarbrelLowCPU "},
        {"staged copy gained a link",
         false,
         {{4, "ln -s nothing $t/staged/VST3/MarbrelLowCPU.vst3/x"}},
         "Symlink member refused",
         "MarbrelHD MarbrelLowCPU ",
         ""},
        // The receipt.
        {"stale temporary receipt",
         false,
         {{4, "echo s >r/support/Marbrel-VST3.sha256.tmp"}},
         "Stale transaction receipt preserved; contact support",
         "MarbrelHD MarbrelLowCPU ",
         ""},
        {"temporary receipt is a link",
         false,
         {{4, "ln -s nothing r/support/Marbrel-VST3.sha256.tmp"}},
         "Symlink path refused: " + (dir / "r/support/Marbrel-VST3.sha256.tmp").string(),
         "MarbrelHD MarbrelLowCPU ",
         ""},
        {"no way for the old receipt",
         false,
         {{4, "mkdir $t/previous-receipt.sha256"}},
         "",
         "MarbrelHD MarbrelLowCPU ",
         ""},
        {"no way for the old receipt, removal",
         true,
         {{4, "mkdir $t/removed-receipt.sha256"}},
         "",
         "",
         ""},
    };
    ASSERT_EQ(tool({"--package", "1", "--test-root", "r"}).status, 0);
    fs::copy(dir / "2", dir / "2.clean", fs::copy_options::recursive);
    for (const auto& [name, remove, calls, message, failedarea, stagedarea] : cases) {
        fs::remove_all(dir / "2");
        fs::copy(dir / "2.clean", dir / "2", fs::copy_options::recursive);
        fs::remove(receipt().string() + ".tmp");
        auto pieces = calls;
        for (auto& [number, piece] : pieces) piece = cd + piece;
        lsof(pieces);
        const auto before = disk(plugins());
        const std::string receiptbefore = slurp(receipt());
        std::vector<std::string> arguments = {"--package", "2", "--test-root", "r"};
        if (remove) arguments.emplace_back("--remove");
        const Ended ended = tool(arguments);
        if (message.empty()) {
            EXPECT_EQ(ended.status, 3) << name;
            EXPECT_EQ(ended.out, "") << name;
            EXPECT_TRUE(ended.err.starts_with("filesystem error")) << name << ended;
        } else {
            EXPECT_EQ(ended, failed(message)) << name;
        }
        if (fs::exists(dir / "undo")) {
            std::string undo = slurp(dir / "undo");
            undo.pop_back();
            EXPECT_TRUE(fs::remove(dir / undo)) << name;
            fs::remove(dir / "undo");
        }
        EXPECT_EQ(disk(plugins()), before) << name;
        EXPECT_EQ(slurp(receipt()), receiptbefore) << name;
        EXPECT_EQ(bundles("failed"), failedarea) << name;
        EXPECT_EQ(bundles("staged"), stagedarea) << name;
        EXPECT_FALSE(fs::exists(tx() / "previous-receipt.sha256") &&
                     fs::is_regular_file(tx() / "previous-receipt.sha256"))
            << name;
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
    EXPECT_EQ(bundles("staged"), "MarbrelLowCPU ");
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
