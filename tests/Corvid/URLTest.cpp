#include <Corvid/URL.h>
#include <Corvid/URLFile.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdlib.h>
#include <string>
#include <support/HttpServer.h>
#include <support/TemporaryFolder.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Corvid::URL;
using Corvid::URLFile;
using Corvid::URLImpl;
using Orvel::Test::Answer;
using Orvel::Test::HttpServer;

/// A download from a server, and the extension of its file or the reason of a failure.
struct Download {
    std::string path;
    Answer answer;
    std::string expected;
};

constexpr int kEndless = 64 << 20; // bytes

/// The text of the exception of parsing and fetching, or "nothing thrown".
std::string failure(const std::string& text) {
    try {
        const auto file = URL(text).fetch();
    } catch (const URLImpl::Exception& exception) {
        return exception.what();
    }
    return "nothing thrown";
}

void expectFailure(const std::string& text, const std::string& reason) {
    EXPECT_NE(failure(text).find(reason), std::string::npos) << text << ": " << failure(text);
}

std::string read(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Sets up a folder as both the current directory and the one for temporary files.
class URLTest : public testing::Test {
protected:
    URLTest() {
        fs::current_path(folder_.path());
        ::setenv("TMPDIR", folder_.path().c_str(), 1);
    }
    ~URLTest() override {
        URLImpl::setFetchLimits({});
        fs::current_path(before_);
        ::setenv("TMPDIR", temporary_.c_str(), 1);
    }

    const fs::path before_ = fs::current_path();
    const fs::path temporary_ = fs::temp_directory_path();
    const Orvel::Test::TemporaryFolder folder_;
};

const std::string kOk = "HTTP/1.1 200 OK\r\nConnection: close\r\n";

std::string redirect(const std::string& target) {
    return "HTTP/1.1 302 Found\r\nConnection: close\r\nContent-Length: 0\r\nLocation: " + target +
           "\r\n\r\n";
}

} // namespace

TEST_F(URLTest, HasAStableTextForm) {
    const URLFile local("/home/me/scenes/hall.json");
    const auto remote = URLImpl::create("http://example.org/a/b/scene?x=/1#y", local);
    const std::tuple<const URLImpl&, std::string, std::string> rows[] = {
        {local, "../a//./b/../bell.wav", "file:///home/me/a/bell.wav"},
        {local, "../../../../../x", "file:///x"},
        {local, "/a b#1?.wav", "file:///a%20b%231%3F.wav"},
        {local, "%41.wav", "file:///home/me/scenes/%2541.wav"},
        {local, "\xc3\xa4 \xff.wav", "file:///home/me/scenes/%C3%A4%20%FF.wav"},
        {local, "C:\\x.wav", "file:///home/me/scenes/C%3A%5Cx.wav"},
        {local, "1http://x", "file:///home/me/scenes/1http%3A/x"},
        {local, "file:///a%41/%2e%2e/b%20c.wav", "file:///b%20c.wav"},
        {local, "FILE:/a.wav", "file:///a.wav"},
        {local, "file://localhost/a.wav?x#y", "file:///a.wav"},
        {local, "http://example.org", "http://example.org/"},
        {local, "HTTPS://me@h:84/a/../b c?q=\xc3\xa4#z d", "https://me@h:84/b%20c?q=%c3%a4#z%20d"},
        {local, "http://[::1]:80/x", "http://[::1]:80/x"},
        {local, "rtsp://camera/1", "rtsp://camera/1"},
        {*remote, "bell 1#.wav", "http://example.org/a/b/bell%201%23.wav"},
        {*remote, "/c/../bell.wav", "http://example.org/bell.wav"}};
    for (const auto& [base, text, expected] : rows) {
        EXPECT_EQ(URLImpl::create(text, base)->text(), expected);
        EXPECT_EQ(URLImpl::create(expected, local)->text(), expected);
    }
    EXPECT_EQ(URL().text(), URLFile(folder_.file("")).text());
    EXPECT_EQ(URL("a/b.wav").text(), URLFile(folder_.file("a/b.wav")).text());
}

TEST_F(URLTest, IsRefusedWhenItIsNone) {
    using namespace std::string_literals;
    for (const std::string& text :
         {""s, "http:///x"s, "http://:80/"s, "http://me@/"s, "http://?x"s, "http://a b/"s,
          "http://0x7f%41/"s, "http://host:99999/"s, "http://[::1/"s, "http://h/a\nb"s,
          "http://h/a\0b"s, "a\0b.wav"s, "a\x7f.wav"s, "file:///a%00b"s, "file:///a%0ab"s,
          "file://otherhost/a.wav"s, "file:a.wav"s, "rtsp:///1"s}) {
        EXPECT_EQ(failure(text), "Cannot parse URL") << text;
    }
}

TEST_F(URLTest, UsesALocalFileWhereItStandsOrSaysWhyNot) {
    for (const std::string name : {"a b#1.wav", "%41?.wav", "\xc3\xa4\xff.wav", "it's \\ \".wav"}) {
        std::ofstream(name) << name;
        EXPECT_EQ(URL(URL(name).text()).fetch()->name(), folder_.file(name));
        EXPECT_EQ(read(name), name) << "it is no temporary file";
    }
    fs::create_directory("folder.wav");
    fs::create_symlink("loop.wav", "loop.wav");
    ASSERT_EQ(::mkfifo("pipe.wav", 0600), 0);
    expectFailure("missing.wav", "missing.wav\": No such file");
    expectFailure("folder.wav", "folder.wav\": It is a directory");
    expectFailure("a b#1.wav/", "Not a directory");
    expectFailure("loop.wav", "symbolic links");
    expectFailure("pipe.wav", "It is a device, pipe or socket");
    fs::current_path("folder.wav");
    fs::remove(folder_.file("folder.wav"));
    expectFailure("b.wav", "Cannot determine the current directory");
    EXPECT_EQ(URL("/a b.wav").text() + URL("http://h/x").text(), "file:///a%20b.wavhttp://h/x");
    fs::create_directory(folder_.file("a\nb"));
    fs::current_path(folder_.file("a\nb"));
    expectFailure("b.wav", "control characters");
    EXPECT_EQ(URL("file:///x").text() + URL("/x").text(), "file:///xfile:///x");
}

