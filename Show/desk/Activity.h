#pragma once

#include <Show/player/Playable.h>
#include <Show/player/Player.h>

#include <Orvel/OwningWorld.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Show {

/// How much happens in a file over its time: the picture behind the desk's time. The file is played
/// through in a world of its own, without sound, in short pieces. It must outlive this object.
/// Confined to one thread at a time.
class Activity {
public:
    /// Number of columns of the picture.
    static constexpr std::size_t kColumns = 400;
    /// Time of a piece, in milliseconds; a single change of the file may take longer.
    static constexpr int kMaxPieceMs = 1;

    /// `end`: of the file, in seconds. Throws std::runtime_error if the file has gone since it was
    /// loaded.
    Activity(const Playable& file, double end);
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;
    ~Activity();

    [[nodiscard]] double end() const { return end_; }
    /// Does the next piece. Returns false if there is none.
    bool advance();
    /// Appends it as JSON (docs/desk.md), as far as it is done.
    void write(std::string& out) const;

private:
    class Counter;
    struct Column {
        std::size_t sounding = 0;
        std::uint64_t changes = 0;
    };

    void moveTo(double seconds);

    const double end_;
    Orvel::OwningWorld<> world_;
    Counter* counter_; // a back end of the world
    std::unique_ptr<Player> player_;
    double now_ = 0.0;
    std::vector<Column> columns_;
};

} // namespace Show
