// Requirements on every kind of back end. Kinds that are registered later are tested here
// automatically.
#include "support/Capture.h"
#include "support/Loopback.h" // for back ends that search for servers
#include "support/RecordingBackend.h"

#include <Corvid/URLImpl.h>
#include <Orvel/BackendFactory.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/VoicesBackend.h>

#include <algorithm>
#include <climits>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace Orvel::Test {

namespace {

void (Backend::*const kOperations[])() = {
    &Backend::resetBackend, &Backend::setEnabled, &Backend::setListenerTransform};
void (Backend::*const kSourceOperations[])(Source&) = {
    &Backend::createSource, &Backend::destroySource, &Backend::setSourceData,
    &Backend::setSourceParam, &Backend::setSourceState};
void (Backend::*const kEmitterOperations[])(Emitter&) = {
    &Backend::createEmitter,  &Backend::destroyEmitter,  &Backend::setEmitterTransform,
    &Backend::setEmitterHull, &Backend::setEmitterParam, &Backend::setEmitterConnection,
    &Backend::setEmitterState};
constexpr unsigned char kSamples[400] = {0x90, 0x70};

/// Sources in all states, without data, with data and with a URL; each has an emitter.
void furnish(World& world) {
    for (const int state : {0, 1, 2, 3}) {
        Source& source = *world.createSource();
        if (state == 3) {
            source.setDataFromURL("no such sound.wav");
        } else if (state != 0) {
            source.setData(8000, 8, 1, kSamples, sizeof kSamples);
        }
        world.createEmitter(state == 1 ? Calls{} : Calls{"front"})->setSource(&source);
        source.setState(static_cast<WorldPart::State>(state));
    }
    world.createEmitter()->setState(WorldPart::PLAY); // without a source
}

std::vector<std::string> kinds() {
    OALLoopbackBackend::registerType();
    VoicesBackend::registerType();
    return BackendFactory::names();
}

class BackendContract : public testing::TestWithParam<std::string> {
protected:
    Backend& add(World& world, const char* params = "") {
        Backend* backend = world.addBackend(GetParam().c_str(), params);
        EXPECT_NE(backend, nullptr);
        const auto* audible = dynamic_cast<const OALBackend*>(backend);
        EXPECT_TRUE(audible == nullptr || audible->working()) << "an inert one proves nothing";
        const auto* voices = dynamic_cast<const VoicesBackend*>(backend);
        EXPECT_TRUE(voices == nullptr || voices->waitForDevice(std::chrono::seconds(30)));
        return *backend;
    }
    /// Expects that the back end is still in the world's list and of its kind.
    void expectAlive(Backend& backend) {
        const auto& all = backend.world().backends();
        EXPECT_EQ(std::count(all.begin(), all.end(), &backend), 1);
        ASSERT_NE(backend.type(), nullptr);
        EXPECT_EQ(backend.type()->name(), GetParam());
        EXPECT_TRUE(backend.world().update());
    }

private:
    LogCapture log_;
};

} // namespace

TEST_P(BackendContract, NeverChangesTheSceneAndSurvivesAnyOrder) {
    TidyWorld world;
    TidyWorld elsewhere; // its parts have the same ids, but were never announced to the back end
    furnish(world);
    furnish(elsewhere);
    delete &add(world, "labels=\"front, back\"");
    Backend& backend = add(world);
    delete world.sources().begin()->second; // while others play
    auto* witness = new RecordingBackend(world);
    auto* otherWitness = new RecordingBackend(elsewhere);
    std::mt19937 random(20); // the same in each run
    const auto pick = [&random](const auto& from) {
        return *std::next(std::begin(from), static_cast<int>(random() % std::size(from)));
    };
    for (int i = 0; i < 1500; ++i) {
        World& home = random() % 2 == 0 ? world : elsewhere;
        (backend.*pick(kSourceOperations))(*pick(home.sources()).second);
        (backend.*pick(kEmitterOperations))(*pick(home.emitters()).second);
        if (i % 50 == 0) {
            (backend.*pick(kOperations))();
            backend.update();
        }
    }
    EXPECT_EQ(witness->take(), Calls()) << "any change would have been told";
    EXPECT_EQ(otherWitness->take(), Calls());
    world.reset();
    furnish(world);
    expectAlive(backend);
    backend.resetBackend(); // releases the parts of `elsewhere` before they are destroyed
}

TEST_P(BackendContract, SurvivesValuesOfAnySize) {
    using Limits = std::numeric_limits<float>;
    TidyWorld world;
    Backend& backend = add(world);
    Source& source = *world.createSource();
    Emitter& emitter = *world.createEmitter({"", ",", "\n", std::string(70000, 'x')});
    source.setData(8000, 8, 1, kSamples, sizeof kSamples);
    emitter.setSource(&source);
    for (const float v : {Limits::quiet_NaN(), Limits::infinity(), -Limits::max(), 1e-40F, 0.0F}) {
        const Vec3f position{v, v, v};
        const Quaternion rotation{v, v, v, v};
        emitter.setTransform(&position, &rotation);
        world.setListenerTransform(position, rotation);
        emitter.setHull(v, 1, 2, v);
        emitter.setParam(true, v, v);
        source.setParam(true, v);
        for (const int state : {1, -1, 1000000}) {
            emitter.setState(static_cast<WorldPart::State>(state));
            EXPECT_TRUE(world.update());
        }
    }
    const unsigned numbers[] = {0, 1, 2, 8, 16, 44100, UINT_MAX};
    for (unsigned i = 0; i < 7 * 7 * 7; ++i) { // includes sizes that are not whole frames
        source.setData(numbers[i / 49], numbers[i / 7 % 7], numbers[i % 7], kSamples, 1 + i % 5);
    }
    source.setDataFromURL("/dev/null");
    EXPECT_THROW(source.setDataFromURL("http://["), Corvid::URLImpl::Exception);
    backend.setSourceData(source);
    for (const int id : {-1, INT_MIN, INT_MAX}) {
        world.createEmitter({}, id)->setSource(world.createSource(id));
        world.getEmitter(id)->setState(WorldPart::PLAY);
    }
    expectAlive(backend);
}

INSTANTIATE_TEST_SUITE_P(Kinds, BackendContract, testing::ValuesIn(kinds()), [](const auto& row) {
    return row.param;
});

} // namespace Orvel::Test