TEST_F(URLTest, KeepsTheExtensionOfADownloadAndRemovesItsFile) {
    const std::string sound = kOk + "Content-Length: 5\r\n\r\nsound";
    const std::string chunks = kOk + "Transfer-Encoding: chunked\r\n\r\n";
    const std::vector<Download> rows{
        {"/a.tar.gz?x=/y.mp3", {sound}, ".gz"},
        {"/.hidden", {sound}, ""},
        {"/evil.w%2Fv", {sound}, ""},
        {"/long.abcdefghijklmnopq", {sound}, ""},
        {"/unsized.ogg", {kOk + "\r\nsound"}, ".ogg"},
        {"/longer.ogg", {sound + "surplus"}, ".ogg"},
        {"/chunked.ogg", {chunks + "5\r\nsound\r\n0\r\n\r\n"}, ".ogg"},
        {"/far.flac", {redirect("/.hidden")}, ".flac"},
        {"/slow.wav", {kOk + "Content-Length: 5\r\n\r\n", "sound", 5, 300}, ".wav"}};
    HttpServer server(rows);
    URLImpl::setFetchLimits({.stallSeconds = 1, .maxBytes = 5});
    for (const auto& row : rows) {
        auto file = URL(server.url(row.path) + "#fragment").fetch();
        EXPECT_EQ(fs::path(file->name()).parent_path(), folder_.path());
        EXPECT_EQ(fs::path(file->name()).extension(), row.expected);
        EXPECT_EQ(read(file->name()), "sound") << row.path;
        file.reset();
        EXPECT_TRUE(fs::is_empty(folder_.path())) << row.path;
    }
}

TEST_F(URLTest, SaysWhyADownloadFailedAndLeavesNothing) {
    const std::string tooLarge = "larger than the limit of 1000 bytes";
    const std::string silent = "the server sent nothing for 1 seconds";
    const std::vector<Download> rows{
        {"/401", {"HTTP/1.1 401 No\r\nWWW-Authenticate: Basic\r\n\r\nx"}, "error: 401"},
        {"/500", {"HTTP/1.1 500 Broken\r\n\r\n", "sorry", kEndless}, "error: 500"},
        {"/nowhere", {"HTTP/1.1 302 Found\r\nContent-Length: 1\r\n\r\nx"}, "status 302"},
        {"/loop", {redirect("/loop")}, "Maximum (2) redirects followed"},
        {"/twice", {redirect("/once")}, "404 (redirected to \"http://127.0.0.1"},
        {"/once", {redirect("/404")}, "error: 404"},
        {"/file", {redirect("file:///etc/hostname")}, "Protocol \"file\""},
        {"/short", {kOk + "Content-Length: 10\r\n\r\n123"}, "7 bytes remaining"},
        {"/closed", {""}, "Empty reply"},
        {"/garbage", {"RIFF....WAVEfmt \r\n\r\n"}, "HTTP/0.9"},
        {"/silent", {"", "x", 1, 20000}, silent},
        {"/stalled", {kOk + "Content-Length: 10\r\n\r\n123", "x", 1, 20000}, silent},
        {"/announced", {kOk + "Content-Length: 9999\r\n\r\n123", "x", 1, 20000}, tooLarge},
        {"/byone", {kOk + "\r\n" + std::string(1001, 'x')}, tooLarge},
        {"/endless", {kOk + "\r\n", "lala", kEndless}, tooLarge}};
    auto server = std::make_unique<HttpServer>(rows);
    URLImpl::setFetchLimits(
        {.connectSeconds = 2, .stallSeconds = 1, .maxBytes = 1000, .maxRedirects = 2});
    for (const auto& row : rows) {
        expectFailure(server->url(row.path), row.expected);
        EXPECT_TRUE(fs::is_empty(folder_.path())) << row.path;
    }
    const std::string nobody = server->url("/x.wav");
    server.reset();
    expectFailure(nobody, "connect");
    EXPECT_TRUE(failure(nobody).starts_with("Cannot fetch \"" + nobody + "\": "));
    expectFailure("rtsp://127.0.0.1/1", "use file, http or https");
}

TEST_F(URLTest, ReportsAFullDiskAndAMissingTemporaryFolder) {
    HttpServer server(std::vector<Download>{
        {"/long.wav", {kOk + "\r\n" + std::string(100000, 'x')}, {}},
        {"/short.wav", {kOk + "\r\n" + std::string(100, 'x')}, {}}});
    // A limit on the file size makes the same calls fail as a full disk; 100 bytes fit into the
    // stream's buffer, so only closing the file fails.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small = {50, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    expectFailure(server.url("/long.wav"), "cannot write");
    expectFailure(server.url("/short.wav"), "cannot write");
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_TRUE(fs::is_empty(folder_.path()));
    ::setenv("TMPDIR", folder_.file("none").c_str(), 1);
    expectFailure(server.url("/short.wav"), "set TMPDIR");
}
