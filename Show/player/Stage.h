#pragma once

#include <Orvel/Server.h>
#include <Orvel/World.h>

#include <utility>

namespace Show {

/// A world in which an application uses a scene: it notices sounds that OpenAL refuses and playing
/// times that become known, and leaves nothing behind. `Base` is a world. Confined to one thread at
/// a time.
template <class Base>
class StageOn : public Base {
public:
    using Base::Base;
    StageOn() = default;
    StageOn(const StageOn&) = delete;
    StageOn& operator=(const StageOn&) = delete;
    /// Destroys the parts, then the back ends.
    ~StageOn() override;

    void setSourceData(Orvel::Source& source) override;
    void setSourceDuration(Orvel::Source& source) override;

    /// Whether the duration of a source has become known since the last call.
    bool takeNewDurations() { return std::exchange(newDurations_, false); }

private:
    bool newDurations_ = false;
};

extern template class StageOn<Orvel::World>;
extern template class StageOn<Orvel::Server>;

/// The world of a local scene.
using Stage = StageOn<Orvel::World>;

} // namespace Show
