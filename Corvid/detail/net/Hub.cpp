#include <Corvid/detail/net/Hub.h>

#include <Corvid/MultiClient.h>

#include <boost/asio/error.hpp>

#include <algorithm>
#include <iterator>
#include <limits>
#include <random>
#include <sys/resource.h>
#include <utility>

namespace Corvid::detail {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Severity = MultiCommunicator::Severity;

constexpr auto kTimeToGreet = 5s;
// What is queued at closing may leave as long as the peers take something of it, within limits. A
// segment that got lost is sent again after a round trip and 200 ms.
constexpr auto kTimeToLeave = 500ms;
constexpr auto kMaxTimeToLeave = 2s;
constexpr auto kDrainInterval = 2ms;
constexpr int kServedPerTurn = 256; // events between two looks at the sockets
constexpr auto kNap = 200us;
constexpr std::size_t kMostInputBytes = std::size_t{256} << 20U;
constexpr std::size_t kUsualInputBytes = std::size_t{256} << 10U; // of one connection

std::uint64_t randomNumber() {
    std::random_device device;
    return std::uint64_t{device()} << 32U | device();
}

/// Whether a descriptor that has just been opened is none of the last that the process may have.
bool leavesDescriptors(int descriptor) {
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return true;
    }
    const rlim_t kept = std::min<rlim_t>(MultiCommunicator::kKeptDescriptors, limit.rlim_cur / 4);
    return static_cast<rlim_t>(descriptor) < limit.rlim_cur - kept; // the lowest is taken first
}

std::string nameOf(const Connection& connection) {
    return connection.peerName() + " (id " + std::to_string(connection.peer().id) + ")";
}

} // namespace

Hub::Hub(MultiCommunicator& owner, int protocolVersion)
    : owner_(owner), version_(static_cast<std::uint16_t>(protocolVersion)),
      instance_(randomNumber()), loop_(std::make_shared<Loop>()), napTimer_(loop_->io) {}

Hub::~Hub() {
    try {
        close();
        watches_.clear();
        loop_->stop();
        while (loop_->io.poll() > 0) { // what was cancelled lets go of what it holds
        }
    } catch (...) { // only memory can be missing, and a destructor can do nothing about it
    }
}

bool Hub::open(Role& role) {
    if (opened_) {
        return false;
    }
    opened_ = true;
    role_ = &role;
    loop_->stream.open();
    open_ = true;
    return true;
}

Greeting Hub::greeting() const {
    return {version_, instance_, id, features};
}

void Hub::reportRefusal(const std::string& text) {
    if (refusalLines_.admit()) {
        report(Severity::Warning, text);
    }
}

void Hub::reportVisit(const std::string& text) {
    if (visitLines_.admit()) {
        report(Severity::Notice, text);
    }
}

void Hub::reportLeftOut(bool final) {
    if (const auto count = refusalLines_.takeLeftOut(final); count != 0) {
        report(
            Severity::Warning,
            std::to_string(count) + " more lines about refused peers were left out");
    }
    if (const auto count = visitLines_.takeLeftOut(final); count != 0) {
        report(
            Severity::Notice,
            std::to_string(count) + " more lines about peers that came and went were left out");
    }
}

std::unique_lock<std::mutex> Hub::lockInput() {
    return deferred_ ? std::unique_lock(inputMutex_) : std::unique_lock<std::mutex>();
}

void Hub::nudge() {
    if (loop_->stream.addWork()) {
        loop_->wake();
    }
}

bool Hub::sendFrame(const std::byte* frame, std::size_t size) {
    if (frameSize({frame, size}) != size) {
        return false;
    }
    bool wake = false;
    const bool taken = loop_->stream.append(frame, size, wake);
    if (wake) {
        loop_->wake();
    }
    return taken;
}

// Coming

