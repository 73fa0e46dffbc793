// The readers and the proof, called directly.

#include <sys/stat.h>

#include "harness.h"
#include "package/manifest.h"

namespace fs = std::filesystem;

static const std::string digest(64, 'a');

static std::string line(const std::string& key) {
    return digest + "  " + key + '\n';
}

class Package : public Studio {};

TEST_F(Package, ReadJudgesEveryLineInOrder) {
    const std::string good = line("VST3/x/a");
    const struct {
        std::string content;
        std::string message;
    } cases[] = {
        {"", "Empty manifest"},
        {"\n", "Malformed manifest"},
        {good + "\n", "Malformed manifest"},
        {digest + "  ", "Malformed manifest"},
        {digest + "  \n", "Malformed manifest"},
        {digest + " *a\n", "Malformed manifest"},
        {digest + "\t a\n", "Malformed manifest"},
        {digest + " \ta\n", "Malformed manifest"},
        {digest + "a  a\n", "Malformed manifest"},
        {"\xEF\xBB\xBF" + good, "Malformed manifest"},
        {std::string(70, '\0'), "Malformed manifest"},
        {std::string(64, 'A') + "  a\n", "Invalid hash"},
        {std::string(64, 'g') + "  a\n", "Invalid hash"},
        {digest.substr(1) + "   a\n", "Invalid hash"},
        {std::string(64, 'A') + "  /a\n", "Invalid hash"},
        {line("/a"), "Absolute manifest path refused"},
        {line("//a"), "Absolute manifest path refused"},
        {line("/"), "Absolute manifest path refused"},
        {line("/../a"), "Absolute manifest path refused"},
        {line("."), "Unsafe manifest path"},
        {line(".."), "Unsafe manifest path"},
        {line("./a"), "Unsafe manifest path"},
        {line("a/./b"), "Unsafe manifest path"},
        {line("a/../b"), "Unsafe manifest path"},
        {line("a/.."), "Unsafe manifest path"},
        {line("a/../"), "Unsafe manifest path"},
        {good + good, "Duplicate manifest entry"},
        {good + std::string(64, 'b') + "  VST3/x/a\n", "Duplicate manifest entry"},
        {good + line("..") + "x\n", "Unsafe manifest path"},
        // The last line counts without its LF, also when it is cut off.
        {good + "0123", "Malformed manifest"},
    };
    for (const auto& [content, message] : cases) {
        write(dir / "manifest", content);
        EXPECT_EQ(failure([&] { read(dir / "manifest"); }), message) << content;
    }
    fs::create_directory(dir / "directory");
    EXPECT_EQ(failure([&] { read(dir / "directory"); }), "Empty manifest");
    EXPECT_EQ(failure([&] { read(dir / "none"); }), "Manifest missing: " + (dir / "none").string());
}

TEST_F(Package, ReadKeepsKeysAsTheyStandAndSortsThem) {
    const std::vector<std::string> keys = {"b",    "a/",        "a//b",  "a/b",     "..a",
                                           "a..",  "...",       ".a",    " a ",     "a\r",
                                           "\xFF", "a\xC3\xA9", "a/b c", "a\tb\\n", "a*"};
    std::string content;
    Manifest expected;
    for (const auto& key : keys) {
        content += line(key);
        expected[key] = digest;
    }
    write(dir / "manifest", content);
    const Manifest manifest = read(dir / "manifest");
    EXPECT_EQ(manifest, expected);
    EXPECT_EQ(manifest.begin()->first, " a ");
    EXPECT_EQ(manifest.rbegin()->first, "\xFF");

    write(dir / "unended", content.substr(0, content.size() - 1));
    EXPECT_EQ(read(dir / "unended"), expected);
    write(dir / "written", text(manifest));
    EXPECT_EQ(read(dir / "written"), expected);
}

TEST_F(Package, ReadTakesLinesAcrossBlocks) {
    Manifest expected;
    for (int i = 0; i < 5000; ++i) expected["a/" + std::to_string(i)] = digest;
    expected["a/" + std::string(200000, 'x')] = digest;
    write(dir / "manifest", text(expected));
    EXPECT_EQ(read(dir / "manifest"), expected);
}

TEST_F(Package, ReadRefusesAnEndlessLineAndNeverWaits) {
    EXPECT_EQ(failure([] { read("/dev/zero"); }), "Malformed manifest");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(failure([&] { read(dir / "fifo"); }), "Empty manifest");
}
