// What every kind of back end must stand, whatever it does. A kind that is registered later is
// tested here without further ado.
#include "support/Capture.h"
#include "support/Loopback.h" // for back ends that look for others
#include "support/RecordingBackend.h"

#include <Corvid/URLImpl.h>
#include <Orvel/BackendFactory.h>
#include <Orvel/OALLoopbackBackend.h>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <sstream>

namespace Orvel::Test {

namespace {

using Operation = std::function<void(Backend&, Source&, Emitter&)>;

const Operation kOperations[] = {
    [](Backend& b, Source&, Emitter&) { b.resetBackend(); },
    [](Backend& b, Source&, Emitter&) { b.setEnabled(); },
    [](Backend& b, Source&, Emitter&) { b.setListenerTransform(); },
    [](Backend& b, Source& s, Emitter&) { b.createSource(s); },
    [](Backend& b, Source& s, Emitter&) { b.destroySource(s); },
    [](Backend& b, Source& s, Emitter&) { b.setSourceData(s); },
    [](Backend& b, Source& s, Emitter&) { b.setSourceParam(s); },
    [](Backend& b, Source& s, Emitter&) { b.setSourceState(s); },
    [](Backend& b, Source&, Emitter& e) { b.createEmitter(e); },
    [](Backend& b, Source&, Emitter& e) { b.destroyEmitter(e); },
    [](Backend& b, Source&, Emitter& e) { b.setEmitterTransform(e); },
    [](Backend& b, Source&, Emitter& e) { b.setEmitterHull(e); },
    [](Backend& b, Source&, Emitter& e) { b.setEmitterParam(e); },
    [](Backend& b, Source&, Emitter& e) { b.setEmitterConnection(e); },
    [](Backend& b, Source&, Emitter& e) { b.setEmitterState(e); },
    [](Backend& b, Source&, Emitter&) { b.update(); },
};

void fill(Source& source) {
    static const std::vector<unsigned char> samples(400, 0x90);
    source.setData(8000, 8, 1, samples.data(), static_cast<unsigned>(samples.size()));
}

/// A world with each kind of data, connected and unconnected emitters, all states and a label.
void furnish(World& world) {
    const WorldPart::State states[] = {
        WorldPart::NONE, WorldPart::PLAY, WorldPart::PAUSE, WorldPart::STOP};
    for (int i = 0; i < 4; ++i) {
        Source& source = *world.createSource();
        if (i < 2) {
            fill(source);
        } else if (i == 2) {
            source.setDataFromURL("no such sound.wav");
        }
        source.setParam(i == 1, 1.5F);
        for (int j = 0; j < 2; ++j) {
            Emitter& emitter = *world.createEmitter(j == 0 ? Calls{} : Calls{"front", "x y"});
            emitter.setSource(i == 3 ? nullptr : &source);
            const Vec3f position{static_cast<float>(i), 0, static_cast<float>(-j)};
            emitter.setTransform(&position, nullptr);
            emitter.setHull(20, 20, 1, 1);
            emitter.setParam(j == 0, 0.5F, 0.5F);
        }
        source.setState(states[i]);
    }
    world.setListenerTransform({1, 2, 3}, {0, 0.6F, 0, 0.8F});
}

/// Everything of a scene but the durations, which back ends report.
std::string describe(World& world) {
    std::ostringstream text;
    const auto place = [&text](const Vec3f& p, const Quaternion& r) {
        for (const float value : {p.x, p.y, p.z, r.x, r.y, r.z, r.w}) {
            text << value << ' ';
        }
    };
    text << world.enabled() << world.spatialize() << ' ';
    place(world.listenerPosition(), world.listenerRotation());
    for (const auto& [id, s] : world.sources()) {
        text << "\nsource " << id << ' ' << s->id() << ' ' << s->state() << s->previousState()
             << ' ' << s->dataKind() << ' ' << s->sampleRate() << ' ' << s->bitsPerSample() << ' '
             << s->channels() << ' ' << s->loop() << ' ' << s->pitch() << ' ' << s->url() << ' '
             << std::string(s->data().begin(), s->data().end());
        for (const auto& [emitterId, e] : s->connectedEmitters()) {
            text << ' ' << emitterId << '@' << e;
        }
    }
    for (const auto& [id, e] : world.emitters()) {
        text << "\nemitter " << id << ' ' << e->id() << ' ' << e->state() << e->previousState()
             << ' ' << e->source() << ' ' << e->maxBack() << ' ' << e->maxFront() << ' '
             << e->minBack() << ' ' << e->minFront() << ' ' << e->gain() << ' ' << e->paramValue()
             << ' ' << e->paramFlag() << ' ' << testing::PrintToString(e->labels()) << ' ';
        place(e->position(), e->rotation());
    }
    return text.str();
}

std::vector<std::string> kinds() {
    OALLoopbackBackend::registerType();
    return BackendFactory::names();
}

class BackendContract : public testing::TestWithParam<std::string> {
protected:
    Backend& add(World& world, const char* params = "") {
        Backend* backend = world.addBackend(GetParam().c_str(), params);
        if (backend == nullptr) {
            throw std::runtime_error("no back end of the kind " + GetParam());
        }
        if (const auto* audible = dynamic_cast<const OALBackend*>(backend)) {
            EXPECT_TRUE(audible->working()) << "an inert back end proves nothing";
        }
        return *backend;
    }
    /// That the back end is still at work: in the world's list and of its kind.
    void expectAlive(Backend& backend) {
        const auto& all = backend.world().backends();
        EXPECT_EQ(std::count(all.begin(), all.end(), &backend), 1);
        ASSERT_NE(backend.type(), nullptr);
        EXPECT_EQ(backend.type()->name(), GetParam());
        EXPECT_TRUE(backend.enabled());
        EXPECT_TRUE(backend.world().update());
    }

