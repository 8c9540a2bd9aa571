#include "support/RawHttp.h"

#include <Corvid/EscapeHtml.h>
#include <Corvid/IOException.h>
#include <Corvid/InetAddress.h>
#include <Corvid/PolledWebServer.h>
#include <Corvid/WebPageObject.h>
#include <Corvid/WebPageRedirection.h>
#include <Corvid/WebPageStatic.h>

#include <gtest/gtest.h>
#include <memory>
#include <tuple>
#include <vector>

using Corvid::PolledWebServer;
using Corvid::ProtocolHTTP;
using Orvel::Test::HttpAnswer;
using Orvel::Test::RawHttp;
using Orvel::Test::until;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

const std::string kEnd = " HTTP/1.1\r\nHost: localhost\r\n\r\n";

/// A page defined by a function.
class Page : public Corvid::WebPage {
public:
    using Create = std::function<bool(const ProtocolHTTP::Request&, ProtocolHTTP::Reply&)>;
    explicit Page(Create create, std::string methods = "GET, HEAD")
        : create_(std::move(create)), methods_(std::move(methods)) {}
    bool create(
        Corvid::WebClient* client, const ProtocolHTTP::Request& request,
        ProtocolHTTP::Reply& reply) override {
        EXPECT_EQ(client->address().text().substr(0, 4), "127.");
        return create_(request, reply);
    }
    WebPage* clone() const override { return new Page(*this); }
    std::string methods() const override { return methods_; }

private:
    Create create_;
    std::string methods_;
};

class WebServer : public testing::Test {
protected:
    WebServer() {
        server.setDiagnostic([this](const std::string& line) { lines.push_back(line); });
        server.open("127.0.0.1", 0);
        add(
            "/echo",
            [](const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) {
                std::string body = request.method() + ' ' + request.path();
                for (const auto& [name, value] : request.parameters()) {
                    body += '[' + name + '=' + value + ']';
                }
                reply.setBody(body + request.body());
                return true;
            },
            "GET, HEAD, POST");
        server.addPage("/moved", Corvid::WebPageRedirection("/echo?a=1&b=2"));
        server.addPage("/static", Corvid::WebPageStatic("text/css", std::string("a\0b", 3)));
    }
    void add(const std::string& path, Page::Create create, std::string methods = "GET, HEAD") {
        EXPECT_TRUE(server.addPage(path, Page(std::move(create), std::move(methods))));
    }
    /// A page of `pieces` pieces of `size` bytes each.
    void addPieces(const std::string& path, int pieces, std::size_t size) {
        add(path, [this, pieces, size](const auto&, ProtocolHTTP::Reply& reply) {
            auto alive = std::make_shared<int>(pieces);
            producer = alive;
            reply.setBody([this, alive, size](std::string& more) {
                ++made;
                more = std::string(size, static_cast<char>('a' + *alive % 26));
                return --*alive > 0;
            });
            return true;
        });
    }
    /// Whether its loop says to call update() now.
    bool isDue() const { return server.loop()->wait(std::chrono::steady_clock::now()); }
    bool updateUntil(const std::function<bool()>& done) {
        return until(done, [this] { isDue() && server.update(); });
    }
    RawHttp client() {
        return RawHttp(server.port(), [this] { isDue() && server.update(); });
    }

    PolledWebServer server;
    std::vector<std::string> lines;
    std::weak_ptr<int> producer;
    int made = 0;
};

} // namespace

