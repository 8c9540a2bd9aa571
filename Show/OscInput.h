#pragma once

#include <Corvid/Loop.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/World.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orvel_show_export.h>

namespace Show {

class Playback;

/// Receives Open Sound Control over UDP and TCP at one port, applies it to a world and answers
/// queries; docs/osc.md lists the messages. It has no thread: everything happens inside serve().
/// Limits: 64 connections, and 10,000 messages or 16 MiB waiting for their time. There is no
/// password: anyone who can reach the port can change the scene.
///
/// The world must outlive it. Confined to the world's thread. Throws only std::bad_alloc.
class ORVEL_SHOW_EXPORT OscInput {
public:
    /// Where to listen, and how to report problems.
    struct Settings {
        std::string address = "127.0.0.1"; ///< IPv4, of the interface; 0.0.0.0 for all
        unsigned short port = 0;           ///< 0: the system chooses
        float scale = 10.0F;               ///< scene units per normalised unit
        /// Queries over UDP are answered to this port of the sender's address as well as to the
        /// sender's own; 0: only there. ADM-OSC names 4002.
        unsigned short replyPort = 0;
        /// Describes the paths as JSON (OSCQuery) over HTTP at this port of the same address, for
        /// this machine's and its interface's names; 0: the system chooses, nothing: nowhere.
        std::optional<unsigned short> queryPort{};
        /// Receivers of what changes, as HOST:PORT, over UDP; at most 16. A change is not sent to
        /// the one that caused it. Host names are resolved at once, which may block.
        std::vector<std::string> feedback;
        /// Receives a sentence about each of the first 20 mistakes, with its sender and once per
        /// address, on the thread of serve(). May be empty.
        std::function<void(const std::string& message)> report;
        /// Applies a change to the world; empty: it is applied as it is. For a world with rules of
        /// its own.
        std::function<void(Orvel::CommandEvent& change)> apply;
        /// Receives the name of each `/adm/env/change`, a change of scene or programme, on the
        /// thread of serve(). May be empty.
        std::function<void(const std::string& name)> change;
        /// The loop that waits for it, which may be shared; null: a loop of its own.
        std::shared_ptr<Corvid::Loop> loop;
    };

    /// Opens both sockets. Check isOpen() afterwards.
    explicit OscInput(Orvel::World& world);
    OscInput(Orvel::World& world, const Settings& settings);
    OscInput(const OscInput&) = delete;
    OscInput& operator=(const OscInput&) = delete;
    ~OscInput();

    /// Whether it can receive. If not, error() has the reason, and the other functions do nothing.
    [[nodiscard]] bool isOpen() const noexcept;
    [[nodiscard]] const std::string& error() const noexcept;
    /// 0 if it is not open.
    [[nodiscard]] unsigned short port() const noexcept;
    /// The port of the description over HTTP; 0 if there is none.
    [[nodiscard]] unsigned short queryPort() const noexcept;
    /// The loop that waits for it, with a descriptor for a host with a loop of its own.
    [[nodiscard]] Corvid::Loop& loop() const noexcept;

    /// Lets messages such as `/orvel/go` control a playback; null: none. The playback may end
    /// first; they are refused then. A `/adm/env/change` plays the cue of that name.
    void control(const Playback* playback);

    /// Applies received and due messages, for about 4 ms. First waits up to `seconds`, in its loop,
    /// for work; 0 never waits.
    void serve(double seconds = 0.0);
    /// Applies everything received so far, for at most 0.1 s, and reports summary() unless it is
    /// empty. For the end of a program.
    void finish();
    /// The number of messages and of invalid ones as a sentence; empty if there were none.
    [[nodiscard]] std::string summary() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show