/// Has an idle connection give way if there are too many; the result says why the newcomer may not
/// stay, if it may not.
std::string Hub::makeRoom(const Pointer& newcomer) {
    std::vector<Pointer> others(ungreeted_.begin(), ungreeted_.end());
    {
        const auto lock = lockInput();
        others.insert(others.end(), new_.begin(), new_.end());
    }
    {
        const std::scoped_lock lock(mutex_);
        others.insert(others.end(), registered_.begin(), registered_.end());
    }
    std::erase_if(others, [](const Pointer& other) { return other->isEnded(); });
    std::vector<Pointer> neighbours;
    if (newcomer->target().empty()) { // servers have a limit of their own
        std::copy_if(
            others.begin(), others.end(), std::back_inserter(neighbours),
            [&](const Pointer& other) { return other->peerAddress() == newcomer->peerAddress(); });
    }
    if (neighbours.size() >= maxPerAddress && !endIdle(neighbours)) {
        return "there are too many connections from its address";
    }
    if (others.size() >= MultiCommunicator::kMaxConnections && !endIdle(others)) {
        return "there are too many connections";
    }
    if (!leavesDescriptors(newcomer->socket().native_handle())) {
        endIdle(others); // which closes later, and makes room for the next
        return "the last file descriptors are for the process itself";
    }
    return {};
}

/// Ends the oldest connection that has sent nothing; false if there is none.
bool Hub::endIdle(const std::vector<Pointer>& connections) {
    Pointer oldest;
    for (const Pointer& connection : connections) {
        if (!connection->isEnded() && connection->isIdle(MultiCommunicator::kTimeToBegin) &&
            (!oldest || connection->since() < oldest->since())) {
            oldest = connection;
        }
    }
    if (!oldest) {
        return false;
    }
    const std::string reason = "it has sent nothing, and another needs its place";
    if (oldest->communicator == nullptr) {
        refuse(oldest, reason);
    } else {
        oldest->end(reason);
        lose(oldest);
    }
    return true;
}

void Hub::adopt(boost::asio::ip::tcp::socket socket, const std::string& target) {
    const auto connection = std::make_shared<Connection>(loop_, std::move(socket), noDelay, target);
    if (const std::string reason = makeRoom(connection); !reason.empty()) {
        reportRefusal("refused " + connection->peerName() + ": " + reason);
        refuse(connection, reason);
        return;
    }
    ungreeted_.push_back(connection);
    // A client shows who it is when it knows that it will stay; see role_->accept().
    if (target.empty() && !connection->sendGreeting(greeting())) {
        refuse(connection, "the connection broke at once");
        return;
    }
    // Whoever fills the house with silent connections loses the oldest of them; others greet fast.
    if (ungreeted_.size() > MultiCommunicator::kMaxUngreeted) {
        refuse(Pointer(ungreeted_.front()), "too many others have not shown either who they are");
    }
    connection->deadline().expires_after(kTimeToGreet);
    connection->deadline().async_wait([this, connection](const boost::system::error_code& error) {
        if (!error && open_) {
            refuse(connection, "it has not shown who it is in time");
        }
    });
    waitToRead(connection);
}

bool Hub::forgetUngreeted(const Pointer& connection) {
    return std::erase(ungreeted_, connection) > 0;
}

void Hub::refuse(const Pointer& connection, const std::string& reason) {
    forgetUngreeted(connection);
    if (connection->lossNoted) {
        return;
    }
    connection->lossNoted = true;
    connection->end(reason);
    connection->deadline().cancel();
    countRefusal();
    if (connection->hasSaidAnything()) { // others only look whether somebody listens
        reportRefusal("refused " + connection->peerName() + ": " + reason);
    }
    role_->lost(*connection);
}

void Hub::readGreeting(const Pointer& connection) {
    switch (connection->readGreeting()) {
    case Connection::Status::Blocked:
        waitToRead(connection);
        return;
    case Connection::Status::Failed:
        refuse(connection, connection->endReason());
        return;
    case Connection::Status::Done:
    case Connection::Status::More:
        break;
    }
    if (connection->peer().version != version_) {
        refuse(
            connection, "it speaks version " + std::to_string(connection->peer().version) +
                            " of the protocol, and this program version " +
                            std::to_string(version_) + "; use the same release on both");
        return;
    }
    forgetUngreeted(connection);
    connection->deadline().cancel();
    if (!role_->accept(*connection)) {
        connection->lossNoted = true;
        connection->end("there is a connection with this peer already");
        return;
    }
    if (!connection->target().empty() && !connection->sendGreeting(greeting())) {
        refuse(connection, "the connection broke at once");
        return;
    }
    if (!deferred_) {
        introduce(connection);
        return;
    }
    const auto lock = lockInput();
    new_.push_back(connection);
}

