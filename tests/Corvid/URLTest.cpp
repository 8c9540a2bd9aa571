#include <Corvid/URL.h>
#include <Corvid/URLFile.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <stdlib.h>
#include <string>
#include <support/HttpServer.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Corvid::URL;
using Corvid::URLFile;
using Corvid::URLImpl;
using Orvel::Test::Answer;
using Orvel::Test::HttpServer;

/// What the exception says that ends parsing and fetching, or "nothing thrown".
std::string failure(const std::string& text) {
    try {
        const auto file = URL(text).fetch();
    } catch (const URLImpl::Exception& exception) {
        return exception.what();
    }
    return "nothing thrown";
}

std::string read(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A folder of its own that is both the current directory and the one for temporary files.
class URLTest : public testing::Test {
protected:
    URLTest() {
        std::string name = (temporary_ / "orvel-test-XXXXXX").string();
        folder_ = ::mkdtemp(name.data());
        fs::current_path(folder_);
        useTemporaryFolder(folder_);
    }
    ~URLTest() override {
        URLImpl::setFetchLimits({});
        fs::current_path(before_);
        useTemporaryFolder(temporary_);
        fs::remove_all(folder_);
    }

    /// Only while no other thread runs that reads the environment.
    static void useTemporaryFolder(const fs::path& folder) {
        ::setenv("TMPDIR", folder.c_str(), 1);
    }

    const fs::path before_ = fs::current_path();
    const fs::path temporary_ = fs::temp_directory_path();
    fs::path folder_;
};

using URLParsing = URLTest;
using URLLocalFile = URLTest;
using URLDownload = URLTest;

const std::string kOk = "HTTP/1.1 200 OK\r\nConnection: close\r\n";

std::string redirect(const std::string& target) {
    return "HTTP/1.1 302 Found\r\nConnection: close\r\nContent-Length: 0\r\nLocation: " + target +
           "\r\n\r\n";
}

} // namespace

