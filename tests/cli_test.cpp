// The command line, and every refusal up to the locations, from outside.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>

#include "harness.h"

namespace fs = std::filesystem;

static const Files hd = {{"VST3/MarbrelHD.vst3/Contents/MacOS/MarbrelHD", "one"}};

class Cli : public Studio {};

TEST_F(Cli, TakesFourOptions) {
    package("p", "Marbrel", hd);
    package("--remove", "Marbrel", hd);
    const std::string none = "Manifest missing: " + (dir / "none/CONTENTS.sha256").string();
    const struct {
        std::vector<std::string> arguments;
        Ended ended;
    } cases[] = {
        {{}, failed("Package directory required")},
        {{"--dry-run"}, failed("Package directory required")},
        {{"--remove"}, failed("Package directory required")},
        {{"--package", ""}, failed("Package directory required")},
        {{"--package", "p", "--package", ""}, failed("Package directory required")},
        {{"p"}, failed("Unknown option: p")},
        {{""}, failed("Unknown option: ")},
        {{"--help"}, failed("Unknown option: --help")},
        {{"--Remove"}, failed("Unknown option: --Remove")},
        {{"--dry"}, failed("Unknown option: --dry")},
        {{"--package=p"}, failed("Unknown option: --package=p")},
        {{"--package"}, failed("Unknown option: --package")},
        {{"--package", "p", "--package"}, failed("Unknown option: --package")},
        {{"--package", "p", "--test-root"}, failed("Unknown option: --test-root")},
        {{"-x", "--package"}, failed("Unknown option: -x")},
        {{"--package", "none", "--dry-run"}, failed(none)},
        {{"--package", "p", "--dry-run"}, ready},
        {{"--package", dir / "p", "--dry-run", "--remove"}, ready},
        {{"--package", "none", "--remove", "--remove", "--dry-run", "--package", "p"}, ready},
        {{"--package", "--remove", "--dry-run"}, ready},
        {{"--package", "none/../p/", "--dry-run"},
         failed("Manifest missing: " + (dir / "none/../p/CONTENTS.sha256").string())},
        {{"--package", "home/../p/", "--dry-run", "--test-root", "x", "--test-root", "y/../z"},
         ready},
    };
    const auto before = disk(dir);
    for (const auto& [arguments, ended] : cases)
        EXPECT_EQ(tool(arguments), ended) << testing::PrintToString(arguments);
    EXPECT_EQ(disk(dir), before);
}

TEST_F(Cli, FailsInTheLibrarysWordsWithoutAWorkingDirectory) {
    const auto gone = [this] {
        if (mkdir("gone", 0700) != 0 || chdir("gone") != 0 || rmdir((dir / "gone").c_str()) != 0)
            _exit(96);
    };
    const Ended relative = tool({"--test-root", "x", "--unknown"}, gone);
    EXPECT_EQ(relative.status, 3);
    EXPECT_TRUE(relative.err.starts_with("filesystem error")) << relative.err;
    EXPECT_EQ(tool({"--test-root", "/x", "--unknown"}, gone), failed("Unknown option: --unknown"));
}

