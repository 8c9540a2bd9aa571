#pragma once

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <gtest/gtest.h>
#include <string>
#include <tuple>

namespace Orvel::Test {

/// Everything that is sent, for comparing two worlds; without `history` the previous states are
/// omitted.
inline std::string describe(World& world, bool history = true) {
    using testing::PrintToString;
    const auto previous = [history](const WorldPart& part) {
        return history ? part.previousState() : WorldPart::NONE;
    };
    const auto place = [](const Vec3f& p, const Quaternion& r) {
        return PrintToString(std::tuple(p.x, p.y, p.z, r.x, r.y, r.z, r.w));
    };
    std::string text = place(world.listenerPosition(), world.listenerRotation());
    for (const auto& [id, s] : world.sources()) {
        text += "\nsource " + PrintToString(std::tuple(
                                  id, s->state(), previous(*s), s->loop(), s->pitch(),
                                  s->connectedEmitters().size()));
    }
    for (const auto& [id, e] : world.emitters()) {
        const int sourceId = e->source() == nullptr ? 0 : e->source()->id();
        text +=
            "\nemitter " + place(e->position(), e->rotation()) +
            PrintToString(std::tuple(
                id, e->state(), previous(*e), sourceId, e->maxBack(), e->maxFront(), e->minBack(),
                e->minFront(), e->gain(), e->paramValue(), e->paramFlag(), e->labels()));
    }
    return text;
}

} // namespace Orvel::Test
