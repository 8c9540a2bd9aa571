// The public interface of the library: the behaviour that its thin classes add to the inner ones,
// which have tests of their own. The examples cover the normal case.
#include <Show/LevelMeter.h>
#include <Show/MonitorPage.h>
#include <Show/Playback.h>
#include <Show/Render.h>
#include <Show/orvel_show.h>

#include <Orvel/Emitter.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/SoundFile.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>

using namespace Show;

namespace {

constexpr const char* kScene = R"({"orvel": 1, "sources": [{"id": 1, "tone": {"seconds": 3}}],
    "emitters": [{"id": 2, "source": 1, "state": "play", "hull": {"minBack": 9, "minFront": 9}}],
    "timeline": [{"at": 1, "emitter": 2, "position": [4, 0, 0], "over": 2}]})";

/// Keeps how an emitter began to play last.
struct Beginnings : Orvel::SilentBackend {
    using SilentBackend::SilentBackend;
    void setEmitterState(Orvel::Emitter& emitter) override { offset = emitter.startOffset(); }
    void resetBackend() override { ++resets; }
    double offset = -1.0;
    int resets = 0;
};

class ShowLibrary : public testing::Test {
protected:
    std::string write(const char* name, const char* text) {
        std::ofstream(folder_.file(name)) << text;
        return folder_.file(name);
    }
    Orvel::Test::TemporaryFolder folder_;
    ShowFile scene_ = ShowFile::load(write("s.json", kScene));
};

} // namespace

TEST_F(ShowLibrary, StartsAtAnyTimeWithEverySoundAtItsPlace) {
    Orvel::World world;
    auto* before = new Beginnings(world, nullptr);
    Playback playback(world, scene_);
    playback.start(2.0);
    EXPECT_EQ(before->offset, 2.0);
    EXPECT_EQ(before->resets, 1);
    auto* after = new Beginnings(world, nullptr);
    world.initBackendState(*after);
    EXPECT_EQ(after->offset, 2.0);
    const Orvel::Emitter& emitter = *world.getEmitter(2);
    EXPECT_EQ(emitter.position().x, 2.0F);
    EXPECT_EQ(playback.nextStep(), 2.0 + Playback::kTick);
    playback.advance(3.5);
    EXPECT_EQ(emitter.startOffset(), 0.0); // later sounds start at their beginning
    EXPECT_EQ(emitter.position().x, 4.0F);
    EXPECT_EQ(playback.end(), 3.0);
    world.clearWorld();
    world.deleteAllBackends();
}

