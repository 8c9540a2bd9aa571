#pragma once

#include <Show/monitor/Hearings.h>

#include <cstddef>
#include <memory>
#include <string>

namespace Show {

class MonitorBackend;

/// Writes a scene as JSON, in pieces, so that no call takes long for a large scene; docs/monitor.md
/// lists the fields.
///
/// The scene may change between two pieces. Parts come in ascending order of their ids, each at
/// most once and with its values at that time; parts that are gone by then are left out. The back
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
    int lastId_ = 0;                           // the last id written of the list
    bool continues_ = false;                   // another value precedes
    std::shared_ptr<const Hearings> hearings_; // at the beginning; shared by copies
};

} // namespace Show
