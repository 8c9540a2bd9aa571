#pragma once

#include <Show/capture/CaptureReader.h>
#include <Show/player/Player.h>
#include <Show/server/Session.h>

#include <Orvel/World.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Show {

/// Replays a recorded session into a world, with the original timing, until the recording's end or
/// the point where the file is truncated. The world gets the rules of the recorded server.
///
/// The bank and the world must outlive it. Confined to the world's thread.
class ReplayPlayer : public Player {
public:
    /// `path` is for messages.
    ReplayPlayer(
        std::string path, std::unique_ptr<CaptureReader> reader, const LoadedScene& bank,
        Orvel::World& world, LongFiles longFiles);
    /// For a world without sounds: `give` is called where a source gets its sound, nothing is
    /// fetched or reported.
    ReplayPlayer(
        std::string path, std::unique_ptr<CaptureReader> reader, const LoadedScene& bank,
        Orvel::World& world, GiveSound give);

    void prepare() override;
    void start() override;
    void advance(double seconds) override;
    /// The time of the next record.
    [[nodiscard]] double nextChange(double seconds) const override;
    [[nodiscard]] bool moving() const override { return false; }
    /// Without an end mark this reads the whole file.
    [[nodiscard]] double end() const override;

private:
    void readNext();
    void apply();
    void warn(const std::string& text) const;

    std::string path_;
    std::unique_ptr<CaptureReader> reader_;
    Orvel::World& world_;
    Session session_;
    const bool silent_ = false;
    bool fetched_ = false;
    CaptureReader::Record next_;
    bool more_ = false;
    std::map<std::uint64_t, std::string> clients_; // names by number
    std::vector<std::byte> frame_;
    mutable double end_ = -1.0; // negative: unknown
};

} // namespace Show
