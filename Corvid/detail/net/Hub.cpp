#include <Corvid/detail/net/Hub.h>

#include <Corvid/MultiClient.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <random>
#include <utility>

namespace Corvid::detail {

namespace {

using namespace std::chrono_literals;
using Severity = MultiCommunicator::Severity;
using State = Connection::State;

constexpr auto kTimeToGreet = 5s;
// Time for queued data at closing, as long as the peers read some of it, within limits. A lost
// segment is sent again after a round trip and 200 ms.
constexpr auto kTimeToLeave = 500ms;
constexpr auto kMaxTimeToLeave = 2s;
constexpr auto kDrainInterval = 2ms;
constexpr int kMaxTaken = 256; // frames between two polls of the sockets
// Messages of unproven peers between two polls of the sockets: each costs up to 0.2 ms, and a flood
// of them must not delay the events of others.
constexpr int kMaxHandshakes = 4;
constexpr auto kNap = 200us;
// A host that marks the ends of its batches: how often to look for an unfinished one, and how long
// to expect the next.
constexpr auto kBatchRest = 4ms;
constexpr auto kBatchesLast = 200ms;
// A batch of a few frames for one peer is sent by the thread that ends it, which costs little more
// than to wake the loop thread, and the peer has it sooner.
constexpr std::size_t kMaxOwnBatch = 256;
constexpr std::size_t kMaxReportedOnce = 1024;
constexpr std::size_t kMaxInputBytes = std::size_t{256} << 20U;
constexpr std::size_t kUsualInputBytes = std::size_t{256} << 10U; // of one connection

std::uint64_t randomNumber() {
    std::random_device device;
    return std::uint64_t{device()} << 32U | device();
}

std::string nameOf(const Connection& connection) {
    return connection.peerName() + " (id " + std::to_string(connection.peer().id) + ")";
}

} // namespace

Hub::Hub(MultiCommunicator& owner, int protocolVersion)
    : owner_(owner), version_(static_cast<std::uint16_t>(protocolVersion)),
      instance_(randomNumber()), context_(std::make_shared<ConnectionContext>()) {
    loop()->add(*this);
}

Hub::~Hub() {
    try {
        close();
    } catch (...) { // only out of memory, and a destructor cannot handle it
    }
    loop()->remove(*this);
}

bool Hub::open(Role& role) {
    if (role_ != nullptr) {
        return false;
    }
    role_ = &role;
    if (keyring_ != nullptr) {
        role.setKeys(keyring_);
    }
    context_->stream.open();
    open_ = true;
    return true;
}

bool Hub::setKeys(const std::string& path) {
    keyring_ = std::make_shared<Keyring>(path);
    if (role_ != nullptr) {
        role_->setKeys(keyring_);
    }
    return takeChange(keyring_->look());
}

/// Returns whether there are keys.
bool Hub::takeChange(const Keyring::Change& change) {
    if (!change.problem.empty()) {
        report(
            Severity::Warning, (keyring_->keys().all().empty()
                                    ? "no one can connect, for lack of keys: "
                                    : "the former keys stay, as the key file cannot be taken: ") +
                                   change.problem);
    } else if (change.taken && keyring_->keys().all().empty()) {
        report(Severity::Warning, "no one can connect: the key file has no keys");
    }
    return !keyring_->keys().all().empty();
}

/// Takes a changed key file, and ends the connections whose keys it no longer has.
Hub::Clock::time_point Hub::takeKeys(Clock::time_point now) {
    const Keyring::Change change = keyring_->look(now);
    takeChange(change);
    if (change.taken) {
        reportedOnce_.clear();
        report(Severity::Notice, "took the changed key file");
        std::vector<Pointer> all(ungreeted_.begin(), ungreeted_.end());
        all.insert(all.end(), served_.begin(), served_.end());
        for (const Pointer& connection : all) {
            const Keys::Key* key = connection->key();
            if (key == nullptr || keyring_->has(*key)) {
                continue;
            }
            const std::string reason = "its key is not valid any more";
            if (handOver_.state(*connection) == State::Greeting) {
                refuse(connection, reason);
            } else if (handOver_.isDeferred()) {
                connection->end(reason); // the host may have its input
            } else {
                abandon(connection, reason);
            }
        }
    }
    return keyring_->next();
}

Greeting Hub::greeting() const {
    return {version_, instance_, id, features};
}

void Hub::reportRefusal(const std::string& text) {
    if (refusalLines_.admit()) {
        report(Severity::Warning, text);
    }
}

void Hub::reportRefusalOnce(const std::string& peer, const std::string& text) {
    if (reportedOnce_.size() < kMaxReportedOnce && reportedOnce_.insert(peer + text).second) {
        reportRefusal("refused " + peer + ": " + text);
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
            std::to_string(count) +
                " more lines about peers that connected and disconnected were left out");
    }
}