void Hub::introduce(const Pointer& connection) {
    reportVisit("connected with " + nameOf(*connection));
    std::unique_ptr<Communicator> communicator(new Communicator(connection));
    connection->communicator = communicator.get();
    connection->input = Connection::Input::Out;
    if (!deferred_) {
        connection->beginReplay();
    }
    const bool kept = owner_.addCommunicator(communicator.get());
    if (!deferred_) {
        connection->endReplay();
    }
    bool registered = false;
    {
        const std::scoped_lock lock(mutex_);
        registered = std::count(registered_.begin(), registered_.end(), connection) > 0;
    }
    if (kept && registered) {
        static_cast<void>(communicator.release()); // now it is ours until close(), see there
        {
            const auto lock = lockInput();
            connection->input = Connection::Input::Reading;
            resume_.push_back(connection);
        }
        if (loop_->stream.ready(connection->outlet())) {
            loop_->wake();
        }
        return;
    }
    connection->end("the application did not want it");
    if (!registered || !remove(communicator.get())) {
        const auto lock = lockInput();
        removed_.push_back(connection);
    }
}

bool Hub::add(Communicator* communicator) {
    const Pointer connection = communicator->connection_;
    if (!open_ || connection->isEnded()) {
        return false;
    }
    loop_->stream.join(connection->outlet());
    const std::scoped_lock lock(mutex_);
    ++totals_.connected;
    registered_.push_back(connection);
    return true;
}

// Going

bool Hub::remove(Communicator* communicator) {
    const Pointer connection = communicator->connection_;
    {
        const std::scoped_lock lock(mutex_);
        if (std::erase(registered_, connection) == 0) {
            return false;
        }
        const Communicator::Counters counters = connection->counters();
        totals_.eventsIn += counters.eventsIn;
        totals_.bytesIn += counters.bytesIn;
        totals_.eventsOut += counters.eventsOut;
        totals_.bytesOut += counters.bytesOut;
        totals_.eventsLeftOut += counters.eventsLeftOut;
    }
    {
        const auto lock = lockInput();
        const bool broken = connection->input != Connection::Input::Reading &&
                            connection->next() == InputBuffer::Next::Broken;
        connection->end(broken ? "it sent something that is no event" : "the application ended it");
        loop_->stream.leave(connection->outlet());
        connection->communicator = nullptr;
        connection->input = Connection::Input::Out;
        std::erase(ready_, connection);
        std::erase(resume_, connection);
        if (current_ == connection) {
            current_ = nullptr;
        }
        removed_.push_back(connection);
    }
    nudge();
    return true;
}

void Hub::noteLoss(Connection& connection) {
    if (connection.lossNoted) {
        return;
    }
    connection.lossNoted = true;
    loop_->stream.leave(connection.outlet());
    MultiCommunicator::Drop drop;
    drop.peer = connection.peerName();
    drop.peerId = connection.peer().id;
    drop.when = std::chrono::system_clock::now();
    drop.reason = connection.endReason();
    {
        const std::scoped_lock lock(mutex_);
        ++totals_.dropped;
        auto& drops = totals_.lastDrops;
        if (drops.size() == MultiCommunicator::kMaxDrops) {
            drops.erase(drops.begin());
        }
        drops.push_back(drop);
    }
    role_->lost(connection);
    reportVisit("lost " + nameOf(connection) + ": " + drop.reason);
}

void Hub::lose(const Pointer& connection) {
    noteLoss(*connection);
    const auto lock = lockInput();
    if (connection->input == Connection::Input::Reading) {
        connection->input = Connection::Input::Ready;
        ready_.push_back(connection);
    }
}

/// Ends a connection and discards what it has left unread.
void Hub::abandon(const Pointer& connection, const std::string& reason) {
    connection->end(reason);
    connection->discardInput();
    lose(connection);
}

