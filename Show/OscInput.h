#pragma once

#include <Corvid/Loop.h>
#include <Orvel/World.h>

#include <functional>
#include <memory>
#include <string>

#include <orvel_show_export.h>

namespace Show {

/// Takes Open Sound Control over UDP and TCP at one port and applies it to a world; docs/osc.md
/// lists the messages. It has no thread: everything happens inside serve(). At most 64 connections,
/// and 10,000 messages or 16 MiB that wait for their time. There is no password: whoever reaches
/// the port can change the scene.
///
/// The world must outlive it. Confined to the world's thread. Nothing is thrown but std::bad_alloc.
class ORVEL_SHOW_EXPORT OscInput {
public:
    /// Where to listen, and what to do with what is wrong.
    struct Settings {
        std::string address = "127.0.0.1"; ///< IPv4, of the interface; 0.0.0.0 for all
        unsigned short port = 0;           ///< 0: the system chooses
        float scale = 10.0F;               ///< scene units for the 1 of normalised coordinates
        /// Takes a sentence about messages that make no sense, the first 20 of them, on the thread
        /// of serve(). May be empty.
        std::function<void(const std::string& message)> report;
        /// What waits for it, shared with what else the program waits for; null: a loop of its own.
        std::shared_ptr<Corvid::Loop> loop;
    };

    /// Opens both sockets. Look at isOpen() next.
    explicit OscInput(Orvel::World& world);
    OscInput(Orvel::World& world, const Settings& settings);
    OscInput(const OscInput&) = delete;
    OscInput& operator=(const OscInput&) = delete;
    ~OscInput();

    /// Whether it can receive. If not, error() says why, and the other functions do nothing.
    [[nodiscard]] bool isOpen() const noexcept;
    [[nodiscard]] const std::string& error() const noexcept;
    /// 0 if it is not open.
    [[nodiscard]] unsigned short port() const noexcept;
    /// The loop that waits for it, with a descriptor for a host that waits in one of its own.
    [[nodiscard]] Corvid::Loop& loop() const noexcept;

    /// Applies what has arrived and what is due, for about 4 ms, however much there is. First waits
    /// up to `seconds`, by its loop, for something to do; 0 never waits.
    void serve(double seconds = 0.0);
    /// In one sentence, how many messages came and how many were wrong; empty if none came.
    [[nodiscard]] std::string summary() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show
