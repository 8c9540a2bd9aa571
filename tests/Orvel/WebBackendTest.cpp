#include "support/Capture.h"
#include "support/RawHttp.h"
#include "support/RecordingBackend.h"

#include <Corvid/EscapeHtml.h>
#include <Corvid/InetAddress.h>
#include <Corvid/PolledWebServer.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/Version.h>
#include <Orvel/WebBackend.h>
#include <Vessa/SysInfo.h>

#include <algorithm>
#include <ctime>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/syscall.h>

namespace {

bool noDescriptors = false;

} // namespace

// Replaces the system's function in the library. A limit on descriptors would also work, but the
// undefined behaviour sanitizer needs some itself.
extern "C" int epoll_create1(int flags) noexcept {
    if (noDescriptors) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_epoll_create1, flags));
}

namespace Orvel::Test {

namespace {

using namespace std::string_literals;

/// A checksum (FNV-1a) of the index page with the texts of this machine and build replaced.
std::uint64_t sumOf(std::string page) {
    const Vessa::SysInfo& info = Vessa::SysInfo::the();
    for (const std::string& text : {info.user(), info.host(), info.system(), buildDate() + ""s}) {
        const std::string cell = "<TD>" + Corvid::escapeHtml(text) + '<';
        const std::size_t at = page.find(cell);
        page.replace(std::min(at, page.size()), cell.size(), "<TD>?<");
    }
    std::uint64_t sum = 0xCBF29CE484222325U;
    for (const char c : page) {
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    }
    return sum;
}

WebBackend& addTo(World& world) {
    return dynamic_cast<WebBackend&>(*world.addBackend("web", ""));
}

RawHttp clientOf(const WebBackend& web) {
    return RawHttp(web.webServer()->port(), [&web] { web.world().update(); });
}

} // namespace

TEST(WebBackend, ServesItsPagesByteForByte) {
    LogCapture log(Log::Level::Warning);
    TidyWorld world;
    const WebBackend& web = addTo(world);
    EXPECT_EQ(
        log.take(),
        Calls{
            "LOG: Web server open ok: http://" + Corvid::InetAddress::getLocalHostName() + ":" +
            std::to_string(web.webServer()->port()) + "\n"});
    RawHttp peer = clientOf(web);
    const HttpAnswer moved = peer.get("/");
    EXPECT_EQ(moved.status, 301);
    EXPECT_TRUE(moved.has("Location: /index.html"));
    const HttpAnswer index = peer.get("/index.html");
    EXPECT_TRUE(index.has("Content-Type: text/html"));
    EXPECT_EQ(sumOf(index.body), 141189724854268661U) << index.body;
    for (int i = 0; i < 3; ++i) {
        world.createEmitter();
    }
    world.createSource();
    EXPECT_EQ(sumOf(peer.get("/index.html").body), 2571277387299903045U)
        << peer.get("/index.html").body;

    const HttpAnswer style = peer.get("/Style.css");
    EXPECT_TRUE(style.has("Content-Type: text/css"));
    EXPECT_EQ(style.body.size(), 739U);
    EXPECT_TRUE(style.body.ends_with(std::string("White }\n\0", 9)));
    const HttpAnswer icon = peer.get("/favicon.ico");
    EXPECT_TRUE(icon.has("Content-Type: image/x-icon"));
    EXPECT_EQ(icon.body.substr(0, 4), std::string("\0\0\1\0", 4));
    EXPECT_NE(peer.get("/log.html").body.find("the size of the log is 0"), std::string::npos);
    for (const char* path : {"/Backends", "/Sources", "/Emitter", "/style.css"}) {
        EXPECT_EQ(peer.get(path).status, 404) << path;
    }
    std::tm built = {};
    const char* rest = ::strptime(buildDate(), "%b %e %Y %T", &built);
    ASSERT_NE(rest, nullptr) << buildDate();
    EXPECT_EQ(rest, buildDate() + 20);
    EXPECT_TRUE(log.lines().empty());
}

TEST(WebBackend, LivesOnWithoutAPort) {
    LogCapture log(Log::Level::Warning);
    TidyWorld world;
    noDescriptors = true;
    WebBackend& web = addTo(world);
    noDescriptors = false;
    EXPECT_EQ(log.lines(), Calls{"FATAL: Could not create web server; :0\n"});
    EXPECT_TRUE(web.update());
    EXPECT_EQ(world.backends().size(), 1U);
    EXPECT_EQ(WebBackend(web).webServer(), nullptr);
}

} // namespace Orvel::Test