TEST_F(WebServer, AnswersEachRequestAsItDeserves) {
    const std::string longLine(17000, 'a');
    const std::string body(65536, 'b');
    const auto post = [](const std::string& headers, const std::string& text) {
        return "POST /echo HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n\r\n" + text;
    };
    addPieces("/pieces", 2, 3);
    // The request, and the status, a header and part of the body of its answer.
    const std::tuple<std::string, int, std::string, std::string> rows[] = {
        {"GET /echo?x=%41+b&y&=&x=2%26" + kEnd, 200, "Connection: keep-alive",
         "GET /echo[x=A b][y=][=][x=2&]"},
        {"HEAD /echo" + kEnd, 200, "Content-Length: 10", ""},
        {"GET http://[::1]:80/%65cho#end" + kEnd, 200, "Content-Length: 9", "GET /echo"},
        {"GET /echo HTTP/1.0\r\n\r\n", 200, "Connection: close", "GET /echo"},
        {"GET /echo HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", 200, "Connection: keep-alive", ""},
        // HTTP/1.0 knows no chunks, so the end of the connection ends the body.
        {"GET /pieces HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", 200, "Connection: close",
         "cccbbb"},
        {"\r\n\r\nGET /static" + kEnd, 200, "Content-Type: text/css", std::string("a\0b", 3)},
        {"GET /moved" + kEnd, 301, "Location: /echo?a=1&b=2", "<a href=\"/echo?a=1&amp;b=2\">"},
        {post("Content-Length: 65536", body), 200, "Content-Length: 65546", body},
        {post("Transfer-Encoding: chunked", "3;x=y\r\nabc\r\n1\r\nd\r\n0\r\nT: r\r\n\r\n"), 200,
         "Content-Length: 14", "POST /echoabcd"},
        {"GET /<i>&%22'" + kEnd, 404, "X-Content-Type-Options: nosniff",
         "<tt>/&lt;i&gt;&amp;&quot;&#39;</tt>"},
        {"DELETE /static" + kEnd, 405, "Allow: GET, HEAD", "<tt>DELETE</tt>"},
        {"GE /static" + kEnd, 405, "Allow: GET, HEAD", "<tt>GE</tt>"},
        {"GET /%4" + kEnd, 400, "", "malformed"},
        {"GET /%<b>" + kEnd, 400, "", "<tt>/%&lt;b&gt;</tt>"},
        {"GET /echo HTTP/1.1\r\n\r\n", 400, "Connection: close", "not a valid"},
        {post("Content-Length: 65537", ""), 413, "Connection: close", "65536"},
        {post("Transfer-Encoding: chunked", "8000\r\n" + body.substr(0, 0x8000) + "\r\n8001\r\n"),
         413, "Connection: close", ""},
        {"GET /" + longLine, 431, "Connection: close", "16384"},
        {"GET /echo HTTP/1.1\r\nHost: localhost\r\nA: " + longLine + "\r\n\r\n", 431, "", ""},
        {"GET /" + longLine.substr(0, 9000) +
             " HTTP/1.1\r\nHost: localhost\r\nA: " + longLine.substr(0, 9000) + "\r\n\r\n",
         431, "", ""}, // together they exceed the limit
        {post("Transfer-Encoding: chunked", "1;" + longLine), 431, "", ""},
    };
    const std::string host = "Host: localhost\r\n";
    for (const std::string& request :
         {"GET /%00" + kEnd, "GET /echo?x=%g1" + kEnd, "GET *" + kEnd, "GET / \r\n\r\n"s,
          "GET /\r\n"s, "GET /echo HTTP/1.1\r\n" + host + host + "\r\n",
          "GET /echo HTTP/2.0\r\n" + host + "\r\n", "GET /echo HTTP/1.1\nHost: localhost\n\n"s,
          "GET /echo HTTP/1.1\r\nHost : localhost\r\n\r\n"s,
          "\x16\x03\x01\x02"s, // the start of a TLS handshake
          post("Content-Length: 3\r\nTransfer-Encoding: chunked", "0\r\n\r\n"),
          post("Content-Length: 3\r\nContent-Length: 4", "abc"), post("Content-Length: -1", ""),
          post("Transfer-Encoding: gzip", "abc"), post("Transfer-Encoding: chunked", "q\r\n")}) {
        const HttpAnswer answer = client().ask(request);
        EXPECT_TRUE(answer.status == 400 && answer.whole) << request;
    }
    for (const auto& [request, status, header, part] : rows) {
        RawHttp peer = client();
        const HttpAnswer answer = peer.ask(request);
        const std::string what = request.substr(0, 100);
        EXPECT_EQ(answer.status, status) << what;
        EXPECT_TRUE(answer.whole) << what;
        EXPECT_TRUE(header.empty() || answer.has(header)) << what << '\n' << answer.head;
        EXPECT_NE(answer.body.find(part), std::string::npos) << what << '\n' << answer.body;
        EXPECT_EQ(peer.get("/static").status, answer.has("Connection: close") ? 0 : 200) << what;
    }
    RawHttp slow = client();
    for (const char byte : "GET /echo" + kEnd) {
        slow.send({&byte, 1}, 0);
        server.update();
    }
    EXPECT_EQ(slow.receive().body, "GET /echo");
    EXPECT_TRUE(lines.empty());
}