bool Hub::sendFrame(const std::byte* frame, std::size_t size) {
    if (frameSize({frame, size}) != size) {
        return false;
    }
    bool wake = false;
    const bool taken = context_->stream.append(frame, size, wake);
    if (wake) {
        loop()->wake();
    }
    return taken;
}

void Hub::sendFrameTo(
    std::uint16_t wanted, const std::byte* frame, std::size_t size, bool alsoJoining) {
    const Vessa::Lock lock(mutex_);
    for (const Pointer& connection : registered_) {
        if ((connection->peer().features & wanted) != 0) {
            connection->sendFrame(frame, size, alsoJoining);
        }
    }
}

void Hub::endBatch() {
    const std::size_t size = context_->stream.endBatch();
    if (size == 0) {
        return;
    }
    if (size <= kMaxOwnBatch && onlyMutex_.tryLock()) {
        const Vessa::Lock lock(onlyMutex_, std::adopt_lock);
        if (only_ != nullptr && only_->tryWrite()) {
            context_->stream.trim();
            return;
        }
    }
    if (context_->stream.endRest()) {
        loop()->wake();
    }
}

void Hub::servedChanged() {
    const Vessa::Lock lock(onlyMutex_);
    // The loop thread alone seals.
    only_ = served_.size() == 1 && !served_.front()->isSealed() ? served_.front() : nullptr;
}

std::vector<Hub::Pointer> Hub::registered() const {
    const Vessa::Lock lock(mutex_);
    return registered_;
}

// Coming

/// Makes an idle connection give way if there are too many. Returns the reason if the new one must
/// be refused.
std::string Hub::makeRoom(const Pointer& newcomer) {
    std::vector<Pointer> others(ungreeted_.begin(), ungreeted_.end());
    others.insert(others.end(), served_.begin(), served_.end());
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
    if (!newcomer->socket().leavesDescriptors(MultiCommunicator::kKeptDescriptors)) {
        endIdle(others); // which closes later, and makes room for the next
        return "the remaining file descriptors are reserved for the process";
    }
    return {};
}

/// Closes the oldest connection that has sent nothing. Returns false if there is none.
bool Hub::endIdle(const std::vector<Pointer>& connections) {
    Pointer oldest;
    for (const Pointer& connection : connections) {
        if (!connection->isEnded() && connection->isIdle(MultiCommunicator::kTimeToBegin) &&
            (!oldest || connection->since() < oldest->since())) {
            oldest = connection;
        }
    }
    if (oldest) {
        refuse(oldest, "it has sent nothing and gave way to another");
    }
    return oldest != nullptr;
}

void Hub::adopt(Socket socket, const std::string& target) {
    std::unique_ptr<Seal> seal;
    if (keyring_ != nullptr && target.empty()) {
        seal = Seal::accepting(keyring_);
    } else if (keyring_ != nullptr && keyring_->own() != nullptr) {
        seal = Seal::connecting(*keyring_->own());
    }
    const bool isOpen = seal == nullptr;
    const auto connection =
        std::make_shared<Connection>(context_, std::move(socket), noDelay, target, std::move(seal));
    if (isOpen && keyring_ != nullptr) {
        connection->endByKey("this program has no key");
        refuse(connection, "");
        return;
    }
    if (const std::string reason = makeRoom(connection); !reason.empty()) {
        reportRefusal("refused " + connection->peerName() + ": " + reason);
        refuse(connection, reason);
        return;
    }
    ungreeted_.push_back(connection);
    connection->watch = Loop::Watch(
        loop(), connection->socket(),
        [this, raw = connection.get()](const Loop::Watch::Ready& what) {
            ready(raw->shared_from_this(), what);
        });
    // A client greets when it knows that it keeps the connection; see role_->accept().
    if (!connection->watch.want(true, false) ||
        !(target.empty() ? connection->sendGreeting(greeting()) : connection->beginSeal())) {
        refuse(connection, "the connection was lost at once");
        return;
    }
    // The oldest connection gives way, because real peers greet quickly.
    if (ungreeted_.size() > MultiCommunicator::kMaxUngreeted) {
        refuse(Pointer(ungreeted_.front()), "too many connections have not greeted");
    }
}

