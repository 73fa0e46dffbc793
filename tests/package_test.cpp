// The readers and the proof, called directly.

#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "harness.h"
#include "package/manifest.h"
#include "package/safe.h"
#include "package/tree.h"

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
    write(dir / "written", aslines(manifest));
    EXPECT_EQ(read(dir / "written"), expected);
}

TEST_F(Package, ReadTakesLinesAcrossBlocks) {
    Manifest expected;
    for (int i = 0; i < 5000; ++i) expected["a/" + std::to_string(i)] = digest;
    expected["a/" + std::string(200000, 'x')] = digest;
    write(dir / "manifest", aslines(expected));
    EXPECT_EQ(read(dir / "manifest"), expected);
}

TEST_F(Package, ReadRefusesAnEndlessLineAndNeverWaits) {
    EXPECT_EQ(failure([] { read("/dev/zero"); }), "Malformed manifest");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(failure([&] { read(dir / "fifo"); }), "Empty manifest");
    // A writer that is there is waited for: half a manifest would be believed otherwise.
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string content = line("a") + line("b");
    std::thread writer([&] {
        for (const char byte : content) EXPECT_EQ(::write(ends[1], &byte, 1), 1);
        close(ends[1]);
    });
    EXPECT_EQ(read("/dev/fd/" + std::to_string(ends[0])), (Manifest{{"a", digest}, {"b", digest}}));
    writer.join();
    close(ends[0]);
}

TEST_F(Package, SafeNamesTheDeepestLink) {
    fs::create_directories(dir / "real/inner");
    fs::create_directory_symlink("real", dir / "link");
    fs::create_symlink("nothing", dir / "dangling");
    fs::create_directory_symlink("inner", dir / "real/deep");
    write(dir / "file", "");
    const struct {
        std::string path;
        std::string link;  // empty: the path passes
    } cases[] = {
        {"real/inner", ""},           {"none/at/all", ""},      {"file/below", ""},
        {"real/../real/inner/", ""},  {"link", "link"},         {"link/", "link"},
        {"link/inner", "link"},       {"link/none/x", "link"},  {"link/../real", "link"},
        {"link/deep/x", "link/deep"}, {"dangling", "dangling"}, {"dangling/x/y", "dangling"},
    };
    for (const auto& [path, link] : cases)
        EXPECT_EQ(failure([&, &path = path] { safe(dir.string() + '/' + path); }),
                  link.empty() ? "" : "Symlink path refused: " + (dir / link).string())
            << path;
    EXPECT_EQ(failure([] { safe(""); }), "");
    EXPECT_EQ(failure([] { safe("/"); }), "");
    EXPECT_NE(failure([] { safe("/" + std::string(300, 'x')); }), "");
}

TEST_F(Package, SafeLeavesWhatIsAboveARelativePathAlone) {
    fs::create_directories(dir / "real/inner");
    fs::create_directory_symlink("real", dir / "link");
    const fs::path before = fs::current_path();
    fs::current_path(dir / "link");
    EXPECT_EQ(failure([] { safe("inner/x"); }), "");
    fs::current_path(dir);
    EXPECT_EQ(failure([] { safe("link/inner"); }), "Symlink path refused: link");
    fs::current_path(before);
}

TEST_F(Package, TreeDigestsWholeFiles) {
    const struct {
        std::string content;
        std::string digest;
    } cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {std::string(1000000, 'a'),
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
        {std::string(65536, '\0'),
         "de2f256064a0af797747c2b97505dc0b9f3df0de4f489eac731c23ae9ca9cc31"},
        {std::string(131072, '\0'),
         "fa43239bcee7b97ca62f007cc68487560a39e19f74f3dde7486db3f98df8e471"},
    };
    for (const auto& [content, digest] : cases) {
        write(dir / "b/f", content);
        EXPECT_EQ(tree(dir / "b"), (Manifest{{"f", digest}})) << content.size();
    }
}

TEST_F(Package, TreeKeysDependOnNothingButThePathBelowTheRoot) {
    const std::vector<std::string> keys = {"Contents/MacOS/a", ".hidden", "a b", oddname() + '\n',
                                           "x/y/z"};
    Manifest expected;
    for (const auto& key : keys) {
        write(dir / "b" / key, "");
        expected[key] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
    }
    fs::create_directories(dir / "b/empty/directory");
    ASSERT_EQ(mkfifo((dir / "b/fifo").c_str(), 0600), 0);
    fs::create_directory(dir / "x");
    const fs::path before = fs::current_path();
    fs::current_path(dir);
    for (const std::string& root :
         {std::string("b"), std::string("b/"), std::string("b//"), std::string("./b"),
          std::string("x/../b"), dir.string() + "/b", dir.string() + "/x/../b/"})
        EXPECT_EQ(tree(root), expected) << root;
    fs::current_path(before);
}

TEST_F(Package, TreeRefuses) {
    fs::create_directories(dir / "empty/a/b");
    fs::create_directory(dir / "fifo");
    ASSERT_EQ(mkfifo((dir / "fifo/f").c_str(), 0600), 0);
    for (const char* target : {"file", "..", "nothing"}) {
        write(dir / (std::string("link-") + target) / "a/file", "x");
        fs::create_symlink(target, dir / (std::string("link-") + target) / "a/link");
    }
    write(dir / "file", "");
    fs::create_directory_symlink("empty", dir / "link");
    const struct {
        std::string root;
        std::string message;
    } cases[] = {
        {"none", "Bundle missing: " + (dir / "none").string()},
        {"file", "Bundle missing: " + (dir / "file").string()},
        {"link", "Symlink path refused: " + (dir / "link").string()},
        {"link/a", "Symlink path refused: " + (dir / "link").string()},
        {"empty", "Empty bundle refused"},
        {"fifo", "Empty bundle refused"},
        {"link-file", "Symlink member refused"},
        {"link-..", "Symlink member refused"},
        {"link-nothing", "Symlink member refused"},
    };
    for (const auto& [root, message] : cases)
        EXPECT_EQ(failure([&, &root = root] { tree(dir / root); }), message) << root;
}

TEST(Sub, CutsOutTheEntriesOfOneBundle) {
    const std::string key = "VST3/MarbrelHD.vst3";
    const Manifest manifest = {
        {key, "1"},
        {key + "/", "2"},
        {key + "//c", "3"},
        {key + "/a", "4"},
        {key + "/a/b", "5"},
        {key + "x/a", "6"},
        {"Components/MarbrelHD.vst3/a", "7"},
        {"VST3/MarbrelLowCPU.vst3/a", "8"},
        {"vst3/MarbrelHD.vst3/a", "9"},
        {"x/" + key + "/a", "10"},
    };
    EXPECT_EQ(sub(manifest, key), (Manifest{{"", "2"}, {"/c", "3"}, {"a", "4"}, {"a/b", "5"}}));
    EXPECT_EQ(sub({}, key), Manifest{});
}
