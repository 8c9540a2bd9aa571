#include <Show/player/Stage.h>

#include <Orvel/OALBackend.h>
#include <Orvel/Source.h>

namespace Show {

template <class Base>
StageOn<Base>::~StageOn() {
    this->clearWorld();
    this->deleteAllBackends();
}

template <class Base>
void StageOn<Base>::setSourceData(Orvel::Source& source) {
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

template class StageOn<Orvel::World>;
template class StageOn<Orvel::Server>;

} // namespace Show