TEST_F(Cli, JudgesWhatAPackageMayHold) {
    const struct {
        std::vector<std::string> keys;
        std::string product;
        std::string message;
    } cases[] = {
        {{"VST3"}, "Marbrel\n", "Missing bundle"},
        {{"PRODUCT.txt"}, "Marbrel\n", "Missing bundle"},
        {{"VST3/"}, "Marbrel\n", "Unexpected bundle identity"},
        {{"x/"}, "Marbrel\n", "Unexpected format"},
        {{"vst3/MarbrelHD.vst3/a"}, "Marbrel\n", "Unexpected format"},
        {{"VST3/marbrelHD.vst3/a"}, "Marbrel\n", "Unexpected bundle identity"},
        {{"VST3/Other.vst3/a"}, "Marbrel\n", "Unexpected bundle identity"},
        {{"VST3/MarbrelHDAU.component/a"}, "Marbrel\n", "Format mismatch"},
        {{"Components/MarbrelHD.vst3/a"}, "Marbrel\n", "Format mismatch"},
        {{"VST3/MarbrelHDAU.component/a", "Components/x/a"}, "", "Unexpected bundle identity"},
        {{"VST3/MarbrelHD.vst3/a"}, "", "Unknown product"},
        {{"VST3/MarbrelHD.vst3/a"}, "\nMarbrel\n", "Unknown product"},
        {{"VST3/MarbrelHD.vst3/a"}, "Marbrel\r\n", "Unknown product"},
        {{"VST3/MarbrelHD.vst3/a"}, " Marbrel\n", "Unknown product"},
        {{"VST3/MarbrelHD.vst3/a"}, "marbrel\n", "Unknown product"},
        {{"VST3/MarbrelHD.vst3/a"}, "Marbrel" + std::string(100, ' '), "Unknown product"},
        {{"VST3/MarbrelHD.vst3/a"}, "Quellotrone\n", "Mixed product package refused"},
        {{"VST3/Quellotrone.vst3/a"}, "Marbrel\n", "Mixed product package refused"},
        {{"VST3/MarbrelHD.vst3/a", "VST3/Quellotrone.vst3/a"},
         "Marbrel\n",
         "Mixed product package refused"},
        {{"VST3/MarbrelHD.vst3/a", "Components/MarbrelHDAU.component/a"},
         "Marbrel\n",
         "Use one format per package"},
        // Past these rules, the payload is next.
        {{"VST3/MarbrelHD.vst3"},
         "Marbrel",
         "Bundle missing: " + (dir / "p/payload/VST3/MarbrelHD.vst3").string()},
        {{"VST3//MarbrelLowCPU.vst3/a"},
         "Marbrel\nmore\n",
         "Bundle missing: " + (dir / "p/payload/VST3/MarbrelLowCPU.vst3").string()},
        {{"Components/QuellotroneAU.component/a"},
         "Quellotrone\n" + std::string(100, 'x'),
         "Bundle missing: " + (dir / "p/payload/Components/QuellotroneAU.component").string()},
    };
    for (const auto& [keys, product, message] : cases) {
        std::string contents;
        for (const auto& key : keys) contents += std::string(64, '0') + "  " + key + '\n';
        write(dir / "p/CONTENTS.sha256", contents);
        write(dir / "p/PRODUCT.txt", product);
        EXPECT_EQ(tool({"--package", "p"}), failed(message)) << contents << product;
    }
    EXPECT_TRUE(disk(dir / "home").empty());
}

