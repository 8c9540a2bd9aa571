#include "support/Capture.h"
#include "support/RawHttp.h"
#include "support/RecordingBackend.h"

#include <Corvid/InetAddress.h>
#include <Corvid/PolledWebServer.h>
#include <Corvid/escapeHtml.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/Version.h>
#include <Orvel/WebBackend.h>
#include <Vessa/SysInfo.h>

#include <ctime>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/syscall.h>

namespace {

bool noDescriptors = false;

} // namespace

// Taken by the library instead of the system's. A limit of descriptors would do without, but the
// undefined behaviour sanitizer needs some of its own.
extern "C" int epoll_create1(int flags) noexcept {
    if (noDescriptors) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_epoll_create1, flags));
}

namespace Orvel::Test {

namespace {

/// The index page as it must be, with three counts.
std::string indexPage(int backends, int sources, int emitters) {
    const Vessa::SysInfo& info = Vessa::SysInfo::the();
    const std::string bar = R"(    <TABLE CLASS="header" CELLSPACING=0 CELLPADDING=3 BORDER=0 )"
                            R"(WIDTH=100%><TR CLASS="header">
)";
    return R"(<HTML>
  <HEAD>
    <TITLE>Orvel Web Interface</TITLE>
    <LINK REL="stylesheet" TYPE="text/css" HREF="/Style.css">    <LINK REL="ICON" HREF="/favicon.ico">
    <LINK REL="SHORTCUT ICON" HREF="/favicon.ico"
>  </HEAD>
  <BODY>
)" + bar +
           R"(    <TD CLASS="header"><DIV CLASS=lHeader>Orvel Web Interface</DIV></TD>
    <TD CLASS="header"><DIV CLASS=rHeader>Orvel</DIV></TD>
    </TR></TABLE>
    <H1>Orvel Web Interface</H1>
    <P><TABLE CELLSPACING=0 CELLPADDING=0 BORDER=0><TR><TD>User:</TD><TD>)" +
           Corvid::escapeHtml(info.user()) + "<TD></TR>\n    <TR><TD>Host:</TD><TD>" +
           Corvid::escapeHtml(info.host()) + "</TD></TR>\n    <TR><TD>System:</TD><TD>" +
           Corvid::escapeHtml(info.system()) +
           "</TD></TR>\n    <TR><TD>Orvel Version:&nbsp;</TD><TD>" + buildDate() +
           R"(</TD></TR></TABLE></P>
    <TABLE border="1">
    <TR><TH>Object Type</TH><TH>Count</TH><TH>Page</TH></TR>
    <TR><TD>Backend</TD><TD>)" +
           std::to_string(backends) + R"(</TD><TD><A HREF="/Backends">All</A></TD></TR>
    <TR><TD>Sources</TD><TD>)" +
           std::to_string(sources) + R"(</TD><TD><A HREF="/Sources">All</A></TD></TR>
    <TR><TD>Emitter</TD><TD>)" +
           std::to_string(emitters) + R"(</TD><TD><A HREF="/Emitter">All</A></TD></TR>
    </TABLE>
)" + bar + R"(    <TD CLASS="header"><DIV CLASS=footer>&nbsp;</DIV></TD>
    </TR></TABLE>
  </BODY>
</HTML>
)";
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
    EXPECT_EQ(index.body, indexPage(1, 0, 0));
    for (int i = 0; i < 3; ++i) {
        world.createEmitter();
    }
    world.createSource();
    EXPECT_EQ(peer.get("/index.html").body, indexPage(1, 1, 3));

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
