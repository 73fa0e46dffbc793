// The load check's child and the signals, in the surroundings that a tool may be started in.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "harness.h"

namespace fs = std::filesystem;

class Child : public Studio {
  protected:
    Child() {
        package("p", "Marbrel", {{"VST3/MarbrelHD.vst3/MacOS/a", "x"}});
        EXPECT_EQ(tool({"--package", "p"}).status, 0);
    }
};

TEST_F(Child, HoldsInAnySurroundings) {
    const struct {
        std::string name;
        std::function<void()> prepare;
    } cases[] = {
        {"descriptor 0 closed", [] { close(0); }},
        {"descriptor 1 closed", [] { close(1); }},
        {"descriptor 2 closed", [] { close(2); }},
        {"all closed",
         [] {
             close(0);
             close(1);
             close(2);
         }},
        {"0 and 2 closed",
         [] {
             close(0);
             close(2);
         }},
        {"SIGCHLD ignored", [] { signal(SIGCHLD, SIG_IGN); }},
    };
    for (const auto& [name, prepare] : cases) {
        lsof({{1, "echo x; head -c 200000 /dev/zero"}});
        EXPECT_EQ(tool({"--package", "p", "--dry-run"}, prepare).status, 0) << name;
        EXPECT_EQ(lsofcalls(), 1) << name;
        lsof({{1, "echo x >&2"}});
        EXPECT_EQ(tool({"--package", "p", "--dry-run"}, prepare).status, 3) << name;
    }
    EXPECT_EQ(slurp(dir / "p/payload/VST3/MarbrelHD.vst3/MacOS/a"), "x");
}

TEST_F(Child, GetsStandardInputTheEnvironmentAndNothingElse) {
    if (!fs::exists("/proc/self/fd")) GTEST_SKIP() << "no list of descriptors on this system";
    write(dir / "input", "from the caller\n");
    lsof({{1,
           "s=$(for d in /proc/$$/fd/*; do echo ${d##*/} $(readlink $d); done); echo \"$s\" >seen; "
           "{ cat; echo $ORVELLINE_SEEN; } >>seen"}});
    const Ended ended = tool({"--package", "p", "--dry-run"}, [this] {
        dup2(open((dir / "input").c_str(), O_RDONLY), 0);
        dup2(0, 9);
        dup2(0, 77);
        setenv("ORVELLINE_SEEN", "environment", 1);
    });
    EXPECT_EQ(ended.status, 0);
    std::string seen = slurp(dir / "seen");
    EXPECT_NE(seen.find("0 " + (dir / "input").string() + '\n'), std::string::npos) << seen;
    EXPECT_NE(seen.find("\n1 /dev/null\n"), std::string::npos) << seen;
    EXPECT_NE(seen.find("\n2 pipe:"), std::string::npos) << seen;
    EXPECT_EQ(seen.find("\n9 "), std::string::npos) << seen;
    EXPECT_EQ(seen.find("\n77 "), std::string::npos) << seen;
    EXPECT_NE(seen.find("from the caller\nenvironment\n"), std::string::npos) << seen;
}

TEST_F(Child, SignalsEndARunBeforeTheCommitAndWaitDuringIt) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        const std::string send = "kill -" + std::to_string(signal) + " $PPID";
        lsof({{1, send}});
        EXPECT_EQ(tool({"--package", "p"}).status, -signal);
        lsof({{2, send}});
        EXPECT_EQ(tool({"--package", "p"}).status, 0);
        // One that ends a hanging check as well rolls the run back.
        lsof({{2, send + "; kill -" + std::to_string(signal) + " $$"}});
        EXPECT_EQ(tool({"--package", "p"}), failed(loaded));
        EXPECT_EQ(disk(dir / "home/Library/Audio/Plug-Ins"), disk(dir / "p/payload"));
    }
}
