#pragma once

#include <cstddef>
#include <string>

namespace Show {

class MonitorBackend;

/// Writes what is in a scene as JSON, piece by piece, so that no call takes long, however large the
/// scene is; docs/monitor.md has the fields.
///
/// The scene may change between two pieces. Parts come in ascending order of their ids, each at
/// most once and as it is when its piece is written; what has gone by then is left out. The back
/// end must outlive it. On the world's thread.
class SceneJson {
public:
    // A piece ends with the part that reaches one of these limits.
    static constexpr std::size_t kMaxPieceParts = 250;        ///< sources and emitters together
    static constexpr std::size_t kMaxPieceBytes = 64U << 10U; ///< including truncated texts

    static constexpr std::size_t kMaxLabels = 32; ///< labels shown per emitter

    explicit SceneJson(MonitorBackend& monitor) : monitor_(&monitor) {}

    /// Appends the next piece. Returns false if it was the last.
    bool operator()(std::string& more);

private:
    enum class Step { Head, Sources, Emitters };

    MonitorBackend* monitor_; // a pointer, as std::function copies
    Step step_ = Step::Head;
    int lastId_ = 0;         // the last id written of the list
    bool continues_ = false; // another value precedes
};

} // namespace Show