TEST_F(WebServer, IsReadThroughNoNameThatItDoesNotHave) {
    const std::string own = Corvid::InetAddress::getLocalHostName();
    server.addHostName("Proxy.example");
    const std::pair<int, std::vector<std::string>> rows[] = {
        {200,
         {"127.0.0.1", "192.0.2.1:80", "[::1]:1", "LocalHost.:99999", own, own + ":8080",
          own.substr(0, own.find('.')) + ".local", "proxy.EXAMPLE:"}},
        {421,
         {"evil.example", "evil.example:80", "127.0.0.1.evil.example", "localhost.evil.example",
          "x" + own, own + ".evil.example", "0x7f.1", "127.1"}},
        {400, {"", "me@localhost", "a b", "localhost:x", "::1", "[::1", "[localhost]", "a|b"}},
    };
    for (const auto& [status, hosts] : rows) {
        for (const std::string& host : hosts) {
            RawHttp peer = client();
            EXPECT_EQ(peer.get("/static", host).status, status) << host;
            // If the target names a host, the header is ignored.
            EXPECT_EQ(peer.ask("GET http://" + host + "/static" + kEnd).status, status) << host;
        }
    }
    EXPECT_EQ(client().ask("GET /static HTTP/1.0\r\n\r\n").status, 200) << "no host at all";
}

TEST_F(WebServer, ReadsRequestsThatArriveInAnyPieces) {
    const std::string requests =
        "POST /echo HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n"
        "2\r\nab\r\n1\r\nc\r\n0\r\n\r\n\r\n"
        "POST /echo?x HTTP/1.1\r\nHost: localhost\r\nContent-Length: 2\r\n\r\nde"
        "HEAD /static HTTP/1.1\r\nHost: localhost\r\n\r\n"
        "GET /echo HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    for (std::size_t split = 0; split <= requests.size(); ++split) {
        RawHttp peer = client();
        peer.send(requests.substr(0, split));
        server.update();
        server.update();
        peer.send(requests.substr(split));
        peer.endSending();
        EXPECT_EQ(peer.receive().body, "POST /echoabc") << split;
        EXPECT_EQ(peer.receive().body, "POST /echo[x=]de") << split;
        EXPECT_EQ(peer.receive(false).status, 200) << split;
        EXPECT_EQ(peer.receive().body, "GET /echo") << split;
        EXPECT_TRUE(peer.ends()) << split;
    }
    RawHttp peer = client();
    peer.send("POST /echo HTTP/1.1\r\nHost: localhost\r\nExpect: 100-continue\r\nContent-Length: "
              "1\r\n\r\n");
    EXPECT_EQ(peer.receive().status, 100);
    peer.send("z");
    EXPECT_EQ(peer.receive().body, "POST /echoz");
}

