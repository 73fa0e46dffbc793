// Whole runs that nothing disturbs: installs, upgrades, removals, and what preflight refuses.

#include "harness.h"
#include "transaction/backup.h"

namespace fs = std::filesystem;

static Files hd(const std::string& content) {
    return {{"VST3/MarbrelHD.vst3/Contents/MacOS/MarbrelHD", content},
            {"VST3/MarbrelHD.vst3/Contents/Info.plist", "info " + content}};
}

static Files low(const std::string& content) {
    return {{"VST3/MarbrelLowCPU.vst3/Contents/MacOS/MarbrelLowCPU", content}};
}

static Files au(const std::string& content) {
    return {{"Components/MarbrelHDAU.component/Contents/MacOS/MarbrelHDAU", content}};
}

static Files quellotrone(const std::string& content) {
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

TEST_F(Install, LeavesExactlyWhatItShouldAfterEachKindOfRun) {
    package("one", "Marbrel", join({hd("1"), low("1")}));
    package("two", "Marbrel", join({hd("2"), low("2")}));

    const fs::path first = done("one");
    EXPECT_EQ(disk(plugins()), payload("one"));
    EXPECT_EQ(disk(first), (std::map<std::string, std::string>{{"staged", "directory"},
                                                               {"staged/VST3", "directory"}}));
    EXPECT_EQ(lsofcalls(), 0);

    const std::string receipt = slurp(support() / "Marbrel-VST3.sha256");
    EXPECT_EQ(receipt, slurp(dir / "one/CONTENTS.sha256"));
    const fs::path upgrade = done("two");
    EXPECT_EQ(disk(plugins()), payload("two"));
    EXPECT_EQ(disk(upgrade / "verified-backup"), payload("one"));
    EXPECT_EQ(disk(upgrade / "original"), payload("one"));
    EXPECT_EQ(disk(upgrade / "staged").size(), 1U);
    EXPECT_EQ(slurp(upgrade / "previous-receipt.sha256"), receipt);
    EXPECT_FALSE(fs::exists(upgrade / "failed"));
    EXPECT_EQ(lsofcalls(), 4);
    EXPECT_EQ(slurp(dir / "calls").find("-n " + (plugins() / "VST3/MarbrelHD.vst3").string()), 0U);

    EXPECT_EQ(disk(done("two") / "original"), payload("two"));  // a reinstall replaces as well
    EXPECT_EQ(disk(done("one") / "original"), payload("two"));  // and so does a downgrade
    EXPECT_EQ(disk(plugins()), payload("one"));

    const fs::path removal = done("one", {"--remove"});
    EXPECT_EQ(disk(plugins()), (std::map<std::string, std::string>{{"VST3", "directory"}}));
    EXPECT_EQ(disk(removal / "original"), payload("one"));
    EXPECT_EQ(disk(removal / "verified-backup"), payload("one"));
    EXPECT_EQ(slurp(removal / "removed-receipt.sha256"), receipt);
    EXPECT_FALSE(fs::exists(removal / "staged"));

    const fs::path nothing = done("one", {"--remove"});
    EXPECT_TRUE(disk(nothing).empty());
    EXPECT_EQ(disk(support()).count("Marbrel-VST3.sha256"), 0U);
    EXPECT_EQ(std::distance(fs::directory_iterator(support() / "Backups"), {}), 6);
}

TEST_F(Install, TreatsASubsetAsThePackageItIs) {
    package("both", "Marbrel", join({hd("1"), low("1")}));
    package("half", "Marbrel", hd("2"));
    done("both");
    done("half");
    EXPECT_EQ(slurp(support() / "Marbrel-VST3.sha256"), slurp(dir / "half/CONTENTS.sha256"));
    EXPECT_EQ(slurp(plugins() / "VST3/MarbrelLowCPU.vst3/Contents/MacOS/MarbrelLowCPU"), "1");
    // The other bundle is known by the package alone from now on.
    package("next", "Marbrel", join({hd("2"), low("2")}));
    EXPECT_EQ(on("next"), failed("Unknown or modified plugin preserved: " +
                                 (plugins() / "VST3/MarbrelLowCPU.vst3").string()));
    done("half", {"--remove"});
    EXPECT_TRUE(fs::exists(plugins() / "VST3/MarbrelLowCPU.vst3"));
    EXPECT_FALSE(fs::exists(plugins() / "VST3/MarbrelHD.vst3"));
    EXPECT_FALSE(fs::exists(support() / "Marbrel-VST3.sha256"));
}

TEST_F(Install, KeepsProductsAndFormatsApart) {
    package("vst", "Marbrel", hd("1"));
    package("au", "Marbrel", au("1"));
    package("q", "Quellotrone", quellotrone("1"));
    done("vst");
    done("au");
    EXPECT_NE(done("q").filename().string().find("Quellotrone-"), std::string::npos);
    for (const char* receipt : {"Marbrel-VST3", "Marbrel-Components", "Quellotrone-VST3"})
        EXPECT_TRUE(fs::exists(support() / (std::string(receipt) + ".sha256"))) << receipt;
    done("au", {"--remove"});
    EXPECT_FALSE(fs::exists(support() / "Marbrel-Components.sha256"));
    EXPECT_TRUE(fs::exists(plugins() / "VST3/MarbrelHD.vst3"));
    EXPECT_TRUE(fs::exists(plugins() / "VST3/Quellotrone.vst3"));
    EXPECT_TRUE(fs::is_empty(plugins() / "Components"));
}

TEST_F(Install, SortsTheReceipt) {
    const fs::path p = package("p", "Marbrel", hd("1"));
    const std::string sorted = slurp(p / "CONTENTS.sha256");
    const std::size_t second = sorted.find('\n') + 1;
    write(p / "CONTENTS.sha256",
          sorted.substr(second) + sorted.substr(0, second - 1));  // no LF at the end either
    done("p");
    EXPECT_EQ(slurp(support() / "Marbrel-VST3.sha256"), sorted);
}

TEST_F(Install, CarriesPermissionBitsWhateverTheUmask) {
    const fs::path bundle = package("p", "Marbrel", hd("1")) / "payload/VST3/MarbrelHD.vst3";
    const std::map<std::string, unsigned> bits = {{"Contents", 0755},
                                                  {"Contents/MacOS", 0555},
                                                  {"Contents/MacOS/MarbrelHD", 0745},
                                                  {"Contents/Info.plist", 0444},
                                                  {"", 0775}};
    for (const auto& [path, mode] : bits) fs::permissions(bundle / path, fs::perms(mode));
    fs::create_directory(dir / "r");
    for (const fs::path& place : {dir, dir / "r"}) fs::permissions(place, fs::perms(0777));
    for (const int pass : {1, 2}) {
        const Ended ended = unprivileged({"--package", "p", "--test-root", "r"}, 077);
        ASSERT_EQ(ended.status, 0) << ended;
        EXPECT_EQ(disk(plugins(), true)["VST3"], "700 directory");
        fs::path copy = plugins() / "VST3/MarbrelHD.vst3";
        if (pass == 2)
            copy = fs::path(ended.out.substr(28, ended.out.size() - 29)) /
                   "verified-backup/VST3/MarbrelHD.vst3";
        EXPECT_EQ(disk(copy, true), disk(bundle, true));
        EXPECT_EQ(fs::status(copy).permissions(), fs::perms(0775));
    }
}

TEST_F(Install, RefusesInPreflightWithNothingChanged) {
    const fs::path dest = plugins() / "VST3/MarbrelHD.vst3";
    const fs::path receipt = support() / "Marbrel-VST3.sha256";
    const std::string preserved = "Unknown or modified plugin preserved: " + dest.string();
    const std::string mismatch = "Package checksum mismatch: VST3/MarbrelHD.vst3";
    const std::string low2 = (dir / "p/payload/VST3/MarbrelLowCPU.vst3").string();
    const std::string variables =
        "p=p/payload/VST3/MarbrelHD.vst3; low=p/payload/VST3/MarbrelLowCPU.vst3\n"
        "d=r/plugins/VST3/MarbrelHD.vst3; r=r/support/Marbrel-VST3.sha256; x=Contents/MacOS\n";
    const struct {
        std::string change;   // to an installed package, as shell
        std::string message;  // empty: the dry run is ready
    } cases[] = {
        {":", ""},
        {"echo x >$p/$x/MarbrelHD", mismatch},
        {"rm $p/$x/MarbrelHD", mismatch},
        {"echo >$p/more", mismatch},
        {"printf '%064d  VST3/MarbrelHD.vst3/a\\r\\n' 0 >p/CONTENTS.sha256", mismatch},
        {"rm -r $low", "Bundle missing: " + low2},
        {"ln -s x $low/l", "Symlink member refused"},
        {"echo x >$low/x", "Package checksum mismatch: VST3/MarbrelLowCPU.vst3"},
        {"echo x >$d/$x/MarbrelHD", preserved},
        {"echo >$d/.x", preserved},
        {"rm $d/$x/MarbrelHD", preserved},
        {"mkdir $d/empty", ""},
        {"rm $r", ""},
        {"rm $r; echo x >$d/$x/MarbrelHD", preserved},
        {"rm -r $d; echo >$d", "Bundle missing: " + dest.string()},
        {"rm -r $d; mkdir $d", "Empty bundle refused"},
        {"rm -r $d; ln -s x $d", "Symlink path refused: " + dest.string()},
        {"ln -s x $d/l", "Symlink member refused"},
        {"rm -r r/plugins/VST3; echo >r/plugins/VST3", ""},
        {"rm -r r/plugins; : >$r", "Empty manifest"},
        {"echo x >$r", "Malformed manifest"},
        {"rm $r; ln -s x $r", "Symlink path refused: " + receipt.string()},
        {"echo >$r.tmp", ""},
        // The first bundle is done with before the second is looked at.
        {"echo x >$low/x; printf '#!/bin/sh\\nexit 0\\n' >lsof", loaded},
    };
    package("p", "Marbrel", join({hd("1"), low("1")}));
    done("p");
    sh("cp -R p p.clean; cp -R r r.clean");
    for (const auto& [change, message] : cases) {
        sh("rm -r p r; cp -R p.clean p; cp -R r.clean r");
        lsof();
        sh(variables + change);
        const auto before = disk(dir / "r");
        const Ended ended = message.empty() ? ready : failed(message);
        EXPECT_EQ(on("p", {"--dry-run"}), ended) << change;
        EXPECT_EQ(on("p", {"--remove", "--dry-run"}), ended) << change;
        if (!message.empty()) {
            EXPECT_EQ(on("p", {"--remove"}), ended) << change;
        }
        EXPECT_EQ(disk(dir / "r"), before) << change;
    }
}

TEST_F(Install, TellsWhatItMayNotRead) {
    const fs::path bundle = package("p", "Marbrel", hd("1")) / "payload/VST3/MarbrelHD.vst3";
    const auto ended = [this](const fs::path& path, unsigned mode) {
        const auto before = fs::status(path).permissions();
        fs::permissions(path, fs::perms(mode));
        const Ended result = unprivileged({"--package", "p", "--dry-run"}, 022);
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

TEST_F(Install, AsksAboutEveryFileDirectlyInAMacOSDirectory) {
    const std::string root = "VST3/MarbrelHD.vst3/";
    package("p", "Marbrel",
            {{root + "Contents/MacOS/Plugin", ""},
             {root + "Contents/MacOS/data.txt", ""},
             {root + "Contents/MacOS/inner/Tool", ""},
             {root + "Contents/Frameworks/C.framework/Versions/A/MacOS/Core", ""},
             {root + "MacOS/Plugin", ""},
             {root + "Contents/Lower/macos/Plugin", ""},
             {root + "Contents/Resources/MacOS", ""}});
    done("p");
    EXPECT_EQ(on("p", {"--dry-run"}), ready);
    EXPECT_EQ(lsofcalls(), 4);
    const struct {
        std::string answer;
        std::string message;
    } cases[] = {
        {"exit 0", loaded},
        {"exit 2", loaded},
        {"exit 127", loaded},
        {"kill -9 $$", loaded},
        {"echo x >&2; exit 1", loaded},
        {"echo x; exit 1", ""},
        {"head -c 300000 /dev/zero; exit 1", ""},
        {"head -c 300000 /dev/zero >&2; exit 1", loaded},
        {"head -c 300000 /dev/zero >&2; exit 0", loaded},
    };
    for (const auto& [answer, message] : cases) {
        lsof({{3, answer}});
        EXPECT_EQ(on("p", {"--dry-run"}), message.empty() ? ready : failed(message)) << answer;
        EXPECT_EQ(lsofcalls(), message.empty() ? 4 : 3) << answer;
    }
}

TEST_F(Install, TellsThatTheLoadCheckCannotStart) {
    // Without a tested file there is nothing to ask.
    package("q", "Quellotrone", {{"VST3/Quellotrone.vst3/a", ""}});
    done("q");
    fs::remove(dir / "lsof");
    EXPECT_EQ(on("q", {"--dry-run"}), ready);

    if (*EMULATOR != '\0')
        GTEST_SKIP() << EMULATOR << " reports a program that cannot be started as ended with 127";
    package("p", "Marbrel", hd("1"));
    done("p");
    EXPECT_EQ(on("p", {"--dry-run"}), failed("Load check unavailable"));
    for (const char* unusable : {"", "no program"}) {
        write(dir / "lsof", unusable);
        for (const unsigned mode : {0755U, 0644U}) {
            fs::permissions(dir / "lsof", fs::perms(mode));
            EXPECT_EQ(on("p", {"--dry-run"}), failed("Load check unavailable"));
        }
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

TEST_F(Install, TheExamplesVerifyAndUpgrade) {
    const std::string examples = SOURCES "/examples/";
    for (const auto& entry : fs::directory_iterator(examples)) {
        if (!fs::exists(entry.path() / "PRODUCT.txt")) continue;
        EXPECT_EQ(on(entry.path(), {"--dry-run"}), ready) << entry.path();
    }
    done(examples + "Marbrel-VST3");
    done(examples + "Marbrel-VST3-next");
    EXPECT_EQ(disk(plugins()), disk(examples + "Marbrel-VST3-next/payload"));
    EXPECT_GT(lsofcalls(), 0);
}
