#include <Orvel/WebBackend.h>

#include <Corvid/EscapeHtml.h>
#include <Corvid/IOException.h>
#include <Corvid/InetAddress.h>
#include <Corvid/PolledWebServer.h>
#include <Corvid/WebPageObject.h>
#include <Corvid/WebPageRedirection.h>
#include <Corvid/WebPageStatic.h>
#include <Orvel/BackendState.h>
#include <Orvel/Version.h>
#include <Orvel/World.h>
#include <Orvel/detail/Report.h>
#include <Vessa/SysInfo.h>

#include <string>

namespace Orvel {

namespace {

/// The notice at the right of the index page's header.
constexpr const char* kNotice = "Orvel";

bool setAddress(Corvid::Multicast& multicast, const std::string& text) {
    if (text.empty()) {
        return true; // unchanged
    }
    const Corvid::InetAddress address = Corvid::InetAddress::getByAddress(text);
    return address.isValid() && multicast.setAddress(address);
}

std::string row(const char* name, std::size_t count, const char* link) {
    return "    <TR><TD>" + std::string(name) + "</TD><TD>" + std::to_string(count) +
           "</TD><TD><A HREF=\"" + link + "\">All</A></TD></TR>\n";
}

} // namespace

const char WebBackend::_stylePage[739] =
    "body { color: black; background-color: white; font-family: sans-serif }\n"
    "div.lHeader { font-style: italic; text-align: left }\n"
    "div.rHeader { font-style: italic; text-align: right }\n"
    "div.footer { font-style: italic }\n"
    "hr { }\n"
    "ul { list-style-type: square }\n"
    "h1 { color: #999999 }\n"
    "h2 { color: #999999 }\n"
    "table.header { background-color: #003399 }\n"
    "tr.header { color: white }\n"
    "td.header { color: white }\n"
    "a.header:link { color: white }\n"
    "a.header:visited { color: white }\n"
    "a.header:hover { color: white }\n"
    "a.header:active { color: white }\n"
    "th { color: white; background-color: #003399 }\n"
    "tr { text-align: justify; vertical-align: top }\n"
    "tr.dynamic { background-color: Blue }\n"
    "tr.private { background-color: PapayaWhip }\n"
    "tr.public  { background-color: White }\n";

WebBackend::WebBackend(World& world, const char* params)
    : Backend(world, params), webServer_(std::make_unique<Corvid::PolledWebServer>()) {
    using Corvid::WebPageObject;
    using Corvid::WebPageStatic;
    using Corvid::WebServer;
    Corvid::PolledWebServer& server = *webServer_;
    server.addPage("/", Corvid::WebPageRedirection("/index.html"));
    server.addPage("/index.html", WebPageObject<WebBackend>(*this, &WebBackend::createIndexPage));
    server.addPage("/log.html", WebPageObject<WebServer>(server, &WebServer::createLogPage));
    // Includes the terminating zero.
    server.addPage("/Style.css", WebPageStatic("text/css", {_stylePage, sizeof _stylePage}));
    server.addPage("/favicon.ico", WebPageStatic("image/x-icon", std::string(WebServer::icon())));
    server.setName("Orvel");
    server.setNotice("");
    server.setContact("");
    server.setDiagnostic([](const std::string& line) {
        ORVEL_REPORT(
            Warning, detail::about(Diagnostic::Code::WebServer, {}, {}, line), "WebBackend: %s\n",
            line.c_str());
    });

    const std::string address;
    bool success = setAddress(server.multicast(), address);
    server.setLogSize(0);
    try {
        server.open(address, 0);
    } catch (const Corvid::IOException& exception) {
        success = false;
        ORVEL_LOG(Info, "WebBackend: %s\n", exception.what());
    }
    if (success) {
        ORVEL_LOG(
            Log, "Web server open ok: http://%s:%d\n",
            Corvid::InetAddress::getLocalHostName().c_str(), server.port());
    } else {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::WebServer),
            "Could not create web server; %s:%d\n", address.c_str(), 0);
    }
}

WebBackend::WebBackend(const WebBackend& other) : Backend(other) {}

WebBackend::~WebBackend() {
    if (webServer_) {
        webServer_->close();
    }
}

bool WebBackend::update() {
    webServer_->update();
    return true;
}

BackendState WebBackend::state() const {
    BackendState state;
    state.working = webServer_ != nullptr && webServer_->isOpen();
    state.webServer = webServer_.get();
    if (state.working) {
        state.page = "http://" + Corvid::InetAddress::getLocalHostName() + ":" +
                     std::to_string(webServer_->port()) + "/";
    }
    return state;
}

BackendType* WebBackend::type() {
    return &_type;
}

void WebBackend::createIndexPage(
    const Corvid::ProtocolHTTP::Request& /*request*/, Corvid::ProtocolHTTP::Reply& reply) {
    using Corvid::escapeHtml;
    reply.setHeader("Content-Type", "text/html");
    const Vessa::SysInfo& info = Vessa::SysInfo::the();
    // Programs that read this page rely on the odd line end and cell tags.
    reply.setBody(
        "<HTML>\n  <HEAD>\n    <TITLE>Orvel Web Interface</TITLE>\n"
        "    <LINK REL=\"stylesheet\" TYPE=\"text/css\" HREF=\"/Style.css\">"
        "    <LINK REL=\"ICON\" HREF=\"/favicon.ico\">\n"
        "    <LINK REL=\"SHORTCUT ICON\" HREF=\"/favicon.ico\"\n>"
        "  </HEAD>\n  <BODY>\n"
        "    <TABLE CLASS=\"header\" CELLSPACING=0 CELLPADDING=3 BORDER=0 WIDTH=100%>"
        "<TR CLASS=\"header\">\n"
        "    <TD CLASS=\"header\"><DIV CLASS=lHeader>Orvel Web Interface</DIV></TD>\n"
        "    <TD CLASS=\"header\"><DIV CLASS=rHeader>" +
        escapeHtml(kNotice) +
        "</DIV></TD>\n    </TR></TABLE>\n    <H1>Orvel Web Interface</H1>\n"
        "    <P><TABLE CELLSPACING=0 CELLPADDING=0 BORDER=0><TR><TD>User:</TD><TD>" +
        escapeHtml(info.user()) + "<TD></TR>\n    <TR><TD>Host:</TD><TD>" +
        escapeHtml(info.host()) + "</TD></TR>\n    <TR><TD>System:</TD><TD>" +
        escapeHtml(info.system()) + "</TD></TR>\n    <TR><TD>Orvel Version:&nbsp;</TD><TD>" +
        buildDate() +
        "</TD></TR></TABLE></P>\n    <TABLE border=\"1\">\n"
        "    <TR><TH>Object Type</TH><TH>Count</TH><TH>Page</TH></TR>\n" +
        row("Backend", world().backends().size(), "/Backends") +
        row("Sources", world().sources().size(), "/Sources") +
        row("Emitter", world().emitters().size(), "/Emitter") +
        "    </TABLE>\n"
        "    <TABLE CLASS=\"header\" CELLSPACING=0 CELLPADDING=3 BORDER=0 WIDTH=100%>"
        "<TR CLASS=\"header\">\n"
        "    <TD CLASS=\"header\"><DIV CLASS=footer>&nbsp;</DIV></TD>\n"
        "    </TR></TABLE>\n  </BODY>\n</HTML>\n");
}

Backend* WebBackend::createMethod(World& world, const char* params) {
    return new WebBackend(world, params);
}

} // namespace Orvel