void Hub::replaceBy(const Connection& newer) {
    std::vector<Pointer> older;
    {
        const std::scoped_lock lock(mutex_);
        older = registered_;
    }
    for (const Pointer& connection : older) {
        if (connection->peer().instance == newer.peer().instance) {
            abandon(connection, "the peer has connected anew");
        }
    }
}

void Hub::discardLeftovers(const Communicator* since) {
    std::vector<Pointer> earlier;
    {
        const std::scoped_lock lock(mutex_);
        const auto self =
            std::find_if(registered_.begin(), registered_.end(), [since](const Pointer& other) {
                return other->communicator == since;
            });
        if (self != registered_.end()) { // a nested call may have removed it
            earlier.assign(registered_.begin(), self);
        }
    }
    for (const Pointer& connection : earlier) {
        if (connection->isEnded() || connection->isPeerGone()) {
            abandon(connection, "the peer closed the connection");
        }
    }
}

// Reading and writing

void Hub::waitToRead(const Pointer& connection) {
    if (std::exchange(connection->waitingToRead, true)) {
        return;
    }
    connection->socket().async_wait(
        boost::asio::ip::tcp::socket::wait_read,
        [this, connection](const boost::system::error_code& error) {
            connection->waitingToRead = false;
            if (!open_ || connection->lossNoted) {
                return;
            }
            if (error) {
                connection->end(error.message());
            }
            if (connection->active) {
                read(connection);
            } else {
                readGreeting(connection);
            }
        });
}

void Hub::read(const Pointer& connection) {
    {
        const auto lock = lockInput();
        if (connection->input != Connection::Input::Reading) {
            return;
        }
    }
    // While it is Reading, its buffer is the loop thread's.
    const std::size_t before = connection->inputCapacity();
    const Connection::Status status = connection->read();
    inputBytes_ += connection->inputCapacity() - before;
    if (inputBytes_ > kMostInputBytes && connection->inputCapacity() > kUsualInputBytes) {
        connection->end("too many large events are arriving at once");
    }
    if (status == Connection::Status::Failed || connection->isEnded()) {
        lose(connection);
        return;
    }
    if (connection->next() == InputBuffer::Next::Part) {
        waitToRead(connection);
        return;
    }
    const auto lock = lockInput();
    if (connection->input == Connection::Input::Reading) { // and not removed meanwhile
        connection->input = Connection::Input::Ready;
        ready_.push_back(connection);
    }
}

void Hub::waitToWrite(const Pointer& connection) {
    if (std::exchange(connection->waitingToWrite, true)) {
        return;
    }
    connection->socket().async_wait(
        boost::asio::ip::tcp::socket::wait_write,
        [this, connection](const boost::system::error_code& error) {
            connection->waitingToWrite = false;
            loop_->stream.unblock(connection->outlet());
            if (!error && !connection->lossNoted) {
                write(connection);
                loop_->stream.trim();
            }
        });
}

void Hub::write(const Pointer& connection) {
    switch (connection->write()) {
    case Connection::Status::Done:
        break;
    case Connection::Status::More:
        moreToWrite_ = true;
        loop_->stream.addWork();
        break;
    case Connection::Status::Blocked:
        waitToWrite(connection);
        break;
    case Connection::Status::Failed:
        lose(connection);
        break;
    }
}

void Hub::flush() {
    for (const Pointer& connection : active_) {
        if (!connection->lossNoted) {
            write(connection);
        }
    }
    loop_->stream.trim();
}

// The loop

void Hub::resumeAndForget() {
    std::vector<Pointer> resume;
    std::vector<Pointer> removed;
    {
        const auto lock = lockInput();
        if (resume_.empty() && removed_.empty()) {
            return;
        }
        resume.swap(resume_);
        removed.swap(removed_);
    }
    for (const Pointer& connection : resume) {
        if (!connection->active) {
            connection->active = true;
            active_.push_back(connection);
        }
        if (connection->lossNoted) {
            continue;
        }
        if (connection->isEnded()) {
            lose(connection);
        } else if (connection->isDry()) {
            waitToRead(connection);
        } else {
            read(connection);
        }
    }
    for (const Pointer& connection : removed) {
        inputBytes_ -= connection->inputCapacity();
        std::erase(active_, connection);
        noteLoss(*connection);
    }
}