TEST_F(ShowLibrary, WaitsAtTheEndOfEachCueAndGoesToAny) {
    Orvel::World world;
    auto* recorder = new Beginnings(world, nullptr);
    auto* other = new Orvel::Test::RecordingBackend(world);
    Playback playback(world, ShowFile::load(write("c.json", R"({"orvel": 1, "duration": 20,
            "cues": [{"name": "a", "at": 0}, {"name": "b", "at": 2}, {"name": "c", "at": 8}],
            "sources": [{"id": 1, "tone": {}, "loop": true}, {"id": 2, "tone": {"seconds": 0.5}}],
            "emitters": [{"id": 1, "source": 1, "state": "play"},
                         {"id": 2, "source": 2, "state": "play"}],
            "timeline": [{"at": 1, "emitter": 1, "value": 9, "over": 1},
                         {"at": 2, "emitter": 1, "gain": 0.5}]})")));
    const auto value = [&] { return world.getEmitter(1)->paramValue(); };
    const auto state = [&](int id) { return world.getEmitter(id)->state(); };
    const auto cue = [&] { return playback.currentCue()->name; };
    playback.arm();
    playback.advance(5.0); // of waiting
    EXPECT_TRUE(world.emitters().empty()) << "nothing is heard yet";
    EXPECT_EQ(world.sources().size(), 2);
    EXPECT_EQ(playback.nextCue()->name, "a");
    ASSERT_TRUE(playback.go());
    EXPECT_EQ(cue(), "a");
    playback.advance(6.5);
    EXPECT_EQ(playback.position(), 1.5);
    EXPECT_EQ(value(), 4.5F);
    EXPECT_EQ(playback.nextStep(), 6.5 + Playback::kTick);
    playback.pause(true);
    playback.advance(10.0);
    EXPECT_EQ(state(1), Orvel::Emitter::PAUSE);
    EXPECT_EQ(state(2), Orvel::Emitter::PLAY) << "it is over, and would begin again";
    EXPECT_EQ(playback.state(), PlayState::Paused);
    playback.pause(false);
    EXPECT_EQ(state(1), Orvel::Emitter::PLAY);
    for (double now = 10.0; playback.state() == PlayState::Playing; playback.advance(now)) {
        now = playback.nextStep();
    }
    EXPECT_EQ(playback.position(), 2.0);
    EXPECT_NEAR(value(), 9.0F, 1e-5F);
    EXPECT_EQ(world.getEmitter(1)->gain(), 1.0F) << "that belongs to the next cue";
    EXPECT_EQ(cue(), "a");
    playback.advance(20.0);
    EXPECT_EQ(recorder->resets, 0);
    ASSERT_TRUE(playback.go());
    EXPECT_EQ(recorder->resets, 0) << "it follows without a break";
    EXPECT_EQ(world.getEmitter(1)->gain(), 0.5F);
    playback.advance(21.0);
    EXPECT_EQ(playback.position(), 3.0);
    other->take();
    ASSERT_TRUE(playback.cue("c"));
    EXPECT_EQ(playback.position(), 8.0);
    EXPECT_EQ(std::ranges::count(other->take(), "setEmitterParam 1"), 1) << "only the result";
    EXPECT_EQ(recorder->resets, 1);
    EXPECT_EQ(recorder->offset, 8.0);
    EXPECT_FALSE(playback.go());
    EXPECT_FALSE(playback.cue("d"));
    playback.pause(true);
    playback.seek(1.25);
    EXPECT_EQ(state(1), Orvel::Emitter::PAUSE);
    EXPECT_EQ(cue(), "a");
    playback.pause(false);
    playback.advance(22.5);
    EXPECT_EQ(playback.position(), 2.0) << "the end of the cue";
    EXPECT_EQ(playback.state(), PlayState::Waiting);
    playback.start(7.0); // not armed
    playback.advance(9.0);
    EXPECT_EQ(cue(), "c");
    playback.advance(25.0);
    EXPECT_EQ(playback.state(), PlayState::Over);
    world.clearWorld();
    world.deleteAllBackends();
}

TEST_F(ShowLibrary, RendersTheSamePartToAFileAndAFunctionUnlessCancelled) {
    RenderSettings settings;
    settings.format = SampleFormat::f32;
    settings.from = 0.5;
    settings.seconds = 0.25;
    const std::string path = folder_.file("out.wav");
    std::vector<float> samples;
    const auto take = [&](std::span<const float> block) {
        samples.insert(samples.end(), block.begin(), block.end());
        return samples.size() < 30000;
    };
    ASSERT_TRUE(render(scene_, take, settings).isGood());
    std::vector<float> metered;
    settings.samples = [&metered](std::span<const float> block) {
        metered.insert(metered.end(), block.begin(), block.end());
    };
    const RenderResult result = renderToFile(scene_, path, settings);
    ASSERT_TRUE(result.isGood()) << result.error;
    EXPECT_EQ(metered, samples);
    EXPECT_EQ(result.seconds, 0.25);
    Orvel::SoundFile file(path);
    std::vector<float> written(file.frames() * 2 + 2);
    written.resize(2 * file.read(std::span(written)));
    EXPECT_EQ(written, samples);
    std::filesystem::remove(path);
    settings.progress = [](double done) { return done < 0.5; };
    EXPECT_TRUE(renderToFile(scene_, path, settings).cancelled);
    settings.seconds = 0.0; // more than the function takes
    settings.progress = {};
    EXPECT_TRUE(render(scene_, take, settings).cancelled);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path()), {}), 1);
    settings.from = result.end; // nothing is left
    EXPECT_EQ(renderToFile(scene_, path, settings).cause, RenderResult::Cause::Empty);
    settings.rate = 7;
    EXPECT_NE(render(scene_, take, settings).error.find("8000 to 192000"), std::string::npos);
}

TEST_F(ShowLibrary, RendersTheOutputOfTheSceneWithItsChannelMask) {
    const ShowFile file = ShowFile::load(
        write("wide.json", R"({"orvel": 1, "duration": 0.3, "output": "5.1", "doppler": 0.5,
            "reverb": {"preset": "concerthall", "wet": 0.25}, "sources": [{"id": 1, "tone": {}}],
            "emitters": [{"id": 2, "source": 1, "state": "play", "position": [-9, 0, 1],
                "hull": {"minBack": 9, "minFront": 9}}]})"));
    EXPECT_EQ(file.voicesParams(), "voices=128 output=5.1 doppler=0.5 reverb=concerthall wet=0.25");
    for (const char* output : {"5.1", "7.1"}) {
        RenderSettings settings;
        settings.params = std::string("output=") + output;
        settings.format = *output == '5' ? SampleFormat::s16 : SampleFormat::f32;
        const unsigned channels = file.layout(settings.params).channels;
        LevelMeter meter(44100, 1.0, channels);
        settings.samples = [&](std::span<const float> samples) { meter.add(samples); };
        const std::string path = folder_.file("wide.wav");
        EXPECT_TRUE(renderToFile(file, path, settings).isGood());
        std::ifstream wav(path, std::ios::binary);
        std::string header(44, ' ');
        wav.read(header.data(), 44);
        EXPECT_EQ(header.substr(20, 2), "\xfe\xff");
        EXPECT_EQ(
            header.substr(40, 4),
            std::string(*output == '5' ? "\x0f\x06" : "\x3f\x06") + std::string(2, '\0'));
        const Orvel::SoundFile sound(path);
        EXPECT_EQ(sound.channels(), channels);
        EXPECT_EQ(sound.frames(), 13230U);
        EXPECT_EQ(meter.frames(), 13230U);
        EXPECT_STREQ(channelName(channels, channels - 2), "side left");
        EXPECT_GT(meter.all()[channels - 2].peak, 2.0 * meter.all()[1].peak);
    }
}