TEST_F(Cli, TakesItsPlacesFromHomeOrTheTestRoot) {
    package("p", "Marbrel", hd);
    fs::create_directory(dir / "real");
    fs::create_directory_symlink("real", dir / "link");
    const auto home = [](const char* value) {
        return [value] { value != nullptr ? setenv("HOME", value, 1) : unsetenv("HOME"); };
    };
    const Ended link = failed("Symlink path refused: " + (dir / "link").string());
    EXPECT_EQ(tool({"--package", "p"}, home(nullptr)), failed("User directory unavailable"));
    EXPECT_EQ(tool({"--package", "p"}, home("")), failed("User directory unavailable"));
    EXPECT_EQ(tool({"--package", "p", "--test-root", "t", "--dry-run"}, home(nullptr)), ready);
    EXPECT_EQ(tool({"--package", "link/none"}), link);
    EXPECT_EQ(tool({"--package", "p", "--test-root", "link"}), link);
    EXPECT_EQ(tool({"--package", "p", "--test-root", "link/below"}), link);
    EXPECT_EQ(tool({"--package", "p"}, home((dir / "link").c_str())), link);

    // The rules on names come first, the one format after the choice of the support directory.
    package("both", "Marbrel", join({hd, {{"Components/MarbrelHDAU.component/a", ""}}}));
    EXPECT_EQ(tool({"--package", "both"}, home("")), failed("User directory unavailable"));
    EXPECT_EQ(tool({"--package", "both", "--test-root", "link"}), link);
    package("mixed", "Quellotrone", hd);
    EXPECT_EQ(tool({"--package", "mixed"}, home("")), failed("Mixed product package refused"));

    const struct {
        std::string home;
        std::vector<std::string> options;
        std::string plugins;
        std::string support;
        std::string printed;  // the support directory, as the run names it
    } cases[] = {
        {dir / "a",
         {},
         "a/Library/Audio/Plug-Ins",
         "a/Library/Application Support/Orvelline",
         dir / "a/Library/Application Support/Orvelline"},
        {dir.string() + "/b/",
         {},
         "b/Library/Audio/Plug-Ins",
         "b/Library/Application Support/Orvelline",
         dir / "b/Library/Application Support/Orvelline"},
        {"c",
         {},
         "c/Library/Audio/Plug-Ins",
         "c/Library/Application Support/Orvelline",
         "c/Library/Application Support/Orvelline"},
        {"d", {"--test-root", ""}, "plugins", "support", dir / "support"},
        {"e", {"--test-root", "f g/"}, "f g/plugins", "f g/support", dir / "f g/support"},
    };
    for (const auto& [value, options, plugins, support, printed] : cases) {
        std::vector<std::string> arguments = {"--package", "p"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Ended ended = tool(arguments, home(value.c_str()));
        EXPECT_EQ(ended.out.find("INSTALLED; rollback backup: " + printed + "/Backups/Marbrel-"), 0)
            << ended;
        EXPECT_EQ(disk(dir / plugins), disk(dir / "p/payload")) << value;
        EXPECT_TRUE(fs::exists(dir / support / "Marbrel-VST3.sha256")) << value;
    }
}

TEST_F(Cli, StandsAnyInput) {
    const fs::path p = package("p", "Marbrel", hd);
    const std::string contents = slurp(p / "CONTENTS.sha256");
    const std::vector<std::string> arguments = {"--package", "p"};

    fs::remove(p / "CONTENTS.sha256");
    ASSERT_EQ(mkfifo((p / "CONTENTS.sha256").c_str(), 0666), 0);
    EXPECT_EQ(tool(arguments), failed("Empty manifest"));
    fs::remove(p / "CONTENTS.sha256");
    fs::create_symlink("/dev/zero", p / "CONTENTS.sha256");
    EXPECT_EQ(tool(arguments), failed("Malformed manifest"));
    fs::remove(p / "CONTENTS.sha256");
    write(p / "CONTENTS.sha256", contents);
    fs::remove(p / "PRODUCT.txt");
    EXPECT_EQ(tool(arguments), failed("Unknown product"));
    ASSERT_EQ(mkfifo((p / "PRODUCT.txt").c_str(), 0666), 0);
    EXPECT_EQ(tool(arguments), failed("Unknown product"));
    fs::remove(p / "PRODUCT.txt");
    fs::create_directory(p / "PRODUCT.txt");
    EXPECT_EQ(tool(arguments), failed("Unknown product"));
    EXPECT_TRUE(disk(dir / "home").empty());

    // Odd names, a deep tree and many files install as they are.
    Files odd = {{"VST3/MarbrelHD.vst3/ a" + oddname() + "\x01'\"$`\\*\r", ""},
                 {"VST3/MarbrelHD.vst3/--", "x"}};
    std::string deep = "VST3/MarbrelHD.vst3";
    for (int level = 0; level < 150; ++level) deep += "/dir";
    odd[deep + "/file"] = "deep";
    for (int i = 0; i < 2000; ++i) odd["VST3/MarbrelHD.vst3/many/" + std::to_string(i)] = "x";
    package("odd", "Marbrel", odd);
    EXPECT_EQ(tool({"--package", "odd", "--test-root", "r"}).status, 0);
    EXPECT_EQ(disk(dir / "r/plugins"), disk(dir / "odd/payload"));

    // A socket is not part of the proof, but nothing that a copy could hold.
    package("socket", "Marbrel", hd);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    const fs::path before = fs::current_path();
    fs::current_path(dir / "socket/payload/VST3/MarbrelHD.vst3");
    address.sun_path[0] = 's';
    ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    fs::current_path(before);
    close(descriptor);
    const auto plugins = disk(dir / "r/plugins");
    EXPECT_EQ(tool({"--package", "socket", "--test-root", "s", "--dry-run"}), ready);
    EXPECT_FALSE(fs::exists(dir / "s"));
    EXPECT_EQ(tool({"--package", "socket", "--test-root", "s"}).status, 3);
    EXPECT_FALSE(fs::exists(dir / "s/plugins"));
}

TEST_F(Cli, AnswersWithItsStatusWhenNobodyReads) {
    package("p", "Marbrel", hd);
    const auto unread = [](const std::vector<int>& closed, const std::vector<int>& broken) {
        return [closed, broken] {
            int ends[2];
            if (pipe(ends) != 0) _exit(96);
            for (const int descriptor : broken) dup2(ends[1], descriptor);
            close(ends[0]);
            close(ends[1]);
            for (const int descriptor : closed) close(descriptor);
            signal(SIGPIPE, SIG_DFL);
        };
    };
    EXPECT_EQ(tool({"--package", "p", "--dry-run"}, unread({}, {1})).status, 0);
    EXPECT_EQ(tool({"--package", "p", "--bad"}, unread({}, {2})).status, 3);
    EXPECT_EQ(tool({"--package", "p"}, unread({}, {1, 2})).status, 0);
    EXPECT_EQ(tool({"--package", "p"}, unread({0, 1, 2}, {})).status, 0);
    EXPECT_EQ(lsofcalls(), 2);
    EXPECT_EQ(disk(dir / "home/Library/Audio/Plug-Ins"), disk(dir / "p/payload"));
    EXPECT_EQ(slurp(dir / "home/Library/Application Support/Orvelline/Marbrel-VST3.sha256"),
              slurp(dir / "p/CONTENTS.sha256"));
}