void Hub::turn(bool block, End end) {
    // First of all: what is handed over from here on asks for work anew, and so for another turn.
    const bool work = loop_->stream.takeWork();
    role_->turn();
    reportLeftOut();
    resumeAndForget();
    moreToWrite_ = false;
    if (work) {
        flush();
    }
    const bool inBatch = (loop_->takeWoken() || std::exchange(napped_, false)) && work;
    served_ = 0;
    if (block && (deferred_ || ready_.empty()) && !break_) {
        if (inBatch && !moreToWrite_) {
            nap();
        } else if (loop_->stream.beginSleep()) {
            if (end) {
                loop_->io.run_one_until(*end);
            } else {
                loop_->io.run_one();
            }
            loop_->stream.endSleep();
        }
    }
    loop_->io.poll();
}

/// Waits a moment without asking to be woken for what is to be sent; input ends it at once. Whoever
/// has woken this thread is probably making a batch of events. It should not have to wake it again
/// for the next of them, at the cost of a change of threads where both share a processor, nor meet
/// this thread at the mutex while it fetches them one by one.
void Hub::nap() {
    napTimer_.expires_after(kNap);
    napTimer_.async_wait([this](const boost::system::error_code& error) { napped_ = !error; });
    loop_->io.run_one();
    napTimer_.cancel();
}

/// A connection that was handed out is put where its next frame, or its end, will be seen.
void Hub::finishCurrent() {
    const auto lock = lockInput();
    if (!current_) {
        return;
    }
    Pointer connection = std::move(current_);
    if (connection->lossGiven) {
        return;
    }
    if (connection->next() != InputBuffer::Next::Part || connection->isEnded()) {
        connection->input = Connection::Input::Ready;
        ready_.push_back(std::move(connection));
    } else {
        connection->input = Connection::Input::Reading;
        resume_.push_back(std::move(connection));
    }
}

Connection* Hub::takeReady() {
    const auto lock = lockInput();
    if (ready_.empty()) {
        return nullptr;
    }
    current_ = std::move(ready_.front()); // moved, as this happens for each frame
    ready_.pop_front();
    current_->input = Connection::Input::Out;
    current_->lossGiven = current_->next() != InputBuffer::Next::Frame;
    return current_.get();
}

bool Hub::watch(int descriptor) {
    const auto watch = std::make_shared<Watch>(loop_->io);
    boost::system::error_code error;
    const bool known =
        std::any_of(watches_.begin(), watches_.end(), [descriptor](const auto& other) {
            return other->descriptor.native_handle() == descriptor;
        });
    if (known) {
        return false;
    }
    watch->descriptor.assign(descriptor, error);
    if (error) {
        return false;
    }
    watches_.push_back(watch);
    return true;
}

bool Hub::unwatch(int descriptor) {
    return std::erase_if(watches_, [descriptor](const auto& watch) {
               return watch->descriptor.native_handle() == descriptor;
           }) > 0;
}

void Hub::armWatches() {
    watchFired_ = false;
    for (const auto& watch : watches_) {
        if (!std::exchange(watch->armed, true)) {
            watch->descriptor.async_wait(
                boost::asio::posix::stream_descriptor::wait_read,
                [this, weak = std::weak_ptr(watch)](const boost::system::error_code& error) {
                    const auto fired = weak.lock();
                    if (fired && error != boost::asio::error::operation_aborted) {
                        fired->armed = false;
                        watchFired_ = true;
                    }
                });
        }
    }
}

bool Hub::wait(Communicator** communicator, End end) {
    if (communicator == nullptr) {
        armWatches();
    }
    while (open_) {
        if (break_ && break_.exchange(false)) {
            return false;
        }
        if (!deferred_) {
            finishCurrent();
            if (!ready_.empty() && served_ < kServedPerTurn) {
                if (communicator != nullptr) {
                    *communicator = takeReady()->communicator;
                    ++served_;
                }
                return true;
            }
        }
        if ((communicator == nullptr && watchFired_) || (end && Clock::now() >= *end)) {
            return false;
        }
        turn(true, end);
    }
    return false;
}

