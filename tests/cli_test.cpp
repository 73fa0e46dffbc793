// The command line, and every refusal up to the locations, from outside.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>

#include "harness.h"

namespace fs = std::filesystem;

[[maybe_unused]] static const Ended ready = {0, "READY: verified package; no files changed\n", ""};
[[maybe_unused]] static const Files hd = {{"VST3/MarbrelHD.vst3/Contents/MacOS/MarbrelHD", "one"}};

class Cli : public Studio {};

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
    EXPECT_EQ(tool({"--package", "p", "--test-root", "link"}), link);
    EXPECT_EQ(tool({"--package", "p", "--test-root", "link/below"}), link);
    EXPECT_EQ(tool({"--package", "p"}, home((dir / "link").c_str())), link);

    // The rules on names come first, the one format after the choice of the support directory.
    package("both", "Marbrel", join({hd, {{"Components/MarbrelHDAU.component/a", ""}}}));
    EXPECT_EQ(tool({"--package", "both"}, home("")), failed("User directory unavailable"));
    package("mixed", "Quellotrone", hd);
    EXPECT_EQ(tool({"--package", "mixed"}, home("")), failed("Mixed product package refused"));
}
