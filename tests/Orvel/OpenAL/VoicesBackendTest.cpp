// The kind "voices" as it is heard, with the real OpenAL Soft, offline.
#include "Hall.h"
#include "NoiseFile.h"

#include <Orvel/BackendState.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/VoicesBackend.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <malloc.h>
#include <random>
#include <support/Capture.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>

namespace Orvel::Test {

namespace {

Emitter* loop(World& world, const Vec3f& position, double hertz, float gain = 1.0F) {
    Emitter* emitter = play(world, position, tone(1.0, hertz));
    emitter->source()->setParam(true, 1.0F);
    emitter->setParam(true, 0.0F, gain);
    return emitter;
}

/// The level of the difference of two sounds relative to the first, in dB.
double difference(const Stereo& sound, Stereo other) {
    std::transform(sound.begin(), sound.end(), other.begin(), other.begin(), std::minus<>());
    return std::max(level(other, 0), level(other, 1)) - std::max(level(sound, 0), level(sound, 1));
}

/// The largest step between neighbouring samples of the left channel.
float steepest(const Stereo& sound) {
    float most = 0.0F;
    for (std::size_t i = 2; i < sound.size(); i += 2) {
        most = std::max(most, std::abs(sound[i] - sound[i - 2]));
    }
    return most;
}

constexpr Vec3f kAhead{0, 0, -1};

} // namespace

TEST(Voices, SoundLikeOpenALWhereAllFit) {
    // Each row changes a scene that both kinds play.
    const std::function<void(World&, Emitter&)> rows[] = {
        [](World&, Emitter&) {},
        [](World&, Emitter& e) {
            e.setTransform(std::array{Vec3f{-3, 0, 1}}.data(), nullptr);
        },
        [](World&, Emitter& e) { e.setHull(8, 8, 3, 3); },
        [](World&, Emitter& e) { e.setParam(true, 0.0F, 1.7F); },
        [](World& w, Emitter&) {
            w.setListenerTransform({2, 0, 3}, {0, 0.6F, 0, 0.8F});
        },
        [](World&, Emitter& e) { e.source()->setParam(true, 1.31F); },
        [](World&, Emitter& e) {
            e.setParam(false, 0.0F, 0.5F);
            e.setTransform(std::array{Vec3f{50, 0, 0}}.data(), nullptr);
            e.setHull(9, 9, 1, 1);
        },
        [](World& w, Emitter&) {
            play(w, {9, 0, 0}, tone(2.0, 700), 2);
        },
        [](World&, Emitter& e) { e.setState(WorldPart::STOP); },
        [](World& w, Emitter&) { w.setEnabled(false); }};
    for (const auto& change : rows) {
        Hall hall;
        TidyWorld other;
        auto* openAL = new OALLoopbackBackend(other, nullptr);
        for (World* world : {static_cast<World*>(&hall.world), static_cast<World*>(&other)}) {
            Emitter* emitter = loop(*world, {1, 0, -2}, 500);
            loop(*world, {-4, 0, 2}, 330, 0.6F);
            change(*world, *emitter);
        }
        const auto levels = [](const auto& render) {
            Stereo sound(2 * 8820);
            render(sound);
            render(sound);
            return std::pair(level(sound, 0), level(sound, 1));
        };
        const auto mine = levels([&](Stereo& s) { hall.ear->render(s.data(), 8820); });
        const auto theirs = levels([&](Stereo& s) { openAL->render(s.data(), 8820); });
        EXPECT_NEAR(mine.first, theirs.first, 0.1) << &change - rows;
        EXPECT_NEAR(mine.second, theirs.second, 0.1) << &change - rows;
    }
}

TEST(Voices, AreGivenToTheLoudestAndTheRestIsNotMissed) {
    // Moving emitters, of which a few hold the energy; once on few voices, once all mixed.
    constexpr int kCount = 300;
    const std::vector<unsigned char> tones[] = {tone(1.0, 211), tone(1.0, 350), tone(1.0, 523)};
    Stereo sounds[2];
    for (const bool all : {false, true}) {
        Hall hall(all ? "voices=1024" : "voices=32");
        std::vector<Emitter*> emitters;
        for (int i = 0; i < kCount; ++i) {
            emitters.push_back(play(hall.world, {}, tones[i % 3]));
            emitters.back()->source()->setParam(true, 1.0F + static_cast<float>(i) / kCount);
            emitters.back()->setParam(true, 0.0F, i % 15 == 0 ? 0.05F : 1e-4F);
        }
        for (int step = 0; step < 30; ++step) {
            for (int i = 0; i < kCount; ++i) {
                const double angle = i + 0.1 * step;
                const Vec3f place{
                    static_cast<float>(3.0 * std::cos(angle)), 0,
                    static_cast<float>(3.0 * std::sin(angle))};
                emitters[static_cast<std::size_t>(i)]->setTransform(&place, nullptr);
            }
            const Stereo part = hall.hear(0.01);
            sounds[all].insert(sounds[all].end(), part.begin(), part.end());
        }
        const BackendState state = hall.ear->state();
        EXPECT_EQ(state.voicesUsed, all ? 300U : 32U);
        EXPECT_EQ(state.waitingEmitters.size(), all ? 0U : 268U);
        ASSERT_EQ(state.emitters.size(), 300U);
        for (const BackendState::HeardEmitter& heard : state.emitters) {
            const bool mixed = heard.hearing == BackendState::Hearing::Mixed;
            const bool isLoud = heard.level > 1e-3F;
            EXPECT_TRUE(mixed || !isLoud) << heard.id;
            EXPECT_EQ(isLoud, (heard.id - state.emitters[0].id) % 15 == 0) << heard.id;
        }
    }
    EXPECT_LT(difference(sounds[1], sounds[0]), -40.0);
}

TEST(Voices, ChangeWithoutAClickAndComeBackInPhase) {
    Stereo sounds[2];
    for (const bool all : {false, true}) {
        Hall hall(all ? "voices=2" : "voices=1");
        Emitter* steady = loop(hall.world, kAhead, 480, 0.5F);
        steady->source()->setParam(true, 0.9F);
        Emitter* other = loop(hall.world, kAhead, 350, 0.0F);
        float last = 0.0F; // of the neighbouring samples across two renders
        for (int round = 0; round < 6; ++round) {
            for (const float gain : {1.0F, 0.001F}) {
                other->setParam(true, 0.0F, gain);
                if (all) {
                    steady->setParam(true, 0.0F, gain == 1.0F ? 0.0F : 0.5F);
                }
                const Stereo part = hall.hear(0.0973);
                EXPECT_LT(std::abs(part[0] - last), 0.05F);
                last = part[part.size() - 2];
                sounds[all] = part;
                const float own = gain * 0.5F * 2.0F * 3.1416F * 480.0F / 44100.0F;
                EXPECT_LT(steepest(part), std::max(own, 0.035F)) << round << ' ' << gain;
            }
        }
    }
    // The last part, in which the first emitter has returned, after its ramp.
    for (Stereo& sound : sounds) {
        sound.erase(sound.begin(), sound.begin() + 4096);
    }
    EXPECT_LT(difference(sounds[1], sounds[0]), -40.0);
}

TEST(Voices, MoveWithoutAClick) {
    for (const double move : {0.0413, -0.0413, -1.25}) { // the last waits for its beginning
        Stereo sounds[2];
        for (const bool moved : {false, true}) {
            Hall hall(move > 0.0 ? "streamFrom=100" : "");
            loop(hall.world, kAhead, 350, 0.5F);
            Stereo& sound = sounds[moved];
            sound = hall.hear(moved ? 1.2 : std::max(1.2 + move, 0.0));
            if (moved) {
                hall.ear->moveSounds(move);
            }
            const Stereo part = hall.hear(moved ? 0.1 : 0.1 + std::min(1.2 + move, 0.0));
            EXPECT_LT(steepest(part), 0.035F) << move;
            EXPECT_LT(std::abs(part[0] - (sound.empty() ? 0.0F : sound[sound.size() - 2])), 0.035F);
            sound.assign(part.end() - 2048, part.end());
        }
        EXPECT_GT(level(sounds[1], 0), -20.0);
        EXPECT_LT(difference(sounds[1], sounds[0]), -40.0) << move;
    }
}

TEST(Voices, AreGivenAgainWhenOneIsFree) {
    Hall hall("voices=2");
    std::vector<Emitter*> emitters;
    for (const double hertz : {400.0, 500.0, 600.0}) {
        emitters.push_back(loop(hall.world, kAhead, hertz));
    }
    hall.hear(0.1);
    EXPECT_EQ(hall.ear->state().waitingEmitters, std::vector{emitters[2]->id()})
        << "of equally loud ones those that came first, and they keep their voices";
    emitters[0]->setState(WorldPart::STOP);
    hall.hear(0.1);
    EXPECT_TRUE(hall.ear->state().waitingEmitters.empty());
    delete emitters[1];
    hall.world.setListenerTransform({500, 0, 0}, {});
    hall.hear(0.1);
    EXPECT_LT(level(hall.hear(0.1), 1), -55.0) << "only the third, and far away";
    EXPECT_EQ(hall.ear->state().voicesUsed, 1U);
}

TEST(Voices, AreRightWithin20msAfterTheListenerHasJumped) {
    Hall hall("voices=16");
    for (int i = 0; i < 16; ++i) {
        loop(hall.world, {0, 0, -1}, 300 + 20 * i, 0.05F);
        loop(hall.world, {500, 0, -1}, 2000 + 20 * i, 0.05F);
    }
    hall.hear(0.5);
    hall.world.setListenerTransform({500, 0, 0}, {});
    hall.hear(0.02);
    const double soon = level(hall.hear(0.05), 0); // a period of all tones
    EXPECT_NEAR(soon, level(hall.hear(0.05), 0), 0.1);
    EXPECT_EQ(hall.ear->state().waitingEmitters.size(), 16U);
}

TEST(Voices, KeepTheTimeOfSoundsAndReportTheirEnds) {
    Hall hall("voices=1");
    loop(hall.world, kAhead, 400); // has the only voice
    Emitter* faint = play(hall.world, {30, 0, 0}, tone(1.0, 600));
    faint->source()->setParam(false, 2.0F);
    std::vector<int> ended;
    hall.ear->setEndedHandler([&](Emitter& emitter) { ended.push_back(emitter.id()); });
    hall.hear(0.2);
    EXPECT_NEAR(*hall.ear->playPosition(*faint), 0.4, 0.03);
    faint->setState(WorldPart::PAUSE);
    hall.hear(0.5);
    faint->setState(WorldPart::PLAY);
    hall.hear(0.2);
    EXPECT_NEAR(*hall.ear->playPosition(*faint), 0.8, 0.03);
    EXPECT_EQ(ended, std::vector<int>());
    hall.hear(0.15);
    EXPECT_EQ(ended, std::vector{faint->id()});
    faint->setState(WorldPart::PAUSE);
    faint->setState(WorldPart::PLAY);
    hall.hear(0.05);
    EXPECT_NEAR(*hall.ear->playPosition(*faint), 0.1, 0.03) << "from the start after its end";
    faint->setState(WorldPart::STOP);
    faint->setStartOffset(0.7);
    faint->setState(WorldPart::PLAY);
    hall.hear(0.05);
    EXPECT_NEAR(*hall.ear->playPosition(*faint), 0.8, 0.03);
}

TEST(Voices, BeginAtTheFrameThatIsAskedFor) {
    const TemporaryFolder folder;
    const std::string path =
        writeNoise(folder.file("n.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 22050, 1.3);
    const struct {
        std::int64_t frame; // of 20,000, of which the first 1,000 have been rendered
        const char* params;
        double offset = 0.0;
        float pitch = 1.0F;
        bool loop = false;
    } rows[] = {
        {2100, "streamFrom=100 rate=22050"},
        {1100, "streamFrom=100 rate=22050"}, // with less notice than a block
        {9999, "streamFrom=100", 0.5, 1.37F},
        {9999, "streamFrom=1", 1.2, 1.37F, true}, // over the seam
        {9999, "streamFrom=1 rate=22050", 0.5, 1.0F},
        {12345, "streamFrom=100 rate=48000", 1.29, 0.5F, true},
        {-30000, "streamFrom=100", 0.0, 1.0F, true}, // long ago: joins in phase
        {400, "streamFrom=1", 0.01, 2.0F}};
    for (const auto& row : rows) {
        Stereo sounds[2];
        float hallRate = 0.0F;
        for (const bool asked : {false, true}) {
            Hall hall(row.params);
            hallRate = static_cast<float>(hall.ear->rate());
            const auto hear = [&](std::int64_t frames) {
                const Stereo part = hall.hearFrames(frames);
                sounds[asked].insert(sounds[asked].end(), part.begin(), part.end());
            };
            hear(1000);
            Source* source = hall.world.createSource();
            source->setDataFromURL(path);
            source->setParam(row.loop, row.pitch);
            Emitter* emitter = hall.world.createEmitter();
            emitter->setSource(source);
            emitter->setHull(9, 9, 1, 1);
            emitter->setStartOffset(row.offset);
            if (asked) {
                hall.ear->setStartFrame(row.frame);
            } else if (row.frame > 1000) {
                hear(row.frame - 1000);
            } else {
                emitter->setStartOffset(
                    row.offset + static_cast<double>(row.pitch) *
                                     static_cast<double>(1000 - row.frame) / hall.ear->rate());
            }
            emitter->setState(WorldPart::PLAY);
            hear(20000 - static_cast<std::int64_t>(sounds[asked].size() / 2));
            EXPECT_EQ(hall.ear->state().gaps, 0U);
        }
        const auto onset = [&](const Stereo& sound) {
            return std::ranges::find_if(sound, [](float s) { return s != 0.0F; }) - sound.begin();
        };
        const auto from = 2 * std::max<std::int64_t>(row.frame, 1000);
        if (row.frame > 1000) { // Interpolation spreads it over a frame of the sound.
            const bool exact = row.pitch == 1.0F && hallRate == 22050;
            const auto spread = 2 * std::lround(exact ? 0.0F : hallRate / (22050.0F * row.pitch));
            EXPECT_LE(onset(sounds[1]), from) << &row - rows;
            EXPECT_GE(onset(sounds[1]), from - spread) << &row - rows;
        }
        for (Stereo& sound : sounds) { // after the ramp of a start within a sound
            sound.erase(sound.begin(), sound.begin() + from + 2 * 1024);
        }
        EXPECT_GT(level(sounds[1], 0), -30.0) << &row - rows;
        EXPECT_LT(difference(sounds[0], sounds[1]), -80.0) << &row - rows;
    }
}

TEST(Voices, PlayASourceAnyNumberOfTimesWithoutEmitters) {
    Hall hall("voices=8");
    const auto samples = tone(0.3, 500);
    Source* source = hall.world.createSource();
    source->setData(44100, 16, 1, samples.data(), static_cast<unsigned>(samples.size()));
    EXPECT_EQ(hall.ear->playOnce(*source, {.gain = -1.0F}), 0);
    const auto at = [](float x) { return Shot{.position = {x, 0, 0}, .hull = {9, 9, 1, 1}}; };
    const int left = hall.ear->playOnce(*source, at(-1));
    hall.hear(0.1);
    hall.ear->playOnce(*source, at(1));
    const Stereo both = hall.hear(0.1);
    EXPECT_NEAR(level(both, 0), -9.03, 0.2);
    EXPECT_NEAR(level(both, 1), -9.03, 0.2);
    hall.ear->stopOnce(left);
    hall.hear(0.05);
    EXPECT_EQ(level(hall.hear(0.1), 0), -200.0);
    EXPECT_EQ(hall.ear->shots(), 1U);
    hall.hear(0.1);
    EXPECT_EQ(hall.ear->shots(), 0U) << "it is over";
    EXPECT_EQ(hall.ear->state().voicesUsed, 0U);
    for (int i = 0; i < 100; ++i) {
        hall.ear->playOnce(*source, at(0.01F * static_cast<float>(i)));
    }
    hall.hear(0.1);
    EXPECT_EQ(hall.ear->state().voicesUsed, 8U);
    EXPECT_TRUE(hall.ear->state().waitingEmitters.empty()) << "they are no emitters";
    delete source;
    hall.hear(0.1);
    EXPECT_EQ(level(hall.hear(0.1), 0), -200.0);
    EXPECT_EQ(hall.ear->shots(), 0U);
    Source* missing = hall.world.createSource();
    missing->setDataFromURL("/nowhere/missing.wav");
    EXPECT_NE(hall.ear->playOnce(*missing), 0);
    hall.hear(0.05);
    EXPECT_EQ(hall.ear->shots(), 0U);
}

TEST(Voices, ReleaseTheMemoryOfSourcesDeletedInAnyOrder) {
    Hall hall("voices=8");
    const auto samples = tone(0.2, 500);
    std::mt19937 random(5); // the same in each run
    const auto churn = [&](int count) {
        std::vector<Emitter*> emitters;
        for (int i = 0; i < count; ++i) {
            emitters.push_back(play(hall.world, kAhead, samples));
            if (i % 20 == 0) {
                hall.hear(0.02);
            }
            while (emitters.size() > 16) {
                Emitter*& emitter = emitters[random() % emitters.size()];
                Source* source = emitter->source();
                if (random() % 2 == 0) {
                    delete source; // under its emitter
                    delete emitter;
                } else {
                    delete emitter;
                    delete source;
                }
                emitter = emitters.back();
                emitters.pop_back();
            }
        }
        hall.world.clearWorld();
        hall.hear(0.6);
        hall.errors.take();
        return static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd);
    };
    const double before = churn(200);
    EXPECT_LT(churn(2000) - before, 1e6) << "the samples of all are 35 MB";
}

TEST(Voices, RefuseWhatCannotBeUsedAndGoOn) {
    Hall hall;
    Emitter* emitter = loop(hall.world, kAhead, 500);
    const double before = level(hall.hear(0.3), 0);
    const float nan = std::nanf("");
    const Vec3f nowhere{nan, 0, 0};
    emitter->setTransform(&nowhere, nullptr);
    emitter->setParam(true, 0.0F, -1.0F);
    emitter->setHull(nan, 1, 1, 1);
    emitter->source()->setParam(true, HUGE_VALF);
    hall.world.setListenerTransform(nowhere, {});
    EXPECT_EQ(hall.log.take().size(), 5U);
    EXPECT_NEAR(level(hall.hear(0.3), 0), before, 0.1);
    EXPECT_EQ(hall.ear->state().failures, 0U);
}

TEST(VoicesFiles, OfEveryFormatAreHeardAndOthersAreRefusedWithTheReason) {
    const TemporaryFolder folder;
    const struct {
        const char* name;
        int format;
        unsigned channels, rate;
    } rows[] = {
        {"a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1, 48000},
        {"b.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 44100},
        {"c.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 1, 22050},
        {"d.aiff", SF_FORMAT_AIFF | SF_FORMAT_FLOAT, 3, 96000},
        {"e.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 6, 8000}};
    for (const auto& row : rows) {
        for (const char* keep : {"keepChannels=yes", "keepChannels=no"}) {
            Hall hall(keep);
            Source* source = hall.world.createSource();
            source->setDataFromURL(
                writeNoise(folder.file(row.name), row.format, row.channels, row.rate, 1.0));
            EXPECT_NEAR(source->duration(), 1.0F, 0.001F) << row.name;
            Emitter* emitter = hall.world.createEmitter();
            emitter->setTransform(std::array{Vec3f{-2, 0, 0}}.data(), nullptr);
            emitter->setHull(9, 9, 1, 1);
            emitter->setSource(source);
            emitter->setState(WorldPart::PLAY);
            const Stereo sound = hall.hear(0.5);
            EXPECT_GT(level(sound, 0), -25.0) << row.name;
            const bool kept = keep[13] == 'y' && (row.channels == 2 || row.channels == 6);
            EXPECT_EQ(level(sound, 1) > -40.0, kept) << row.name << ": only one is placed";
            EXPECT_EQ(hall.log.take().size(), 1U) << "that it is loaded";
        }
    }
    std::ofstream(folder.file("text.wav")) << "no sound";
    for (const char* name : {"missing.wav", "text.wav", ""}) {
        Hall hall;
        Source* source = hall.world.createSource();
        Emitter* emitter = hall.world.createEmitter();
        emitter->setSource(source);
        source->setDataFromURL(folder.file(name));
        emitter->setState(WorldPart::PLAY);
        hall.hear(0.1);
        const auto lines = hall.log.take();
        ASSERT_EQ(lines.size(), 2U) << name;
        EXPECT_NE(lines[1].find(folder.file(name)), std::string::npos) << lines[1];
        EXPECT_EQ(hall.ear->state().refusedEmitters, std::vector{emitter->id()});
    }
    Hall hall;
    std::vector<unsigned char> samples(9 * 8000);
    for (std::size_t i = 2; i < samples.size(); i += 3) {
        samples[i] = i / 9 % 16 < 8 ? 0x40 : 0xC0; // 24 bits, three channels
    }
    Source* source = hall.world.createSource();
    source->setData(8000, 24, 3, samples.data(), static_cast<unsigned>(samples.size()));
    Emitter* emitter = hall.world.createEmitter();
    emitter->setSource(source);
    emitter->setHull(9, 9, 1, 1);
    emitter->setState(WorldPart::PLAY);
    EXPECT_NEAR(level(hall.hear(0.5), 0), -10.5, 1.0);
    EXPECT_EQ(source->duration(), 1.0F);
}

TEST(VoicesStreams, SoundExactlyLikeWholeSounds) {
    const TemporaryFolder folder;
    for (const unsigned channels : {1U, 2U}) {
        const std::string path = writeNoise(
            folder.file("long.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, channels, 22050, 3.1);
        Stereo sounds[2];
        for (const bool streamed : {false, true}) {
            Hall hall(std::string("voices=1 streamFrom=") + (streamed ? "1" : "100"));
            const auto hear = [&](double seconds) {
                const Stereo part = hall.hear(seconds);
                sounds[streamed].insert(sounds[streamed].end(), part.begin(), part.end());
            };
            Source* source = hall.world.createSource();
            source->setDataFromURL(path);
            source->setParam(true, 1.0F);
            Emitter* emitter = hall.world.createEmitter();
            emitter->setHull(9, 9, 1, 1);
            emitter->setSource(source);
            emitter->setState(WorldPart::PLAY);
            hear(3.5); // over the seam
            EXPECT_EQ(hall.ear->state().streams, streamed ? 1U : 0U);
            source->setParam(true, 1.7F);
            hear(2.1);
            emitter->setState(WorldPart::PAUSE);
            hear(0.1);
            emitter->setState(WorldPart::PLAY);
            hear(0.5);
            Emitter* louder = loop(hall.world, {-1, 0, 0}, 500); // takes the voice
            emitter->setParam(true, 0.0F, 0.5F);
            hear(0.4);
            louder->setState(WorldPart::STOP);
            hear(0.5);
            source->setParam(false, 1.7F); // ends after this round
            hear(2.0);
            EXPECT_FLOAT_EQ(
                static_cast<float>(*hall.ear->playPosition(*emitter)), source->duration());
            emitter->setStartOffset(2.5);
            emitter->setState(WorldPart::STOP);
            emitter->setState(WorldPart::PLAY);
            hear(1.0);
            EXPECT_EQ(hall.ear->state().gaps, 0U);
        }
        EXPECT_LT(difference(sounds[0], sounds[1]), -60.0) << channels;
    }
}

} // namespace Orvel::Test