bool Hub::available(int& count) {
    count = 0;
    if (!open_) {
        return false;
    }
    if (deferred_) {
        turn(false);
        return true;
    }
    finishCurrent();
    if (ready_.empty() || served_ >= kServedPerTurn) {
        turn(false);
    }
    count = static_cast<int>(ready_.size());
    return true;
}

void Hub::breakWait() {
    break_ = true;
    loop_->wake();
}

int Hub::deliver(const std::function<void(Communicator*)>& receive) {
    if (!open_ || !deferred_ || delivering_) {
        return 0;
    }
    delivering_ = true;
    const std::unique_ptr<bool, void (*)(bool*)> end(
        &delivering_, [](bool* delivering) { *delivering = false; });
    finishCurrent(); // left behind if `receive` has thrown
    for (;;) {
        Pointer connection;
        {
            const auto lock = lockInput();
            if (new_.empty()) {
                break;
            }
            connection = std::move(new_.front());
            new_.pop_front();
        }
        introduce(connection);
    }
    int count = 0;
    while (count < MultiClient::kMaxDelivered) {
        const Connection* connection = takeReady();
        if (connection == nullptr) {
            break;
        }
        receive(connection->communicator);
        finishCurrent();
        ++count;
    }
    if (count > 0) {
        nudge(); // what was finished is to be read again
    }
    return count;
}

MultiCommunicator::Counters Hub::counters() const {
    const std::scoped_lock lock(mutex_);
    MultiCommunicator::Counters counters = totals_;
    for (const Pointer& connection : registered_) {
        counters.connections.push_back(connection->counters());
        const Communicator::Counters& one = counters.connections.back();
        counters.eventsIn += one.eventsIn;
        counters.bytesIn += one.bytesIn;
        counters.eventsOut += one.eventsOut;
        counters.bytesOut += one.bytesOut;
        counters.eventsLeftOut += one.eventsLeftOut;
    }
    counters.refused = refused_;
    counters.bytesKept = loop_->stream.bytesKept();
    counters.datagramsIgnored = opened_ ? role_->datagramsIgnored() : 0;
    return counters;
}

// Closing

/// Gives what is queued its time to leave, and to arrive.
void Hub::drain() {
    const auto end = Clock::now() + kMaxTimeToLeave;
    auto deadline = Clock::now() + kTimeToLeave;
    std::uint64_t least = std::numeric_limits<std::uint64_t>::max();
    resumeAndForget();
    for (;;) {
        flush();
        std::uint64_t left = 0;
        for (const Pointer& connection : active_) {
            if (!connection->lossNoted) {
                left += loop_->stream.counts(connection->outlet()).bytesWaiting;
                left += connection->finish(loop_->stream.isDrained(connection->outlet()));
            }
        }
        const auto now = Clock::now();
        if (left < least) {
            least = left;
            deadline = std::min(end, now + kTimeToLeave);
        }
        if (left == 0 || now >= deadline) {
            return;
        }
        loop_->io.run_one_until(now + kDrainInterval);
    }
}

void Hub::close() {
    if (!open_) {
        return;
    }
    loop_->stream.close();
    role_->stop();
    open_ = false; // from here on nothing is read any more
    drain();
    std::vector<Pointer> registered;
    {
        const std::scoped_lock lock(mutex_);
        registered.swap(registered_);
    }
    for (const Pointer& connection : registered) {
        connection->end("closed");
        loop_->stream.leave(connection->outlet());
        delete connection->communicator;
    }
    for (const auto* list : {&ungreeted_, &new_}) {
        for (const Pointer& connection : *list) {
            connection->deadline().cancel();
            connection->end("closed");
        }
    }
    while (loop_->io.poll() > 0) { // the ended sockets let go of their operations
    }
    active_.clear();
    ungreeted_.clear();
    new_.clear();
    ready_.clear();
    resume_.clear();
    removed_.clear();
    current_ = nullptr;
    reportLeftOut(true);
}

} // namespace Corvid::detail