/// Refuses those that have not greeted in time. Returns when the next is due.
Hub::Clock::time_point Hub::refuseTheLate(Clock::time_point now) {
    while (!ungreeted_.empty()) {
        const Pointer oldest = ungreeted_.front();
        if (now < oldest->since() + kTimeToGreet) {
            return oldest->since() + kTimeToGreet;
        }
        if (oldest->isSealed() && oldest->target().empty() && oldest->key() == nullptr) {
            oldest->endByKey(
                "it did not begin a sealed session in time; give it a key of this server");
        } else if (!oldest->target().empty() && !oldest->hasSaidAnything()) {
            oldest->endByKey(
                oldest->isSealed() ? "it did not answer in time"
                                   : "it did not greet in time; if it has keys, give this program "
                                     "one of them");
        }
        refuse(oldest, "it did not greet in time");
    }
    return Clock::time_point::max();
}

/// Closes a connection that the host has not seen; one that it has seen is reported as lost with
/// that reason.
void Hub::refuse(const Pointer& connection, const std::string& reason) {
    connection->end(reason);
    if (!handOver_.refuse(connection)) {
        lose(connection);
        return;
    }
    connection->watch = {};
    std::erase(ungreeted_, connection);
    std::erase(served_, connection);
    servedChanged();
    countRefusal();
    if (connection->isKeyFault()) {
        reportRefusalOnce(nameForRefusal(*connection), connection->endReason());
    } else if (connection->hasSaidAnything()) { // not for port scanners
        reportRefusal("refused " + connection->peerName() + ": " + reason);
    }
    role_->lost(*connection);
}

/// The name of a peer that tries again and again, each time from another port.
std::string Hub::nameForRefusal(const Connection& connection) const {
    return connection.target().empty() ? connection.peerAddress().text() : connection.peerName();
}

void Hub::readGreeting(const Pointer& connection) {
    switch (connection->readGreeting()) {
    case Connection::Status::Blocked:
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
                            " of the protocol, this program version " + std::to_string(version_) +
                            "; use the same release on both");
        return;
    }
    std::erase(ungreeted_, connection);
    if (!role_->accept(*connection)) {
        connection->end("there is already a connection to this peer");
        handOver_.refuse(connection);
        connection->watch = {};
        return;
    }
    if (!connection->target().empty() && !connection->sendGreeting(greeting())) {
        refuse(connection, "the connection was lost at once");
        return;
    }
    served_.push_back(connection);
    servedChanged();
    if (handOver_.isDeferred()) {
        handOver_.wait(connection);
    } else {
        handOver_.introduce(connection);
        introduce(connection);
    }
}

/// Passes a connection to the host, which brings the peer up to date.
void Hub::introduce(const Pointer& connection) {
    reportVisit("connected with " + nameOf(*connection));
    std::unique_ptr<Communicator> communicator(new Communicator(connection));
    connection->communicator = communicator.get();
    if (!handOver_.isDeferred()) {
        connection->beginReplay();
    }
    const bool kept = owner_.addCommunicator(communicator.get());
    if (!handOver_.isDeferred()) {
        connection->endReplay();
    }
    const std::vector<Pointer> all = registered();
    const bool isRegistered = std::count(all.begin(), all.end(), connection) > 0;
    if (kept && isRegistered) {
        static_cast<void>(communicator.release()); // owned here until close(), see there
        handOver_.introduced(connection);
        if (context_->stream.ready(connection->outlet())) {
            loop()->wake();
        }
        return;
    }
    connection->end("the application refused it");
    if (!isRegistered || !remove(communicator.get())) {
        connection->communicator = nullptr;
        handOver_.remove(connection);
        context_->nudge();
    }
}

