// The cost of a web server for the loop that updates it: without a request, with one, and index
// pages per second; against the same bytes over a plain socket. Everything on one thread.
#include "Net.h"

#include <Corvid/PolledWebServer.h>
#include <Orvel/WebBackend.h>

#include <limits>
#include <memory>
#include <sys/epoll.h>

namespace {

constexpr std::string_view kRequest = "GET /index.html HTTP/1.1\r\nHost: localhost\r\n\r\n";

/// Requests the index page of a polled web server over one connection.
class Library {
public:
    Library() {
        web_ = dynamic_cast<Orvel::WebBackend*>(world_.addBackend("web", ""));
        if (web_ == nullptr || !web_->webServer()->isOpen()) {
            OrvelBench::fail("there is no back end \"web\" with a port");
        }
        auto limits = web_->webServer()->limits();
        limits.requestsPerConnection = std::numeric_limits<std::size_t>::max();
        web_->webServer()->setLimits(limits);
        client_ = OrvelBench::connectTo(web_->webServer()->port());
        // The first answer gives the length of all later ones.
        ask();
        serve();
        const std::size_t size = client_.receive(page_.data(), page_.size());
        page_.resize(size);
        if (!page_.starts_with("HTTP/1.1 200 OK\r\n") || !page_.ends_with("</HTML>\n")) {
            OrvelBench::fail("the index page did not come in one piece");
        }
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() { world_.deleteAllBackends(); }

    void ask() const { client_.sendAll(kRequest.data(), kRequest.size()); }
    void serve() { web_->update(); }
    void take() { takeAll(client_, page_.size()); }
    [[nodiscard]] const std::string& page() const { return page_; }

    static void takeAll(const OrvelBench::Socket& socket, std::size_t size) {
        static std::string buffer(1U << 16U, '\0');
        while (size > 0) {
            const std::size_t some = socket.receive(buffer.data(), std::min(size, buffer.size()));
            if (some == 0) {
                OrvelBench::fail("the server ended the connection");
            }
            size -= some;
        }
    }

private:
    Orvel::World world_;
    Orvel::WebBackend* web_ = nullptr;
    OrvelBench::Socket client_;
    std::string page_ = std::string(1U << 16U, '\0');
};

/// The same bytes both ways, without parsing.
class Plain {
public:
    explicit Plain(const std::string& page) : page_(page) {}
    void ask() const { pair_.near.sendAll(kRequest.data(), kRequest.size()); }
    void serve() const {
        Library::takeAll(pair_.far, kRequest.size());
        pair_.far.sendAll(page_.data(), page_.size());
    }
    void take() const { Library::takeAll(pair_.near, page_.size()); }

private:
    const std::string& page_;
    OrvelBench::SocketPair pair_;
};

template <class Side>
double secondsToServe(Side& side) {
    side.ask();
    const auto start = OrvelBench::Clock::now();
    side.serve();
    const double seconds = OrvelBench::secondsSince(start);
    side.take();
    return seconds;
}

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    using OrvelBench::kMicroseconds;
    OrvelBench::Report report("Web server", argc, argv);
    OrvelBench::prepareNetwork();
    Orvel::Log::the().setCallback([](Orvel::Log::Level, std::string_view) {}); // hides its address

    Library library;
    Plain plain(library.page());
    {
        Corvid::PolledWebServer alone;
        alone.open("127.0.0.1", 0);
        const OrvelBench::Socket poller(::epoll_create1(EPOLL_CLOEXEC));
        const auto look = [&poller] {
            epoll_event event{};
            benchmark::DoNotOptimize(::epoll_wait(poller.get(), &event, 1, 0));
        };
        const Aim aim{Aim::Of::Ratio, 1.25};
        report.row(
            "update(), no connection",
            report.compare(
                1, [&alone] { alone.update(); }, look),
            kMicroseconds, aim);
        report.row(
            "update(), an idle connection",
            report.compare(
                1, [&library] { library.serve(); }, look),
            kMicroseconds);
    }
    {
        OrvelBench::Pairs pairs;
        const auto start = OrvelBench::Clock::now();
        while (pairs.size() < 100 || OrvelBench::secondsSince(start) < report.budget()) {
            const double figure = secondsToServe(library);
            pairs.add(figure, secondsToServe(plain));
        }
        const OrvelBench::Comparison medians = pairs.medians();
        report.row("update() with one request", medians, kMicroseconds);
        report.limit(medians.figure, kMicroseconds, 100.0);
    }
    const auto roundTrip = [](auto& side) {
        return [&side] {
            side.ask();
            side.serve();
            side.take();
        };
    };
    const auto trip = report.compare(1, roundTrip(library), roundTrip(plain));
    report.row("an index page, asked for and taken", trip, kMicroseconds, {Aim::Of::Ratio, 3.0});
    report.row(
        "index pages a second",
        {1.0 / trip.figure, 1.0 / trip.baseline, trip.baseline / trip.figure,
         1.0 / trip.figure - 1.0 / trip.baseline},
        OrvelBench::kTimes);
    return report.finish();
}