TEST_F(URLParsing, GivesAStableTextForm) {
    const URLFile local("/home/me/scenes/hall.json");
    const auto remote = URLImpl::create("http://example.org/a/b/scene?x=/1#y", local);
    const struct {
        const URLImpl& base;
        std::string text;
        std::string expected;
    } kRows[] = {
        {local, "bell.wav", "file:///home/me/scenes/bell.wav"},
        {local, "../a//./b/../bell.wav", "file:///home/me/a/bell.wav"},
        {local, "../../../../../x", "file:///x"},
        {local, "/a b#1?.wav", "file:///a%20b%231%3F.wav"},
        {local, "100%.wav", "file:///home/me/scenes/100%25.wav"},
        {local, "%41.wav", "file:///home/me/scenes/%2541.wav"},
        {local, "\xc3\xa4 \xff.wav", "file:///home/me/scenes/%C3%A4%20%FF.wav"},
        {local, "it's;$HOME&.wav", "file:///home/me/scenes/it%27s%3B%24HOME%26.wav"},
        {local, "take:2.wav", "file:///home/me/scenes/take%3A2.wav"},
        {local, "C:\\x.wav", "file:///home/me/scenes/C%3A%5Cx.wav"},
        {local, "1http://x", "file:///home/me/scenes/1http%3A/x"},
        {local, "//x/y", "file:///x/y"},
        {local, "folder/", "file:///home/me/scenes/folder/"},
        {local, "file:///a%41/%2e%2e/b%20c.wav", "file:///b%20c.wav"},
        {local, "FILE:/a.wav", "file:///a.wav"},
        {local, "file://localhost/a.wav?x#y", "file:///a.wav"},
        {local, "http://example.org", "http://example.org/"},
        {local, "HTTPS://me@example.org:8443/a/../b c.wav?q=\xc3\xa4#z",
         "https://me@example.org:8443/b%20c.wav?q=%c3%a4#z"},
        {local, "http://example.org/?a b#c d", "http://example.org/?a%20b#c%20d"},
        {local, "http://[::1]:80/x", "http://[::1]:80/x"},
        {local, "rtsp://camera/1", "rtsp://camera/1"},
        {*remote, "bell 1#.wav", "http://example.org/a/b/bell%201%23.wav"},
        {*remote, "/c/../bell.wav", "http://example.org/bell.wav"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(URLImpl::create(row.text, row.base)->text(), row.expected);
        EXPECT_EQ(URLImpl::create(row.expected, local)->text(), row.expected);
    }
}

TEST_F(URLParsing, RefusesWhatIsNoURL) {
    using namespace std::string_literals;
    const std::string kTexts[] = {
        ""s,
        "http://"s,
        "http:///x"s,
        "http://:80/"s,
        "http://me@/"s,
        "http://h:-1/"s,
        "http://?x"s,
        "http://#x"s,
        "http://a b/"s,
        "http://0x7f%41/"s,
        "http://host:port/"s,
        "http://host:99999/"s,
        "http://[::1/"s,
        "http://h/a\nb"s,
        "http://h/a\0b"s,
        "a\0b.wav"s,
        "a\nb.wav"s,
        "a\x7f.wav"s,
        "file:///a%00b"s,
        "file:///a%0ab"s,
        "file://otherhost/a.wav"s,
        "file:a.wav"s,
        "file:"s,
        "rtsp:///1"s};
    for (const std::string& text : kTexts) {
        try {
            ADD_FAILURE() << text << " became " << URL(text).text();
        } catch (const URLImpl::Exception& exception) {
            EXPECT_STREQ(exception.what(), "Cannot parse URL");
        }
    }
}

TEST_F(URLParsing, TakesTheCurrentDirectoryByDefault) {
    EXPECT_EQ(URL().text(), URLFile(folder_ / "").text());
    EXPECT_EQ(URL("a/b.wav").text(), URLFile(folder_ / "a/b.wav").text());
    EXPECT_NE(failure("./").find("directory"), std::string::npos);

    fs::create_directory("gone");
    fs::current_path("gone");
    fs::remove(folder_ / "gone");
    EXPECT_NE(failure("b.wav").find("Cannot tell the current directory"), std::string::npos);
}

TEST_F(URLLocalFile, IsUsedWhereItStands) {
    for (const std::string name : {"a b#1.wav", "%41?.wav", "\xc3\xa4\xff.wav", "it's \\ \".wav"}) {
        std::ofstream(name) << "sound of " << name;
        const std::string text = URL(name).text();
        const auto file = URL(text).fetch();
        EXPECT_EQ(file->name(), (folder_ / name).string());
        EXPECT_EQ(read(file->name()), "sound of " + name);
    }
    EXPECT_TRUE(fs::exists("%41?.wav"));
}

TEST_F(URLLocalFile, RefusesWhatCannotBeRead) {
    std::ofstream("plain.wav") << "x";
    fs::create_directory("folder.wav");
    fs::create_symlink("loop.wav", "loop.wav");
    ASSERT_EQ(::mkfifo("pipe.wav", 0600), 0);
    const struct {
        std::string text;
        std::string reason;
    } kRows[] = {
        {"missing.wav", "missing.wav\": No such file"},
        {"folder.wav", "folder.wav\": It is a directory"},
        {"plain.wav/", "Not a directory"},
        {"loop.wav", "symbolic links"},
        {"pipe.wav", "It is a device, pipe or socket"},
        {"/dev/zero", "It is a device, pipe or socket"},
    };
    for (const auto& row : kRows) {
        EXPECT_NE(failure(row.text).find(row.reason), std::string::npos) << failure(row.text);
    }
}

TEST_F(URLDownload, KeepsTheExtensionAndVanishesWithItsObject) {
    const std::string body(100000, '\xa5');
    const Answer whole{kOk + "Content-Length: 100000\r\n\r\n" + body};
    HttpServer server({
        {"/bell.wav", whole},
        {"/a.tar.gz?x=/y.mp3", whole},
        {"/noextension", whole},
        {"/.hidden", whole},
        {"/evil.w%2Fv", whole},
        {"/long.abcdefghijklmnopq", whole},
        {"/unsized.ogg", {kOk + "\r\n" + body}},
        {"/longer.ogg", {kOk + "Content-Length: 100000\r\n\r\n" + body + "surplus"}},
        {"/chunked.ogg",
         {kOk + "Transfer-Encoding: chunked\r\n\r\n186a0\r\n" + body + "\r\n0\r\n\r\n"}},
        {"/far.flac", {redirect("/bell.wav")}},
        {"/slow.wav", {kOk + "Content-Length: 5\r\n\r\n", Answer::Drip, "drops"}},
    });
    URLImpl::FetchLimits limits;
    limits.stallSeconds = 1;
    limits.maxBytes = body.size();
    URLImpl::setFetchLimits(limits);
    const struct {
        std::string path;
        std::string extension;
        std::string expected;
    } kRows[] = {
        {"/bell.wav#fragment", ".wav", body},
        {"/a.tar.gz?x=/y.mp3", ".gz", body},
        {"/noextension", "", body},
        {"/.hidden", "", body},
        {"/evil.w%2Fv", "", body},
        {"/long.abcdefghijklmnopq", "", body},
        {"/unsized.ogg", ".ogg", body},
        {"/longer.ogg", ".ogg", body},
        {"/chunked.ogg", ".ogg", body},
        {"/far.flac", ".flac", body},
        {"/slow.wav", ".wav", "drops"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.path);
        auto file = URL(server.url(row.path)).fetch();
        EXPECT_EQ(fs::path(file->name()).parent_path(), folder_);
        EXPECT_EQ(fs::path(file->name()).extension(), row.extension);
        EXPECT_TRUE(read(file->name()) == row.expected);
        file.reset();
        EXPECT_TRUE(fs::is_empty(folder_));
    }
    EXPECT_NE(server.lastRequest().find("User-Agent: orvel/"), std::string::npos);
}

TEST_F(URLDownload, FailsWithTheReasonAndLeavesNothing) {
    const std::string huge = std::to_string(std::numeric_limits<unsigned>::max());
    HttpServer server({
        {"/401", {"HTTP/1.1 401 No\r\nWWW-Authenticate: Basic\r\nContent-Length: 1\r\n\r\nx"}},
        {"/500", {"HTTP/1.1 500 Broken\r\n\r\n", Answer::Repeat, "sorry"}},
        {"/nowhere", {"HTTP/1.1 302 Found\r\nContent-Length: 1\r\n\r\nx"}},
        {"/loop", {redirect("/loop")}},
        {"/twice", {redirect("/once")}},
        {"/once", {redirect("/404")}},
        {"/file", {redirect("file:///etc/hostname")}},
        {"/ftp", {redirect("ftp://127.0.0.1/x.wav")}},
        {"/short", {kOk + "Content-Length: 10\r\n\r\n123"}},
        {"/cut", {kOk + "Transfer-Encoding: chunked\r\n\r\na\r\n123"}},
        {"/closed", {""}},
        {"/garbage", {"RIFF....WAVEfmt \r\n\r\n"}},
        {"/silent", {"", Answer::Stall}},
        {"/stalled", {kOk + "Content-Length: 10\r\n\r\n123", Answer::Stall}},
        {"/announced", {kOk + "Content-Length: " + huge + "\r\n\r\n123", Answer::Stall}},
        {"/byone", {kOk + "\r\n" + std::string(1001, 'x')}},
        {"/endless", {kOk + "Transfer-Encoding: chunked\r\n\r\n", Answer::Repeat, "4\r\nlala\r\n"}},
    });
    URLImpl::setFetchLimits(
        {.connectSeconds = 2, .stallSeconds = 1, .maxBytes = 1000, .maxRedirects = 2});
    std::string nobody;
    {
        const HttpServer closed({});
        nobody = closed.url("/x.wav");
    }
    const struct {
        std::string url;
        std::string reason;
    } kRows[] = {
        {server.url("/404"), "error: 404"},
        {server.url("/401"), "error: 401"},
        {server.url("/500"), "error: 500"},
        {server.url("/nowhere"), "status 302"},
        {server.url("/loop"), "Maximum (2) redirects followed"},
        {server.url("/twice"), "404 (redirected to \"" + server.url("/404") + "\")"},
        {server.url("/file"), "Protocol \"file\""},
        {server.url("/ftp"), "Protocol \"ftp\""},
        {server.url("/short"), "7 bytes remaining"},
        {server.url("/cut"), "outstanding read data"},
        {server.url("/closed"), "Empty reply"},
        {server.url("/garbage"), "HTTP/0.9"},
        {server.url("/silent"), "the server sent nothing for 1 seconds"},
        {server.url("/stalled"), "the server sent nothing for 1 seconds"},
        {server.url("/announced"), "larger than the limit of 1000 bytes"},
        {server.url("/byone"), "larger than the limit of 1000 bytes"},
        {server.url("/endless"), "larger than the limit of 1000 bytes"},
        {nobody, "connect"},
        {"rtsp://127.0.0.1/1", "use file, http or https"},
    };
    for (const auto& row : kRows) {
        const std::string message = failure(row.url);
        EXPECT_TRUE(message.starts_with("Cannot fetch \"" + row.url + "\": ")) << message;
        EXPECT_NE(message.find(row.reason), std::string::npos) << message;
        EXPECT_TRUE(fs::is_empty(folder_)) << message;
    }
}

TEST_F(URLDownload, ReportsAFullDiskAndAMissingTemporaryFolder) {
    // A limit on the size of files fails the same calls as a full disk does; 100 bytes fit into
    // the stream's buffer, so that only closing the file fails.
    HttpServer server({
        {"/long.wav", {kOk + "\r\n" + std::string(100000, 'x')}},
        {"/short.wav", {kOk + "\r\n" + std::string(100, 'x')}},
    });
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small = {50, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const std::string longText = failure(server.url("/long.wav"));
    const std::string shortText = failure(server.url("/short.wav"));
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_NE(longText.find("cannot write"), std::string::npos) << longText;
    EXPECT_NE(shortText.find("cannot write"), std::string::npos) << shortText;
    EXPECT_TRUE(fs::is_empty(folder_));

    useTemporaryFolder(folder_ / "none");
    const std::string noFolder = failure(server.url("/short.wav"));
    EXPECT_NE(noFolder.find("set TMPDIR"), std::string::npos) << noFolder;
}

TEST_F(URLDownload, WorksOnSeveralThreadsAtOnce) {
    HttpServer server({{"/x.wav", {kOk + "Content-Length: 5\r\n\r\nsound"}}});
    const URL url(server.url("/x.wav"));
    std::vector<std::string> bodies(8);
    std::vector<std::thread> threads;
    for (std::string& body : bodies) {
        threads.emplace_back([&] { body = read(url.fetch()->name()); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(bodies, std::vector<std::string>(8, "sound"));
    EXPECT_TRUE(fs::is_empty(folder_));
}