bool Hub::add(Communicator* communicator) {
    const Pointer connection = communicator->connection_;
    if (!open_ || connection->isEnded()) {
        return false;
    }
    context_->stream.join(connection->outlet());
    const Vessa::Lock lock(mutex_);
    ++totals_.connected;
    registered_.push_back(connection);
    return true;
}

// Going

bool Hub::remove(Communicator* communicator) {
    const Pointer connection = communicator->connection_;
    {
        const Vessa::Lock lock(mutex_);
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
    connection->end("the application closed it");
    context_->stream.leave(connection->outlet());
    connection->communicator = nullptr;
    handOver_.remove(connection);
    context_->nudge();
    return true;
}

/// Counts a loss.
void Hub::record(const Connection& connection) {
    MultiCommunicator::Drop drop;
    drop.peer = connection.peerName();
    drop.peerId = connection.peer().id;
    drop.when = std::chrono::system_clock::now();
    drop.reason = connection.endReason();
    const Vessa::Lock lock(mutex_);
    ++totals_.dropped;
    auto& drops = totals_.lastDrops;
    if (drops.size() == MultiCommunicator::kMaxDrops) {
        drops.erase(drops.begin());
    }
    drops.push_back(std::move(drop));
}

/// Removes a lost connection, which has been counted, from the loop.
void Hub::announceLoss(const Pointer& connection) {
    context_->stream.leave(connection->outlet());
    connection->watch = {};
    std::erase(served_, connection);
    servedChanged();
    role_->lost(*connection);
    reportVisit("lost " + nameOf(*connection) + ": " + connection->endReason());
}

void Hub::lose(const Pointer& connection) {
    // Counted first, so that the host finds the reason when it learns of the loss.
    if (handOver_.lose(connection, [&] { record(*connection); })) {
        announceLoss(connection);
    }
}

/// Closes a connection and discards its unread input.
void Hub::abandon(const Pointer& connection, const std::string& reason) {
    connection->end(reason);
    connection->discardInput();
    lose(connection);
}

void Hub::replaceBy(const Connection& newer) {
    for (const Pointer& connection : registered()) {
        if (connection->peer().instance == newer.peer().instance) {
            abandon(connection, "the peer has reconnected");
        }
    }
}

void Hub::discardLeftovers(const Communicator* since) {
    const std::vector<Pointer> all = registered();
    const auto self = std::find_if(all.begin(), all.end(), [since](const Pointer& other) {
        return other->communicator == since;
    });
    if (self == all.end()) { // a nested call may have removed it
        return;
    }
    for (auto earlier = all.begin(); earlier != self; ++earlier) {
        if ((*earlier)->isEnded() || (*earlier)->isPeerGone()) {
            abandon(*earlier, "the peer closed the connection");
        }
    }
}

// Reading and writing

void Hub::ready(const Pointer& connection, const Loop::Watch::Ready& ready) {
    if (ready.toWrite) {
        connection->watch.wantWrite(false);
        context_->stream.unblock(connection->outlet());
        if (write(connection) == Connection::Status::Failed) {
            lose(connection);
        }
        context_->stream.trim();
    }
    if (!ready.toRead || !connection->watch) {
        return;
    }
    const State state = open_ ? handOver_.state(*connection) : State::Gone;
    if (state == State::Greeting) {
        const bool isUnproven = connection->isSealed() && connection->key() == nullptr;
        if (!isUnproven || handshakes_++ < kMaxHandshakes) { // else it is still readable
            readGreeting(connection);
        }
    } else if (state == State::Reading) {
        read(connection);
    } else { // the host must take received frames first, which slows down the peer
        connection->watch.wantRead(false);
    }
}

void Hub::read(const Pointer& connection) {
    const std::size_t before = connection->inputCapacity();
    const Connection::Status status = connection->read();
    if (connection->inputCapacity() > std::max(before, kUsualInputBytes) && isInputFull()) {
        connection->end("too many large events are arriving at once");
    }
    if (connection->next() == InputBuffer::Next::Broken) {
        connection->end("it sent an invalid event");
    }
    if (status == Connection::Status::Failed || connection->isEnded()) {
        lose(connection);
    } else if (connection->next() == InputBuffer::Next::Frame) {
        handOver_.offer(connection);
    }
}

/// Whether the input buffers together exceed their memory limit.
bool Hub::isInputFull() const {
    std::size_t bytes = 0;
    for (const Pointer& connection : registered()) {
        bytes += connection->inputCapacity();
    }
    return bytes > kMaxInputBytes;
}

Connection::Status Hub::write(const Pointer& connection) {
    const Connection::Status status = connection->write();
    if (status == Connection::Status::More) {
        context_->stream.addWork();
    } else if (status == Connection::Status::Blocked) {
        connection->watch.wantWrite(true);
    }
    return status;
}

/// Sends queued data. Returns true if more could be sent at once.
bool Hub::flush() {
    bool more = false;
    std::vector<Pointer> failed;
    for (const Pointer& connection : served_) {
        const Connection::Status status = write(connection);
        more = more || status == Connection::Status::More;
        if (status == Connection::Status::Failed) {
            failed.push_back(connection);
        }
    }
    for (const Pointer& connection : failed) {
        lose(connection);
    }
    context_->stream.trim();
    return more;
}

// The loop

/// Processes the connections that the host has returned.
void Hub::takeReturned() {
    for (const Pointer& connection : handOver_.takeReturned()) {
        if (handOver_.forget(connection)) {
            record(*connection);
            announceLoss(connection);
        } else if (handOver_.read(connection)) {
            if (connection->next() == InputBuffer::Next::Broken) {
                connection->end("it sent an invalid event");
            }
            if (connection->isEnded()) {
                lose(connection);
            } else {
                connection->watch.wantRead(true);
                if (connection->hasInput()) {
                    read(connection);
                }
            }
        }
    }
}

Hub::Clock::time_point Hub::prepare(Clock::time_point now, bool waits) {
    if (!open_) {
        return Clock::time_point::max();
    }
    // First, because data queued from here on requests work again, and so another iteration.
    const bool work = context_->stream.takeWork();
    auto next = role_->serve(now);
    reportLeftOut();
    takeReturned();
    next = std::min(next, refuseTheLate(now));
    const bool more = work && flush();
    const std::uint64_t before = std::exchange(wakeUps_, loop()->wakeUps());
    const bool inBatch = before != wakeUps_ || (napEnd_ && now >= *napEnd_);
    napEnd_.reset();
    taken_ = 0;
    handshakes_ = 0;
    if (!handOver_.isDeferred()) {
        handOver_.finish();
        if (handOver_.hasQueued()) {
            return Loop::kNow;
        }
    }
    if (keyring_ != nullptr) {
        next = std::min(next, takeKeys(now));
    }
    if (!waits) {
        return now;
    }
    if (const auto batches = context_->stream.batches(); batches != batches_) {
        batches_ = batches;
        batchesEnd_ = now + kBatchesLast;
    }
    // A host that marks the ends of its batches wakes this thread then, at most once per batch.
    if (now < batchesEnd_) {
        return context_->stream.beginRest() ? std::min(next, now + kBatchRest) : now;
    }
    // A thread that has woken this one is probably sending a batch of events. Wait a moment without
    // requesting a wake-up; input ends the wait at once. Otherwise that thread would have to wake
    // this one for each event, at the cost of a context switch if both share a processor, and
    // contend for the mutex while this one fetches them one by one.
    if (inBatch && work && !more) {
        napEnd_ = Clock::now() + kNap;
        return std::min(next, *napEnd_);
    }
    return context_->stream.beginSleep() ? next : now;
}

void Hub::resume() {
    context_->stream.endSleep();
}

bool Hub::wait(Communicator** communicator, Clock::time_point until) {
    while (open_) {
        if (break_ && break_.exchange(false)) {
            return false;
        }
        if (!handOver_.isDeferred()) {
            const Connection* next = handOver_.inTurn();
            if (next == nullptr) {
                taken_ += handOver_.finish();
            }
            if (next != nullptr || (handOver_.hasQueued() && taken_ < kMaxTaken)) {
                if (communicator != nullptr) {
                    next = next != nullptr ? next : handOver_.take();
                    *communicator = next->communicator;
                }
                return true;
            }
        }
        if (until != Clock::time_point::max() && Clock::now() >= until) {
            return false;
        }
        const bool ready = loop()->run(until);
        if (ready && communicator == nullptr && !handOver_.hasQueued()) {
            return false; // another client of the loop
        }
    }
    return false;
}

bool Hub::available(int& count) {
    count = 0;
    if (!open_) {
        return false;
    }
    if (handOver_.isDeferred()) {
        loop()->run(Loop::kNow);
        return true;
    }
    if (handOver_.inTurn() != nullptr) {
        count = static_cast<int>(handOver_.queued()) + 1;
        return true;
    }
    taken_ += handOver_.finish();
    if (!handOver_.hasQueued() || taken_ >= kMaxTaken) {
        loop()->run(Loop::kNow);
    }
    count = static_cast<int>(handOver_.queued());
    return true;
}

void Hub::breakWait() {
    break_ = true;
    loop()->wake();
}

int Hub::deliver(const std::function<void(Communicator*)>& receive) {
    if (!open_ || !handOver_.isDeferred() || delivering_) {
        return 0;
    }
    delivering_ = true;
    const std::unique_ptr<bool, void (*)(bool*)> end(
        &delivering_, [](bool* delivering) { *delivering = false; });
    handOver_.finish(); // left over if `receive` has thrown
    int count = 0;
    while (count < MultiClient::kMaxDelivered) {
        const Connection* connection = handOver_.inTurn();
        if (connection == nullptr) {
            handOver_.finish();
            connection = handOver_.take();
        }
        if (connection == nullptr) {
            break;
        }
        if (connection->communicator == nullptr) {
            introduce(handOver_.taken());
            continue;
        }
        receive(connection->communicator);
        ++count;
    }
    handOver_.finish();
    if (count > 0) {
        context_->nudge(); // returned connections must be read again
    }
    return count;
}

MultiCommunicator::Counters Hub::counters() const {
    MultiCommunicator::Counters counters;
    {
        const Vessa::Lock lock(mutex_);
        counters = totals_;
        for (const Pointer& connection : registered_) {
            counters.connections.push_back(connection->counters());
        }
    }
    for (const Communicator::Counters& one : counters.connections) {
        counters.eventsIn += one.eventsIn;
        counters.bytesIn += one.bytesIn;
        counters.eventsOut += one.eventsOut;
        counters.bytesOut += one.bytesOut;
        counters.eventsLeftOut += one.eventsLeftOut;
    }
    counters.refused = refused_;
    counters.bytesKept = context_->stream.bytesKept();
    counters.datagramsIgnored = role_ != nullptr ? role_->datagramsIgnored() : 0;
    return counters;
}

// Closing

/// Gives queued data time to be sent and received.
void Hub::drain() {
    const auto end = Clock::now() + kMaxTimeToLeave;
    auto deadline = Clock::now() + kTimeToLeave;
    std::uint64_t least = std::numeric_limits<std::uint64_t>::max();
    takeReturned();
    for (;;) {
        flush();
        std::uint64_t left = 0;
        for (const Pointer& connection : served_) {
            left += context_->stream.counts(connection->outlet()).bytesWaiting;
            left += connection->finish(context_->stream.isDrained(connection->outlet()));
        }
        const auto now = Clock::now();
        if (left < least) {
            least = left;
            deadline = std::min(end, now + kTimeToLeave);
        }
        if (left == 0 || now >= deadline) {
            return;
        }
        loop()->poll(now + kDrainInterval);
    }
}

void Hub::close() {
    if (!open_) {
        return;
    }
    context_->stream.close();
    role_->stop();
    open_ = false; // nothing is read from here on
    drain();
    std::vector<Pointer> registered;
    {
        const Vessa::Lock lock(mutex_);
        registered.swap(registered_);
    }
    for (const Pointer& connection : registered) {
        connection->end("closed");
        context_->stream.leave(connection->outlet());
        delete connection->communicator;
    }
    served_.insert(served_.end(), ungreeted_.begin(), ungreeted_.end());
    for (const Pointer& connection : served_) {
        connection->end("closed");
        connection->watch = {};
    }
    served_.clear();
    servedChanged();
    ungreeted_.clear();
    handOver_.clear();
    reportLeftOut(true);
}

} // namespace Corvid::detail