TEST_F(ShowLibrary, TurnsEveryMisuseIntoAnErrorInC) {
    const auto expect = [](bool failed, const char* reason) {
        EXPECT_TRUE(failed) << reason;
        EXPECT_NE(std::string(orvel_last_error()).find(reason), std::string::npos)
            << orvel_last_error();
        orvel_set_last_error("none");
    };
    const std::string good = folder_.file("s.json");
    orvel_world* world = orvel_world_create();
    orvel_server* server = orvel_server_create();
    orvel_show_file* scene = orvel_show_file_load(good.c_str(), false);
    orvel_show_file* bad =
        orvel_show_file_load(write("bad.json", "{\n\"orvel\": 1,\n\"x\": 2}").c_str(), false);
    orvel_show_problem problem{};
    ASSERT_TRUE(orvel_show_file_problem(bad, 0, &problem));
    EXPECT_EQ(problem.line, 3);
    EXPECT_STREQ(problem.field, "x");
    expect(!orvel_show_file_good(bad), "bad.json:3: x: ");
    expect(!orvel_show_file_problem(bad, 1, &problem), "use an index below");
    expect(orvel_show_file_check(bad, nullptr) < 0, "bad.json:3");
    expect(orvel_show_file_load(nullptr, false) == nullptr, "the path is null");
    expect(orvel_show_playback_create(world, bad) == nullptr, "bad.json:3");
    expect(orvel_show_playback_create(nullptr, scene) == nullptr, "the world is null");
    expect(!orvel_show_playback_advance(nullptr, 0.0), "the playback is null");
    const auto never = [](const float* /*samples*/, size_t /*frames*/, void* /*user*/) {
        return false;
    };
    expect(!orvel_show_render(scene, nullptr, never, nullptr), "cancelled");
    expect(!orvel_show_render(scene, nullptr, nullptr, nullptr), "is null");
    expect(!orvel_show_render_file(scene, "/none/x.wav", nullptr, nullptr, nullptr), "/none/x.wav");
    const char* const path = good.c_str();
    expect(orvel_show_recorder_create(server, path, nullptr, 0) == nullptr, "exists already");
    expect(orvel_show_recorder_create(server, "/none/c", "/none", 0) == nullptr, "a scene file");
    expect(orvel_show_osc_create(world, "nowhere", 0, 0, nullptr, nullptr) == nullptr, "nowhere");
    orvel_show_monitor* page = orvel_show_monitor_create(world, nullptr, 0, nullptr);
    const std::string url = orvel_show_monitor_url(page);
    const int port = std::stoi(url.substr(url.rfind(':') + 1));
    expect(orvel_show_monitor_create(world, nullptr, port, nullptr) == nullptr, "no monitor at");
    expect(orvel_show_monitor_create(world, "'", 0, nullptr) == nullptr, "no monitor at");
    // Each goes with its world or server at the latest.
    orvel_show_playback* playback = orvel_show_playback_create(world, scene);
    orvel_show_osc* osc = orvel_show_osc_create(world, nullptr, 0, 0, nullptr, nullptr);
    orvel_show_recorder* recorder =
        orvel_show_recorder_create(server, folder_.file("c").c_str(), nullptr, 0);
    EXPECT_TRUE(orvel_show_playback_start(playback, 0.0) && orvel_show_osc_serve(osc, 0.0));
    EXPECT_TRUE(orvel_show_recorder_flush(recorder));
    for (orvel_show_file* file : {scene, bad}) {
        orvel_show_file_destroy(file);
    }
    EXPECT_TRUE(orvel_show_playback_advance(playback, 0.5)); // keeps its file
    expect(!orvel_show_file_good(scene), "the file is gone");
    orvel_world_destroy(world);
    orvel_server_destroy(server);
    expect(!orvel_show_playback_advance(playback, 1.0), "the playback is gone");
    expect(!orvel_show_osc_serve(osc, 0.0), "the OSC input is gone");
    expect(!orvel_show_recorder_flush(recorder), "the recorder is gone");
    expect(orvel_show_monitor_url(page) == nullptr, "the monitor is gone");
    orvel_show_monitor_destroy(page);
}
