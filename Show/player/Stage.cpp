#include <Show/player/Stage.h>

#include <Show/detail/HiddenLine.h>

#include <Orvel/Emitter.h>
#include <Orvel/OALBackend.h>
#include <Orvel/Source.h>

#include <iostream>
#include <utility>

namespace Show {

namespace {

/// Sets the subject of messages during its lifetime.
class Subject {
public:
    Subject(const SetSubject& set, std::string text) : set_(set) { name(std::move(text)); }
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
    ~Subject() { name({}); }

private:
    void name(std::string text) {
        if (set_) {
            set_(std::move(text));
        }
    }

    const SetSubject& set_;
};

} // namespace

template <class Base>
void StageOn<Base>::noteSounds(const Scene& scene) {
    for (const SourceSpec& source : scene.sources) {
        sounds_[source.id] = source.soundWhere;
    }
    for (const Change& change : scene.timeline) {
        const bool another = !std::holds_alternative<std::monostate>(change.sound);
        if (change.newSource || (change.target == Change::Target::Source && another)) {
            sounds_.erase(change.id);
        }
    }
}

template <class Base>
StageOn<Base>::~StageOn() {
    const HiddenLine quiet(std::cout, "INFO: exit ClientBackend::receiveThread");
    this->clearWorld();
    this->deleteAllBackends();
}

template <class Base>
std::string StageOn<Base>::part(const char* kind, int id) const {
    return (path_.empty() ? "" : path_ + ": ") + kind + " " + std::to_string(id);
}

template <class Base>
std::string StageOn<Base>::subject(const Orvel::Source& source) const {
    const auto found = sounds_.find(source.id());
    if (found == sounds_.end() || found->second.line == 0) {
        return part("source", source.id());
    }
    const Where& where = found->second;
    return path_ + ":" + std::to_string(where.line) + ": " + where.field;
}

template <class Base>
void StageOn<Base>::createSource(Orvel::Source& source) {
    const Subject subject(setSubject_, this->subject(source));
    Base::createSource(source);
}

template <class Base>
void StageOn<Base>::setSourceData(Orvel::Source& source) {
    const Subject subject(setSubject_, this->subject(source));
    Base::setSourceData(source);
    if (source.dataKind() == Orvel::Source::URL_SD) {
        Orvel::OALBackend::reportRefusedSound(source);
    }
}

template <class Base>
void StageOn<Base>::setSourceDuration(Orvel::Source& source) {
    newDurations_ = true;
    Base::setSourceDuration(source);
}

template <class Base>
void StageOn<Base>::createEmitter(Orvel::Emitter& emitter) {
    const Subject subject(setSubject_, part("emitter", emitter.id()));
    Base::createEmitter(emitter);
}

template class StageOn<Orvel::World>;
template class StageOn<Orvel::Server>;

} // namespace Show
