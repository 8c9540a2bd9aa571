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
    static constexpr std::size_t kMaxPieceBytes = 64U << 10U; ///< those of texts cut off included

    static constexpr std::size_t kMaxLabels = 32; ///< shown of an emitter

    explicit SceneJson(MonitorBackend& monitor) : monitor_(&monitor) {}

    /// Appends the next piece; false when it was the last.
    bool operator()(std::string& more);

private:
    enum class Step { Head, Sources, Emitters };

    MonitorBackend* monitor_; // a copyable object, for std::function
    Step step_ = Step::Head;
    int lastId_ = 0;         // that was written of the list
    bool continues_ = false; // after a value
};

} // namespace Show
