#pragma once

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <random>

namespace Orvel::Test {

/// Makes random changes, the same in each run, with many emitters sharing few sources.
class RandomChanges {
public:
    explicit RandomChanges(World& world) : world_(world) {}

    int below(unsigned bound) { return static_cast<int>(random_() % bound); }
    float number() { return static_cast<float>(below(100)) / 8; }

    /// Changes the parts, their connections and their states, of which `first` is the least.
    void change(WorldPart::State first) {
        const int id = 1 + below(8);
        Source* source = world_.getSource(1 + id % 6);
        Emitter* emitter = world_.getEmitter(1 + below(8));
        const auto state = static_cast<WorldPart::State>(first + below(4U - first));
        const int kind = below(100);
        if (kind < 3) {
            delete source;
        } else if (kind < 10 && source == nullptr) {
            world_.createSource(1 + id % 6);
        } else if (kind < 15) {
            delete emitter;
        } else if (kind < 30 && world_.getEmitter(id) == nullptr) {
            world_.createEmitter(below(2) == 0 ? Labels{} : Labels{"front", "x"}, id);
        } else if (kind < 50 && source != nullptr) {
            source->setState(state);
        } else if (kind < 70 && emitter != nullptr) {
            emitter->setState(state);
        } else if (emitter != nullptr && kind < 98) {
            emitter->setSource(below(6) == 0 ? nullptr : source);
        } else if (kind == 98) {
            world_.setEnabled(below(2) == 0);
        } else if (kind == 99 && below(10) == 0) {
            world_.reset();
        }
    }

    /// Changes the values of a source, an emitter and the listener.
    void changeValues() {
        if (Source* source = world_.getSource(1 + below(6))) {
            source->setParam(below(2) == 0, number());
        }
        const Vec3f position{number(), number(), number()};
        const Quaternion rotation{number(), 0, 0, 1};
        if (Emitter* emitter = world_.getEmitter(1 + below(8))) {
            emitter->setParam(below(2) == 0, number(), number());
            emitter->setHull(number(), number(), number(), number());
            emitter->setTransform(&position, below(2) == 0 ? nullptr : &rotation);
        }
        world_.setListenerTransform(position, rotation);
    }

private:
    using Labels = std::vector<std::string>;

    World& world_;
    std::mt19937 random_;
};

} // namespace Orvel::Test
