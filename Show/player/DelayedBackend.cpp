#include <Show/player/DelayedBackend.h>

#include <Show/player/StartFrames.h>

#include <Corvid/URL.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <string>
#include <utility>

namespace Show {

namespace {

// A state that spreads is a change of each part, so it need not spread here.

class LaterSource : public Orvel::Source {
public:
    using Source::Source;
    void setState(State state) override {
        if (changeState(state)) {
            world().setSourceState(*this);
        }
    }
};

class LaterEmitter : public Orvel::Emitter {
public:
    using Emitter::Emitter;
    void setState(State state) override {
        if (changeState(state)) {
            world().setEmitterState(*this);
        }
    }
};

} // namespace

/// The later world.
class DelayedBackend::Later : public Orvel::OwningWorld<> {
public:
    explicit Later(DelayedBackend& owner) : owner_(owner) {}

    using OwningWorld::setSourceDuration;
    void setSourceDuration(Orvel::Source& source) override {
        if (Orvel::Source* now = owner_.world().getSource(source.id())) {
            owner_.setSourceDuration(*now, source.duration());
        }
    }

private:
    DelayedBackend& owner_;
};

DelayedBackend::DelayedBackend(Orvel::World& world, const Orvel::ClientBackend& client)
    : Backend(world, ""), client_(client), later_(std::make_unique<Later>(*this)) {}

DelayedBackend::~DelayedBackend() = default;

DelayedBackend::Batch& DelayedBackend::add(Change change) {
    if (std::exchange(batchEnds_, false)) {
        // The client's is older if the change is a replay to this back end alone.
        const auto time = client_.changeTime() > updated_ ? client_.changeTime() : Clock::now();
        batches_.push_back({time + client_.latency(), false, {}});
    }
    batches_.back().changes.push_back(std::move(change));
    return batches_.back();
}

void DelayedBackend::addOfSources(Change change) {
    ++sourceChanges_;
    add([this, change = std::move(change)](Later& later) {
        --sourceChanges_;
        change(later);
    });
}

void DelayedBackend::addOfSource(const Orvel::Source& source, Change change) {
    const Orvel::Source* its = later_->getSource(source.id());
    const bool isPlayed = !source.connectedEmitters().empty() ||
                          (its != nullptr && !its->connectedEmitters().empty());
    if (sourceChanges_ == 0 && !isPlayed) {
        change(*later_);
    } else {
        addOfSources(std::move(change));
    }
}

Orvel::World& DelayedBackend::later() const noexcept {
    return *later_;
}

std::chrono::nanoseconds DelayedBackend::neededLatency() const {
    return StartFrames(*later_).lead().start;
}

std::optional<DelayedBackend::Clock::time_point> DelayedBackend::nextDue() const {
    if (batches_.empty()) {
        return std::nullopt;
    }
    const StartFrames::Lead lead = StartFrames(*later_).lead();
    Clock::time_point next = batches_.front().due - lead.value;
    // Order is kept, so a start takes the changes before it along.
    const auto start = std::ranges::find_if(batches_, &Batch::hasStart);
    return start == batches_.end() ? next : std::min(next, start->due - lead.start);
}

void DelayedBackend::advance(Clock::time_point now) {
    for (auto next = nextDue(); next && *next <= now; next = nextDue()) {
        const Batch batch = std::move(batches_.front());
        batches_.pop_front();
        batchEnds_ = batchEnds_ || batches_.empty();
        if (renderTo_) {
            renderTo_(batch.due);
        }
        StartFrames frames(*later_);
        frames.begin(batch.due);
        for (const Change& change : batch.changes) {
            change(*later_);
        }
        frames.end();
    }
}

bool DelayedBackend::update() {
    updated_ = Clock::now();
    batchEnds_ = true;
    advance(updated_);
    later_->update();
    return true;
}

Orvel::BackendType* DelayedBackend::type() {
    return later_->backends().empty() ? nullptr : later_->backends().front()->type();
}

Orvel::BackendState DelayedBackend::state() const {
    return later_->backends().empty() ? Orvel::BackendState() : later_->backends().front()->state();
}

void DelayedBackend::resetBackend() {
    addOfSources([](Later& later) { later.reset(); });
}

void DelayedBackend::setEnabled() {
    add([enabled = world().enabled()](Later& later) { later.setEnabled(enabled); });
}

void DelayedBackend::setListenerTransform() {
    add([position = world().listenerPosition(), rotation = world().listenerRotation()](
            Later& later) { later.setListenerTransform(position, rotation); });
}

void DelayedBackend::createSource(Orvel::Source& source) {
    addOfSource(source, [id = source.id()](Later& later) {
        if (later.getSource(id) == nullptr) {
            later.createSource(*new LaterSource(later, id)); // the world deletes it
        }
    });
}

void DelayedBackend::destroySource(Orvel::Source& source) {
    addOfSources([id = source.id()](Later& later) { delete later.getSource(id); });
}

void DelayedBackend::setSourceData(Orvel::Source& source) {
    using Source = Orvel::Source;
    if (source.dataKind() == Source::URL_SD) {
        addOfSource(
            source, [id = source.id(), url = source.url()->text(),
                     channels = source.urlChannels()](Later& later) {
                if (Source* its = later.getSource(id)) {
                    its->setDataFromURL(url, channels);
                }
            });
    } else if (source.dataKind() == Source::PCM_SD) {
        addOfSource(
            source, [id = source.id(), rate = source.sampleRate(), bits = source.bitsPerSample(),
                     channels = source.channels(), data = source.data()](Later& later) {
                if (Source* its = later.getSource(id)) {
                    its->setData(
                        rate, bits, channels, data.data(), static_cast<unsigned int>(data.size()));
                }
            });
    }
}

void DelayedBackend::setSourceParam(Orvel::Source& source) {
    add([id = source.id(), loop = source.loop(), pitch = source.pitch()](Later& later) {
        if (Orvel::Source* its = later.getSource(id)) {
            its->setParam(loop, pitch);
        }
    });
}

void DelayedBackend::setSourceState(Orvel::Source& source) {
    add([id = source.id(), state = source.state()](Later& later) {
        if (Orvel::Source* its = later.getSource(id)) {
            its->setState(state);
        }
    });
}

void DelayedBackend::createEmitter(Orvel::Emitter& emitter) {
    add([id = emitter.id(), labels = emitter.labels()](Later& later) {
        if (later.getEmitter(id) == nullptr) {
            later.createEmitter(*new LaterEmitter(later, id, labels)); // the world deletes it
        }
    });
}

void DelayedBackend::destroyEmitter(Orvel::Emitter& emitter) {
    add([id = emitter.id()](Later& later) { delete later.getEmitter(id); });
}

void DelayedBackend::setEmitterTransform(Orvel::Emitter& emitter) {
    add([id = emitter.id(), position = emitter.position(), rotation = emitter.rotation(),
         spatialize = world().spatialize()](Later& later) {
        if (Orvel::Emitter* its = later.getEmitter(id)) {
            later.setSpatialize(spatialize);
            its->setTransform(&position, &rotation);
        }
    });
}

void DelayedBackend::setEmitterHull(Orvel::Emitter& emitter) {
    add([id = emitter.id(), hull = emitter.hull(), radius = emitter.radius()](Later& later) {
        if (Orvel::Emitter* its = later.getEmitter(id)) {
            its->setHull(hull);
            if (its->radius() != radius) {
                its->setRadius(radius);
            }
        }
    });
}

void DelayedBackend::setEmitterParam(Orvel::Emitter& emitter) {
    add([id = emitter.id(), flag = emitter.paramFlag(), value = emitter.paramValue(),
         gain = emitter.gain()](Later& later) {
        if (Orvel::Emitter* its = later.getEmitter(id)) {
            its->setParam(flag, value, gain);
        }
    });
}

void DelayedBackend::setEmitterConnection(Orvel::Emitter& emitter) {
    const int source = emitter.source() == nullptr ? 0 : emitter.source()->id();
    add([id = emitter.id(), source](Later& later) {
        if (Orvel::Emitter* its = later.getEmitter(id)) {
            its->setSource(source == 0 ? nullptr : later.getSource(source));
        }
    });
}

void DelayedBackend::setEmitterState(Orvel::Emitter& emitter) {
    Batch& batch = add(
        [id = emitter.id(), state = emitter.state(), offset = emitter.startOffset()](Later& later) {
            if (Orvel::Emitter* its = later.getEmitter(id)) {
                its->setStartOffset(offset);
                its->setState(state);
            }
        });
    batch.hasStart = batch.hasStart || emitter.state() == Orvel::Emitter::PLAY;
}

} // namespace Show