TEST_F(WebServer, EndsWhatReachesALimit) {
    server.setLimits({.patience = 100ms, .requestsPerConnection = 3});
    RawHttp silent = client();
    RawHttp slow = client();
    RawHttp idle = client();
    EXPECT_TRUE(idle.get("/static").has("Connection: keep-alive"));
    slow.send("GET /static HTTP/1.1\r\nHost");
    EXPECT_TRUE(silent.ends());
    EXPECT_EQ(slow.receive().status, 408);
    EXPECT_TRUE(slow.ends());
    EXPECT_TRUE(idle.ends());
    EXPECT_EQ(server.counters().dropped, 2U) << "that of the idle one is no fault";

    addPieces("/big", 1000, 100'000);
    RawHttp deaf = client();
    deaf.send("GET /big" + kEnd);
    EXPECT_TRUE(updateUntil([&] { return server.counters().dropped == 3; }));
    EXPECT_TRUE(producer.expired());
    EXPECT_LT(made, 200) << "the sockets' buffers hold some of it";

    RawHttp frequent = client();
    for (const char* connection : {"keep-alive", "keep-alive", "close"}) {
        EXPECT_TRUE(frequent.get("/static").has("Connection: "s + connection));
    }
    EXPECT_TRUE(frequent.ends());
}

TEST_F(WebServer, GivesANewClientThePlaceOfTheOneThatWaitedLongest) {
    server.setLimits({.patience = 1h, .connections = 3}); // no connection times out
    RawHttp oldest = client();
    ASSERT_TRUE(updateUntil([&] { return server.counters().connections == 1; }));
    RawHttp busy = client();
    RawHttp third = client();
    RawHttp newest = client();
    for (RawHttp* peer : {&busy, &third, &newest, &busy}) {
        EXPECT_EQ(peer->get("/static").status, 200);
    }
    EXPECT_TRUE(oldest.ends());
    EXPECT_EQ(server.counters().connections, 3U);
}

TEST_F(WebServer, MakesABigPagePieceByPieceAsTheClientTakesIt) {
    constexpr int kPieces = 200;
    constexpr std::size_t kSize = 100'000;
    addPieces("/big", kPieces, kSize);
    RawHttp peer = client();
    peer.send("GET /big" + kEnd);
    ASSERT_TRUE(updateUntil([this] { return made > 0; }));
    for (int before = made; before < 10; before = made) {
        server.update();
        ASSERT_LE(made, before + 1) << "more than one piece in one call";
    }
    EXPECT_TRUE(updateUntil([this] { return !isDue(); })) << "the client's buffers are full";
    EXPECT_LT(made, kPieces);
    EXPECT_LT(server.counters().bytesWaiting, 3 * kSize);
    const HttpAnswer answer = peer.receive();
    EXPECT_TRUE(answer.whole);
    ASSERT_EQ(answer.body.size(), kPieces * kSize);
    for (std::size_t i = 0; i < kPieces; ++i) {
        ASSERT_EQ(answer.body[i * kSize + i], static_cast<char>('a' + (kPieces - i) % 26));
    }
    EXPECT_EQ(made, kPieces);
    EXPECT_EQ(peer.ask("HEAD /big HTTP/1.1\r\nHost: localhost\r\n\r\n").status, 200);
    EXPECT_EQ(peer.get("/static").status, 200) << "a body after HEAD";
    EXPECT_EQ(made, kPieces);
    RawHttp old = client();
    EXPECT_EQ(old.ask("GET /big HTTP/1.0\r\n\r\n").body, answer.body);
    {
        RawHttp gone = client();
        gone.send("GET /big" + kEnd);
        ASSERT_TRUE(updateUntil([&] { return !producer.expired(); }));
    }
    EXPECT_TRUE(updateUntil([&] { return producer.expired(); }));
}

TEST_F(WebServer, OutlivesPagesThatFail) {
    server.setLimits({.replyBytes = 100'000});
    add("/throws", [](const auto&, auto&) -> bool { throw std::runtime_error("no <luck>"); });
    add("/false", [](const auto&, auto&) { return false; });
    server.addPage("/huge", Corvid::WebPageStatic("text/plain", std::string(100'001, 'x')));
    add("/cut", [](const auto&, auto& reply) {
        reply.setBody([first = true](std::string& more) mutable {
            more = "begun";
            return std::exchange(first, false) ? true : throw std::runtime_error("no paper");
        });
        return true;
    });
    add("/headers", [](const auto&, auto& reply) {
        EXPECT_FALSE(reply.setHeader("A", "b\r\nC: d"));
        EXPECT_FALSE(reply.setHeader("A b", "c"));
        EXPECT_TRUE(reply.setHeader("content-length", "7"));
        EXPECT_TRUE(reply.setHeader("x-frame-options", "SAMEORIGIN"));
        reply.setStatus(1000);
        return true;
    });
    add("/nested", [this](const auto&, auto& reply) {
        EXPECT_FALSE(server.update());
        EXPECT_TRUE(server.addPage("/nested", Corvid::WebPageStatic("text/plain", "second")));
        reply.setBody("first");
        return true;
    });
    RawHttp peer = client();
    EXPECT_EQ(peer.get("/throws").status, 500);
    EXPECT_EQ(peer.get("/false").status, 404);
    EXPECT_EQ(peer.get("/huge").status, 500);
    const HttpAnswer odd = peer.get("/headers");
    EXPECT_EQ(odd.status, 500);
    EXPECT_TRUE(odd.has("Content-Length: 0") && odd.has("x-frame-options: SAMEORIGIN"));
    EXPECT_EQ(odd.head.find("DENY"), std::string::npos);
    EXPECT_EQ(peer.get("/nested").body, "first");
    EXPECT_EQ(peer.get("/nested").body, "second");
    const HttpAnswer cut = peer.get("/cut");
    EXPECT_EQ(cut.body, "begun");
    EXPECT_FALSE(cut.whole);
    EXPECT_EQ(
        lines, (std::vector<std::string>{
                   "the page /throws failed: no <luck>",
                   "the page /huge failed: it made 100001 bytes at once, more than 100000; give "
                   "it a producer",
                   "a page was truncated: no paper"}));

    add("/close", [this](const auto&, auto&) {
        server.close();
        return true;
    });
    RawHttp last = client();
    last.send("GET /close" + kEnd);
    EXPECT_TRUE(updateUntil([this] { return !server.isOpen(); }));
    EXPECT_FALSE(server.update());
    EXPECT_EQ(server.counters().connections, 0U);
}

TEST_F(WebServer, ListensWhereItIsToldTo) {
    constexpr std::uint32_t kOther = 0x7F000101; // 127.0.1.1, this host's name on Debian
    const auto answer = [](PolledWebServer& from, std::uint32_t host) {
        RawHttp peer(
            from.port(), [&from] { from.update(); }, host);
        return peer.connected() ? peer.get("/").status : 0;
    };
    EXPECT_EQ(answer(server, kOther), 0);
    PolledWebServer everyLocal;
    everyLocal.open("", 0);
    EXPECT_EQ(answer(everyLocal, INADDR_LOOPBACK), 404);
    EXPECT_EQ(answer(everyLocal, kOther), 404);
    for (const auto& [host, port, what] :
         {std::tuple("127.0.0.1", server.port(), "Address already in use"),
          std::tuple("192.0.2.1", std::uint16_t{0}, "Cannot assign"),
          std::tuple("a name/that cannot be", std::uint16_t{0}, "cannot look up \"a name/that")}) {
        try {
            everyLocal.open(host, port);
            ADD_FAILURE() << host;
        } catch (const Corvid::IOException& exception) {
            EXPECT_NE(std::string(exception.what()).find(what), std::string::npos);
        }
        EXPECT_FALSE(everyLocal.isOpen());
    }
    EXPECT_FALSE(server.addPage("no slash", Corvid::WebPageStatic("", "")));
}

TEST_F(WebServer, ShowsTheLastRequestsInItsLog) {
    server.addPage(
        "/log",
        Corvid::WebPageObject<Corvid::WebServer>(server, &Corvid::WebServer::createLogPage));
    server.setName("<name>");
    RawHttp peer = client();
    EXPECT_NE(peer.get("/log").body.find("the size of the log is 0"), std::string::npos);
    server.setLogSize(2);
    peer.get("/first");
    peer.get("/<script>");
    RawHttp other = client();
    other.ask("rubbish\r\n\r\n");
    const std::string log = peer.get("/log").body;
    for (const char* text :
         {"GET /&lt;script&gt;</td><td>404", ">-</td><td>400", "&lt;name&gt;",
          "The last 2 of at most 2"}) {
        EXPECT_NE(log.find(text), std::string::npos) << text << '\n' << log;
    }
    EXPECT_EQ(log.find("/first"), std::string::npos);
    EXPECT_EQ(log.find("<script"), std::string::npos);
}