    /// What back ends write is of interest only beside a failure, whose message is written there
    /// too.
    void TearDown() override {
        const std::string text = output_->take() + errors_->take();
        output_.reset();
        errors_.reset();
        if (HasFailure()) {
            std::cout << text << testing::PrintToString(log_.lines()) << std::endl;
        }
    }

private:
    std::unique_ptr<OutputCapture> output_ = std::make_unique<OutputCapture>(STDOUT_FILENO);
    std::unique_ptr<OutputCapture> errors_ = std::make_unique<OutputCapture>(STDERR_FILENO);
    LogCapture log_;
};

} // namespace

TEST_P(BackendContract, FollowsASceneFromTheReplayToTheEnd) {
    TidyWorld world;
    furnish(world);
    Backend& backend = add(world, "labels=\"front, back\"");
    EXPECT_EQ(backend.labels(), (Calls{"front", "back"}));
    for (int round = 0; round < 3; ++round) {
        for (const WorldPart::State state : {WorldPart::PLAY, WorldPart::PAUSE, WorldPart::PLAY}) {
            for (const auto& [id, emitter] : world.emitters()) {
                emitter->setState(state);
            }
            world.setEnabled(state == WorldPart::PAUSE);
            world.setSpatialize(state == WorldPart::PLAY);
            world.setListenerTransform({static_cast<float>(round), 0, 0}, {});
            EXPECT_TRUE(world.update());
        }
        fill(*world.getSource(1)); // new data while it plays
        delete world.getSource(1);
        delete world.emitters().begin()->second;
        expectAlive(backend);
        world.reset();
        expectAlive(backend);
        furnish(world);
        fill(*world.createSource(1));
    }
}

TEST_P(BackendContract, NeverChangesTheSceneAndSurvivesAnyOrder) {
    TidyWorld world;
    Backend& backend = add(world);
    furnish(world);
    // Parts that the back end was never told of, with ids of others that it knows.
    TidyWorld elsewhere;
    furnish(elsewhere);
    fill(*elsewhere.createSource(4711));
    elsewhere.createEmitter({"unheard of"}, 4712)->setSource(elsewhere.getSource(4711));
    std::vector<Source*> sources;
    std::vector<Emitter*> emitters;
    for (World* home : {static_cast<World*>(&world), static_cast<World*>(&elsewhere)}) {
        for (const auto& [id, source] : home->sources()) {
            sources.push_back(source);
        }
        for (const auto& [id, emitter] : home->emitters()) {
            emitters.push_back(emitter);
        }
    }
    const std::string before = describe(world) + describe(elsewhere);
    // Each operation twice in a row, before the parts exist for the back end and after.
    Source& unknownSource = *elsewhere.getSource(4711);
    Emitter& unknownEmitter = *elsewhere.getEmitter(4712);
    for (const bool created : {false, true}) {
        if (created) {
            backend.createSource(unknownSource);
            backend.createEmitter(unknownEmitter);
        }
        for (const Operation& operation : kOperations) {
            operation(backend, unknownSource, unknownEmitter);
            operation(backend, unknownSource, unknownEmitter);
        }
    }
    // Then anything with anything; the seed makes each run the same.
    std::mt19937 random(20);
    const auto pick = [&random](const auto& from) -> const auto& {
        return from[random() % std::size(from)];
    };
    for (int i = 0; i < 3000; ++i) {
        pick(kOperations)(backend, *pick(sources), *pick(emitters));
    }
    EXPECT_EQ(describe(world) + describe(elsewhere), before);
    expectAlive(backend);
    backend.resetBackend(); // what it holds of elsewhere's parts goes before they do
}

TEST_P(BackendContract, SurvivesValuesOfAnySize) {
    using Limits = std::numeric_limits<float>;
    constexpr float kInfinity = Limits::infinity();
    const float values[] = {
        Limits::quiet_NaN(), kInfinity, -kInfinity, Limits::max(), 1e-40F, -1, 0};
    TidyWorld world;
    Backend& backend = add(world);
    furnish(world);
    Emitter& emitter = *world.emitters().begin()->second;
    Source& source = *emitter.source();
    for (const float v : values) {
        const Vec3f position{v, v, v};
        const Quaternion rotation{v, v, v, v};
        emitter.setState(WorldPart::PLAY);
        emitter.setTransform(&position, &rotation);
        world.setListenerTransform(position, rotation);
        emitter.setHull(v, v, v, v);
        emitter.setHull(v, 1, 2, v);
        emitter.setParam(true, v, v);
        source.setParam(true, v);
        EXPECT_TRUE(world.update());
        emitter.setState(WorldPart::STOP);
    }
    for (const int state : {-1, 4, 1000000, 0}) {
        emitter.setState(static_cast<WorldPart::State>(state));
    }
    const unsigned char bytes[7] = {};
    for (const unsigned rate : {0U, 1U, 44100U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        for (const unsigned bits : {0U, 1U, 8U, 16U, 24U, 32U, 0xFFFFFFFFU}) {
            for (const unsigned channels : {0U, 1U, 2U, 6U, 0xFFFFFFFFU}) {
                // Sizes that are no whole number of frames are among them.
                source.setData(rate, bits, channels, bytes, 1 + (rate + bits + channels) % 7);
            }
        }
    }
    source.setData(44100, 16, 1, nullptr, 0);
    for (const char* url : {"", "/", "/dev/null", "no such folder/a.wav", "file:///%00", "."}) {
        try {
            source.setDataFromURL(url);
        } catch (const Corvid::URLImpl::Exception&) {
            backend.setSourceData(source); // a source whose URL could not be parsed
        }
    }
    const Calls labels{"", ",", "\"", "\n", std::string("\0<&>", 4), std::string(70000, 'x')};
    delete world.createEmitter(labels);
    for (const int id : {-1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        fill(*world.createSource(id));
        world.createEmitter({}, id)->setSource(world.getSource(id));
        world.getEmitter(id)->setState(WorldPart::PLAY);
    }
    expectAlive(backend);
}

TEST_P(BackendContract, LivesBesideAnotherOfItsKind) {
    for (const bool firstGoesFirst : {true, false}) {
        TidyWorld world;
        Backend* first = &add(world);
        furnish(world);
        Backend* second = &add(world);
        world.getSource(1)->setState(WorldPart::PLAY);
        delete (firstGoesFirst ? first : second); // while it plays
        Backend& left = *(firstGoesFirst ? second : first);
        expectAlive(left);
        fill(*world.getSource(1));
        world.getSource(1)->setState(WorldPart::STOP);
        furnish(world);
        Backend& third = add(world);
        expectAlive(left);
        expectAlive(third);
    }
}

TEST_P(BackendContract, GoesInAnyOrderWithItsWorld) {
    for (const bool backendFirst : {true, false}) {
        auto world = std::make_unique<World>();
        add(*world);
        furnish(*world);
        world->sources().begin()->second->setState(WorldPart::PLAY);
        if (backendFirst) {
            world->deleteAllBackends();
            world->clearWorld();
        } else {
            world->clearWorld();
            EXPECT_TRUE(world->update());
            world->deleteAllBackends();
        }
        EXPECT_TRUE(world->backends().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, BackendContract, testing::ValuesIn(kinds()), [](const auto& row) {
    return row.param;
});

} // namespace Orvel::Test
