#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendState.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/OwningWorld.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Show {

/// Passes each change of its world on to a world of its own, later: for back ends of this machine
/// that play with sound servers, which do the same. Sounds of new sources are passed on at once, so
/// that they are loaded when they begin. Confined to its world's thread.
class DelayedBackend : public Orvel::Backend {
public:
    using Clock = std::chrono::steady_clock;
    /// Renders the output up to a time, see LiveRecording::renderTo().
    using RenderTo = std::function<void(Clock::time_point)>;

    /// As late as the servers of this back end of the same world, which must outlive it.
    DelayedBackend(Orvel::World& world, const Orvel::ClientBackend& client);
    DelayedBackend(const DelayedBackend&) = delete;
    DelayedBackend& operator=(const DelayedBackend&) = delete;
    ~DelayedBackend() override;

    /// The later world. Add one back end to it; this one shows its state as its own.
    [[nodiscard]] Orvel::World& later() const noexcept;
    /// For an output that is rendered by this thread; an empty function ends that.
    void setRenderTo(RenderTo renderTo) { renderTo_ = std::move(renderTo); }
    /// Passes on the changes that are due. update() does it too.
    void advance(Clock::time_point now);
    /// The latency that the output needs to begin sounds in time; 0 if any will do.
    [[nodiscard]] std::chrono::nanoseconds neededLatency() const;
    /// When advance() has something to do; nothing without changes.
    [[nodiscard]] std::optional<Clock::time_point> nextDue() const;

    void resetBackend() override;
    void setEnabled() override;
    void setListenerTransform() override;
    void createSource(Orvel::Source& source) override;
    void destroySource(Orvel::Source& source) override;
    void setSourceData(Orvel::Source& source) override;
    void setSourceParam(Orvel::Source& source) override;
    void setSourceState(Orvel::Source& source) override;
    void createEmitter(Orvel::Emitter& emitter) override;
    void destroyEmitter(Orvel::Emitter& emitter) override;
    void setEmitterTransform(Orvel::Emitter& emitter) override;
    void setEmitterHull(Orvel::Emitter& emitter) override;
    void setEmitterParam(Orvel::Emitter& emitter) override;
    void setEmitterConnection(Orvel::Emitter& emitter) override;
    void setEmitterState(Orvel::Emitter& emitter) override;

    bool update() override;
    Orvel::BackendType* type() override;
    [[nodiscard]] Orvel::BackendState state() const override;

private:
    class Later;
    using Change = std::function<void(Later& later)>;
    struct Batch {
        Clock::time_point due;
        bool hasStart = false;
        std::vector<Change> changes;
    };

    /// Queues a change.
    Batch& add(Change change);
    /// Makes a change of a source's sound at once if nothing plays it, else queues it.
    void addOfSource(const Orvel::Source& source, Change change);
    /// Queues one after which sources are not what they were.
    void addOfSources(Change change);

    const Orvel::ClientBackend& client_;
    std::unique_ptr<Later> later_;
    RenderTo renderTo_;
    std::deque<Batch> batches_;
    Clock::time_point updated_;
    bool batchEnds_ = true;         // the next change begins a batch
    std::size_t sourceChanges_ = 0; // that are queued, and others of sources must follow
};

} // namespace Show
