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
