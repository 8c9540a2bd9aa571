// Open Sound Control: the effect and order of messages, and refusals.
#include <Show/Playback.h>
#include <Show/osc/OscInbox.h>
#include <Show/osc/OscScene.h>
#include <Show/osc/OscServer.h>
#include <Show/osc/OscStream.h>

#include <Orvel/Emitter.h>
#include <Orvel/Server.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <deque>
#include <endian.h>
#include <gtest/gtest.h>
#include <limits>
#include <lo/lo.h>
#include <sstream>
#include <string>
#include <support/Capture.h>
#include <support/RawSocket.h>
#include <support/RecordingBackend.h>
#include <support/WorldText.h>
#include <thread>
#include <tuple>
#include <vector>

using namespace Show;
using namespace Orvel::Test;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

using Packets = std::vector<std::string>;
using Numbers = std::vector<float>;

std::string
message(const std::string& path, const Numbers& numbers = {}, const char* text = nullptr) {
    lo_message message = lo_message_new();
    for (const float number : numbers) {
        lo_message_add_float(message, number);
    }
    if (text != nullptr) {
        lo_message_add_string(message, text);
    }
    std::string bytes(lo_message_length(message, path.c_str()), '\0');
    lo_message_serialise(message, path.c_str(), bytes.data(), nullptr);
    lo_message_free(message);
    return bytes;
}

std::string sized(const std::string& packet) {
    const std::uint32_t size = htobe32(static_cast<std::uint32_t>(packet.size()));
    return std::string(reinterpret_cast<const char*>(&size), sizeof size) + packet;
}

/// `seconds` since 1970; 0: at once.
std::string bundle(std::uint32_t seconds, const Packets& elements) {
    const std::uint32_t time[] = {
        htobe32(seconds == 0 ? 0 : seconds + 2208988800U), htobe32(seconds == 0 ? 1 : 0)};
    std::string bytes =
        "#bundle\0"s + std::string(reinterpret_cast<const char*>(time), sizeof time);
    for (const std::string& element : elements) {
        bytes += sized(element);
    }
    return bytes;
}

std::span<const std::byte> bytes(const std::string& packet) {
    return std::as_bytes(std::span(packet));
}

void expectNear(const Orvel::Vec3f& found, const Orvel::Vec3f& expected, const char* what) {
    EXPECT_LT(std::hypot(found.x - expected.x, found.y - expected.y, found.z - expected.z), 1e-4F)
        << what << ": " << found.x << ' ' << found.y << ' ' << found.z;
}

/// A world with the emitters 11 and 12, the sources 1 and 2, and a scale of 10.
class OscScenes : public testing::Test {
protected:
    OscScenes() {
        for (const int id : {1, 2}) {
            world.createSource(id);
            emitter(id + 10, true).setSource(world.getSource(id));
        }
    }
    Orvel::Emitter& emitter(int id, bool create = false) {
        return *(create ? world.createEmitter({}, id) : world.getEmitter(id));
    }

    TidyWorld world;
    OscScene scene{world, 10.0F, [this](Orvel::CommandEvent& event) {
                       EXPECT_TRUE(Orvel::Server::applyEvent(world, &event));
                   }};
    std::vector<OscAnswer> answers;

    std::string take(const std::string& packet) { return scene.take(bytes(packet), answers); }
    /// The answers to a query as text, such as "/adm/obj/11/xy ff 1 0; ".
    std::string ask(const std::string& path) {
        std::string text = take(message(path));
        for (const auto& [from, values] : std::exchange(answers, {})) {
            text += from + " " + (values.type == 's' ? "s " + values.text : "");
            text += std::string(values.count, values.type);
            for (std::size_t i = 0; i < values.count; ++i) {
                std::array<char, 32> number{};
                std::snprintf(
                    number.data(), number.size(), " %.3g",
                    static_cast<double>(values.numbers[i]) + 0.0);
                text += number.data();
            }
            text += "; ";
        }
        return text;
    }
};

} // namespace

TEST_F(OscScenes, CoordinatesOfAdmBecomeThoseOfTheScene) {
    const float half = 10.0F * std::sqrt(0.5F);
    // Applied in order; each starts from the result of the previous one.
    const std::tuple<const char*, Numbers, Orvel::Vec3f> rows[] = {
        {"/adm/obj/11/xyz", {-1, 0.5F, 0.25F}, {-10, 2.5F, -5}},
        {"/adm/obj/11/x", {1}, {10, 2.5F, -5}},
        {"/adm/obj/11/y", {-1}, {10, 2.5F, 10}},
        {"/adm/obj/*/z", {0}, {10, 0, 10}},
        {"/adm/obj/11/azim", {90}, {-10 * std::sqrt(2.0F), 0, 0}},
        {"/adm/obj/11/dist", {1}, {-10, 0, 0}},
        {"/adm/obj/11/elev", {45}, {-half, half, 0}},
        {"/adm/obj/11/dist", {0}, {0, 0, 0}},        // and the direction is remembered
        {"/adm/obj/11/dist", {2}, {-half, half, 0}}, // beyond its range, as the next three
        {"/adm/obj/11/azim", {1e30F}, {0, half, half}},
        {"/adm/obj/11/aed", {90, -1000, 1}, {0, -10, 0}},
        {"/adm/obj/11/xyz", {-7, 0.5F, 9}, {-10, 10, -5}},
        {"/adm/obj/11/xy", {1, -0.5F}, {10, 10, 5}},
        {"/adm/obj/11/aed", {-90, 0, 1}, {10, 0, 0}},
        {"/orvel/emitter/11/position", {1, 2, 3}, {1, 2, 3}},
        {"/adm/obj/11/azim", {180}, {0, 2, std::sqrt(10.0F)}},
    };
    for (const auto& [path, numbers, place] : rows) {
        EXPECT_EQ(take(message(path, numbers)), "") << path;
        expectNear(emitter(11).position(), place, path);
    }
    EXPECT_EQ(emitter(12).position(), Orvel::Vec3f{});
}

TEST_F(OscScenes, TurnsLeftThenUpThenToTheRight) {
    // The last two: the vectors ahead and to the right after the rotation.
    const std::tuple<const char*, Numbers, Orvel::Vec3f, Orvel::Vec3f> rows[] = {
        {"/adm/lis/ypr", {90, 0, 0}, {-1, 0, 0}, {0, 0, -1}},
        {"/adm/lis/ypr", {0, 90, 0}, {0, 1, 0}, {1, 0, 0}},
        {"/adm/lis/ypr", {0, 0, 90}, {0, 0, -1}, {0, -1, 0}},
        {"/adm/lis/ypr", {270, 0, 0}, {0, 0, 1}, {-1, 0, 0}}, // clamped
        {"/adm/lis/ypr", {90, 90, 0}, {0, 1, 0}, {0, 0, -1}},
        {"/orvel/listener/orientation", {0, 5, 0, 5}, {-1, 0, 0}, {0, 0, -1}},
        {"/orvel/emitter/11/orientation", {-90, 0, 0}, {1, 0, 0}, {0, 0, 1}},
    };
    for (const auto& [path, numbers, ahead, right] : rows) {
        world.setEnabled(false);
        EXPECT_EQ(take(message(path, numbers)), "") << path;
        EXPECT_FALSE(world.enabled());
        const bool emits = std::string(path).find("emitter") != std::string::npos;
        const Orvel::Quaternion q = emits ? emitter(11).rotation() : world.listenerRotation();
        expectNear(q.rotate({0, 0, -1}), ahead, path);
        expectNear(q.rotate({1, 0, 0}), right, path);
    }
}

TEST_F(OscScenes, PathsChangeWhatTheyName) {
    using State = Orvel::WorldPart::State;
    const std::tuple<const char*, Numbers, std::function<bool()>> rows[] = {
        {"/adm/obj/11/gain", {0.5F}, [&] { return emitter(11).gain() == 0.5F; }},
        {"/adm/obj/11/mute", {1}, [&] { return emitter(11).gain() == 0.0F; }},
        {"/adm/obj/11/mute", {1}, [&] { return emitter(11).gain() == 0.0F; }},
        {"/adm/obj/11/gain", {0.75F}, [&] { return emitter(11).gain() == 0.0F; }},
        {"/adm/obj/11/mute", {0}, [&] { return emitter(11).gain() == 0.75F; }},
        {"/orvel/emitter/11/value", {3}, [&] { return emitter(11).paramValue() == 3.0F; }},
        {"/orvel/emitter/11/hull", {4, 3, 2, 1}, [&] { return emitter(11).maxFront() == 3.0F; }},
        {"/orvel/emitter/*/play", {}, [&] { return world.getSource(2)->state() == State::PLAY; }},
        {"/orvel/emitter/11/stop", {0}, [&] { return emitter(11).state() == State::PLAY; }},
        {"/orvel/emitter/11/source", {2}, [&] { return emitter(11).source()->id() == 2; }},
        {"/orvel/emitter/11/pause", {1}, [&] { return emitter(12).state() == State::PAUSE; }},
        {"/orvel/source/2/stop", {}, [&] { return emitter(11).state() == State::STOP; }},
        {"/orvel/source/2/pitch", {2}, [&] { return world.getSource(2)->pitch() == 2.0F; }},
        {"/orvel/source/2/loop", {1}, [&] { return world.getSource(2)->loop(); }},
        {"/orvel/emitter/11/source", {0}, [&] { return emitter(11).source() == nullptr; }},
        {"/orvel/listener/position", {1, 2, 3}, [&] { return world.listenerPosition().z == 3; }},
        {"/adm/lis/xyz", {0, 1, 0}, [&] { return world.listenerPosition().z == -10; }},
        {"/orvel/enabled", {0}, [&] { return !world.enabled(); }},
        {"/orvel/emitter/11/destroy", {}, [&] { return world.getEmitter(11) == nullptr; }},
        {"/orvel/emitter/11/create", {}, [&] { return world.getEmitter(11) != nullptr; }},
    };
    for (const auto& [path, numbers, check] : rows) {
        EXPECT_EQ(take(message(path, numbers)), "") << path;
        EXPECT_TRUE(check()) << path;
    }
    // A sound that has ended starts again, although an equal state would not notify the back ends.
    auto& recorder = *new RecordingBackend(world);
    take(message("/orvel/emitter/12/play"));
    recorder.take();
    take(message("/orvel/emitter/12/play"));
    const Calls calls = recorder.take();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "setEmitterState 12"), 2);
    EXPECT_EQ(take(message("/orvel/emitter/20/create", {}, "front")), "");
    EXPECT_EQ(emitter(20).labels(), std::vector<std::string>{"front"});
}

TEST_F(OscScenes, QueriesAreAnsweredWithPresentValues) {
    // A message, or none, before a query.
    const std::tuple<const char*, Numbers, const char*, const char*, const char*> rows[] = {
        {"/adm/obj/11/aed", {90, 0, 0.5F}, nullptr, "/adm/obj/11/x", "/adm/obj/11/x f -0.5; "},
        {"", {}, nullptr, "/adm/obj/11/azim", "/adm/obj/11/azim f 90; "},
        {"", {}, nullptr, "/adm/obj/11/elev", "/adm/obj/11/elev f 0; "},
        {"", {}, nullptr, "/adm/obj/11/dist", "/adm/obj/11/dist f 0.5; "},
        {"/adm/obj/11/xyz", {1, 0, 0}, nullptr, "/adm/obj/11/aed", "/adm/obj/11/aed fff -90 0 1; "},
        {"/adm/obj/11/xy",
         {0.25F, -1},
         nullptr,
         "/adm/obj/11/xyz",
         "/adm/obj/11/xyz fff 0.25 -1 0; "},
        {"", {}, nullptr, "/adm/obj/11/xy", "/adm/obj/11/xy ff 0.25 -1; "},
        {"/adm/obj/11/z",
         {5},
         nullptr,
         "/adm/obj/11/[x-z]",
         "/adm/obj/11/x f 0.25; /adm/obj/11/y f -1; /adm/obj/11/z f 1; "},
        {"/adm/obj/11/dmax", {40}, nullptr, "/adm/obj/11/xyz", "/adm/obj/11/xyz fff 0.25 -1 1; "},
        {"",
         {},
         nullptr,
         "/orvel/emitter/11/position",
         "/orvel/emitter/11/position fff 10 40 40; "},
        {"/adm/obj/11/dref",
         {0.5F},
         nullptr,
         "/orvel/emitter/11/hull",
         "/orvel/emitter/11/hull ffff 40 40 20 20; "},
        {"/adm/obj/11/dmax",
         {-1},
         nullptr,
         "/adm/obj/11/d{ref,max}",
         "/adm/obj/11/dref f 0.5; /adm/obj/11/dmax f 1e-06; "},
        {"/adm/obj/{11,12}/w",
         {7},
         nullptr,
         "/adm/obj/*/w",
         "/adm/obj/11/w f 1; /adm/obj/12/w f 1; "},
        {"/adm/obj/11/mute", {1}, nullptr, "/adm/obj/11/mute", "/adm/obj/11/mute i 1; "},
        {"/adm/obj/1[2-9]/gain",
         {-3},
         nullptr,
         "/adm/obj/1?/gain",
         "/adm/obj/11/gain f 1; /adm/obj/12/gain f 0; "},
        {"/adm/obj/11/name", {}, "Flute", "/adm/obj/11/n*e", "/adm/obj/11/name s Flute; "},
        {"/adm/lis/xyz", {0.5F, 2, 0}, nullptr, "/adm/lis/xyz", "/adm/lis/xyz fff 0.5 1 0; "},
        {"/adm/lis/ypr", {40, 20, 30}, nullptr, "/adm/lis/ypr", "/adm/lis/ypr fff 40 20 30; "},
        {"/adm/lis/ypr", {40, 90, 0}, nullptr, "/adm/lis/ypr", "/adm/lis/ypr fff 40 90 0; "},
        {"/adm/env/change", {}, "Act 2", "/adm/env/change", "/adm/env/change s Act 2; "},
        {"/orvel/source/2/pitch",
         {2},
         nullptr,
         "/orvel/source/2/*",
         "/orvel/source/2/pitch f 2; /orvel/source/2/loop i 0; "},
        {"", {}, nullptr, "/orvel/emitter/12/source", "/orvel/emitter/12/source i 2; "},
        {"", {}, nullptr, "/orvel/enabled", "/orvel/enabled i 1; "},
    };
    for (const auto& [path, numbers, text, query, answer] : rows) {
        if (*path != '\0') {
            EXPECT_EQ(take(message(path, numbers, text)), "") << path;
        }
        EXPECT_EQ(ask(query), answer);
    }
    // Names are cut by characters, not within one.
    std::string name;
    for (int i = 0; i < 129; ++i) {
        name += "\u00e9";
    }
    take(message("/adm/obj/11/name", {}, name.c_str()));
    EXPECT_EQ(ask("/adm/obj/11/name"), "/adm/obj/11/name s " + name.substr(2) + "; ");
}

TEST_F(OscScenes, CuesAreControlledAndReadWhileThereIsAPlayback) {
    std::string text = R"({"orvel": 1, "duration": 20, "cues": [{"name": "a", "at": 0},
                           {"name": "b", "at": 2}, {"name": "c", "at": 8}]})";
    std::istringstream in(text);
    auto playback = std::make_unique<Playback>(world, ShowFile::readScene(in, "scene"));
    EXPECT_NE(take(message("/orvel/go")).find("unknown path"), std::string::npos);
    scene.control(playback->transport());
    playback->arm();
    const std::tuple<const char*, Numbers, const char*, const char*> rows[] = {
        {"/orvel/go", {0}, nullptr, "state s waiting"}, // a button is released
        {"/orvel/go", {}, nullptr, "cue s a"},
        {"/orvel/cue/c", {1}, nullptr, "time f 8"},
        {"/orvel/pause", {}, nullptr, "state s paused"},
        {"/orvel/seek", {3.5F}, nullptr, "time f 3.5"},
        {"/orvel/play", {}, nullptr, "state s playing"},
        {"/orvel/cue", {}, "a", "cue s a"},
        {"/adm/env/change", {}, "b", "cue s b"},
        {"/adm/env/change", {}, "elsewhere", "cue s b"},
    };
    for (const auto& [path, numbers, name, answer] : rows) {
        EXPECT_EQ(take(message(path, numbers, name)), "") << path;
        const std::string values = ask("/orvel/{cue,state,time}");
        EXPECT_NE(values.find("/orvel/" + std::string(answer) + ";"), std::string::npos) << values;
    }
    for (const auto& [packet, expected] : std::vector<std::pair<std::string, std::string>>{
             {message("/orvel/cue/none"), "unknown path"},
             {message("/orvel/cue", {}, "none"), "there is no such cue"},
             {message("/orvel/seek", {-1}), "a time of at least 0"},
             {message("/orvel/time", {1}), "cannot be set"}}) {
        EXPECT_NE(take(packet).find(expected), std::string::npos) << expected;
    }
    EXPECT_EQ(take(message("/orvel/go")), "");
    EXPECT_NE(take(message("/orvel/go")).find("no further cue"), std::string::npos);
    playback.reset();
    EXPECT_NE(take(message("/orvel/go")).find("has ended"), std::string::npos);
}

TEST_F(OscScenes, AFadeTakesItsTimeUntilAnythingElseSetsTheGain) {
    const auto fade = [this] { take(message("/orvel/emitter/*/gain", {0, 10})); };
    const auto step = [this](auto after) { scene.step(GainFades::Clock::now() + after); };
    fade();
    step(5s);
    EXPECT_NEAR(emitter(11).gain(), 0.5F, 0.01F);
    take(message("/adm/obj/12/gain", {0.75F}));
    emitter(11).setParam(true, 0.0F, 0.25F); // by anyone else
    step(6s);
    EXPECT_EQ(scene.nextStep(), GainFades::Clock::time_point::max());
    EXPECT_EQ(emitter(11).gain(), 0.25F);
    EXPECT_EQ(emitter(12).gain(), 0.75F);
    take(message("/orvel/emitter/11/gain", {0.5F, 10}));
    step(7s);
    take(message("/adm/obj/11/mute", {1}));
    step(20s);
    take(message("/adm/obj/11/mute", {0}));
    EXPECT_EQ(emitter(11).gain(), 0.5F);
    EXPECT_NE(take(message("/orvel/emitter/11/gain", {1, -1})), "");
}

TEST_F(OscScenes, AnObjectAppearsWithItsFirstMessage) {
    EXPECT_EQ(take(message("/adm/obj/2/xyz", {0, 1, 0})), "");
    EXPECT_EQ(emitter(2).position(), (Orvel::Vec3f{0, 0, -10}));
    EXPECT_EQ(emitter(2).hull(), (Orvel::Hull{10, 10, 10, 10}));
    EXPECT_EQ(emitter(2).source(), world.getSource(2));
    take(message("/adm/obj/2/name", {}, "former"));
    // An object has nothing of a former one with its id.
    delete world.getEmitter(2);
    EXPECT_NE(ask("/adm/obj/2/name"), "/adm/obj/2/name s former; ");
    for (std::size_t id = 100; id < 100 + AdmPaths::kMaxAppeared; ++id) {
        EXPECT_EQ(take(message("/adm/obj/" + std::to_string(id) + "/mute", {1})), "");
    }
    EXPECT_NE(take(message("/adm/obj/99/x", {1})).find("have appeared already"), std::string::npos);
    EXPECT_NE(ask("/adm/obj/*/x").find("more than 1024 answers"), std::string::npos);
}

TEST_F(OscScenes, WhatIsWrongIsNamedAndChangesNothing) {
    const float none = std::numeric_limits<float>::quiet_NaN();
    const float much = std::numeric_limits<float>::infinity();
    const std::string before = describe(world);
    for (const auto& [packet, expected] : std::vector<std::pair<std::string, std::string>>{
             {message("/adm/obj/11/gain", {none}), "/adm/obj/11/gain: expected numbers from -1e9"},
             {message("/orvel/emitter/11/position", {0, 0, much}), "from -1e9 to 1e9"},
             {message("/orvel/emitter/11/gain", {-1}), "gain of at least 0"},
             {message("/adm/obj/11/xyz", {1, 1}), "expected 3 numbers, found 2"},
             {message("/orvel/emitter/11/orientation", {0, 0, 0, 0}), "of length 0"},
             {message("/orvel/emitter/11/hull", {1, 1, -1, 1}), "extents of at least 0"},
             {message("/orvel/emitter/11/source", {1.5F}), "the id of a source"},
             {message("/orvel/emitter/11/create", {}), "an emitter 11 already"},
             {message("/orvel/source/1/pitch", {0}), "pitch above 0"},
             {message("/adm/obj/13/gain"), "there is no emitter 13"},
             {message("/adm/obj/13/gain", {1, 2}), "there is no emitter 13"},
             {message("/adm/obj/11/name", {1}), "expected a text"},
             {message("/orvel/emitter/11/{destroy,play}", {1}), "unknown path"},
             {message("/adm/obj/4?/gain", {1}), "there is no such emitter"},
             {message("/adm/obj/11/gain", {}, "loud"), "found a text"},
             {message("/adm/obj/11/gains", {1}), "unknown path"},
             {message("/\x1b[2J\n", {}), "/?[2J?: unknown path"},
             {"/", "not a message of Open Sound Control"},
             {{}, "not a message of Open Sound Control"}}) {
        const std::string wrong = take(packet);
        EXPECT_NE(wrong.find(expected), std::string::npos) << wrong;
    }
    // Truncated anywhere, it may be another message, but must do no harm and nothing partial.
    const std::string whole = message("/adm/obj/11/xyz", {1, 1, 1});
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_NE(take(whole.substr(0, size)), "") << size;
    }
    EXPECT_EQ(describe(world), before);
}

TEST(OscInbox, BundlesAreAppliedInTheOrderOfTheirTimes) {
    std::vector<std::string> taken;
    std::vector<std::string> faults;
    OscInbox inbox(
        [&](std::span<const std::byte> path, const OscPeer&) {
            taken.emplace_back(reinterpret_cast<const char*>(path.data()));
        },
        [&](const std::string& fault, const OscPeer&) { faults.push_back(fault); });
    const auto at = [](int seconds) { return OscInbox::Clock::time_point(seconds * 1s); };
    const auto take = [&] { return std::exchange(taken, {}); };
    const auto one = [](const char* path) { return message(path); };
    const auto add = [&inbox](const std::string& packet, auto... more) {
        inbox.add(bytes(packet), more...);
    };
    add(bundle(300, {one("/c"), one("/d")}), at(100));
    add(bundle(200, {one("/b"), bundle(150, {one("/not before b")})}), at(100));
    add(bundle(300, {one("/e")}), at(100));
    EXPECT_EQ(inbox.next(), at(200));
    add(bundle(0, {one("/now"), bundle(250, {one("/x")}), one("/too")}), at(100));
    add(bundle(50, {one("/late")}), at(100));
    EXPECT_EQ(take(), (Calls{"/now", "/too", "/late"}));
    add(one("/after what was due"), at(299));
    EXPECT_EQ(take(), (Calls{"/b", "/not before b", "/x", "/after what was due"}));
    inbox.advance(at(300));
    EXPECT_EQ(take(), (Calls{"/c", "/d", "/e"}));
    EXPECT_EQ(inbox.next(), std::nullopt);
    // A truncated bundle: the complete messages before the cut, and one error.
    const std::string whole = bundle(0, {one("/1"), one("/2")});
    for (std::size_t size = 8; size < whole.size(); ++size) {
        inbox.add(bytes(whole).first(size), at(300));
        const bool between = size == 16 || size == 16 + 4 + one("/1").size();
        EXPECT_EQ(faults.size(), between ? 0 : 1) << size;
        EXPECT_EQ(taken.size(), size < 16 + 4 + one("/1").size() ? 0 : 1) << size;
        taken.clear();
        faults.clear();
    }
    std::string deep = one("/deep");
    for (int i = 0; i < OscInbox::kMaxDepth; ++i) {
        deep = bundle(0, {deep});
    }
    add(deep, at(300));
    add(bundle(0, {deep}), at(300));
    EXPECT_EQ(take(), Calls{"/deep"});
    EXPECT_EQ(std::exchange(faults, {}).size(), 1);
    // Messages left for later stay in order.
    int left = 0;
    const auto stop = [&left] { return left-- <= 0; };
    for (const char* path : {"/1", "/2"}) {
        add(bundle(0, {one(path), one(path)}), at(300), stop);
        add(one("/3"), at(300), stop);
    }
    EXPECT_EQ(take(), Calls{});
    left = 4;
    EXPECT_FALSE(inbox.advance(at(300), stop));
    EXPECT_EQ(take(), (Calls{"/1", "/1", "/3", "/2"}));
    EXPECT_TRUE(inbox.advance(at(300)));
    EXPECT_EQ(take(), (Calls{"/2", "/3"}));
    // The queue is limited.
    const Packets hundred(100, one("/later"));
    for (std::size_t i = 0; i <= OscInbox::kMaxMessages / 100; ++i) {
        add(bundle(400, hundred), at(300));
    }
    EXPECT_EQ(faults.size(), 100);
    inbox.advance(at(400));
    EXPECT_EQ(take().size(), OscInbox::kMaxMessages);
    for (int i = 0; i < 20; ++i) {
        add(bundle(500, {message("/large", {}, std::string(1'000'000, 'x').c_str())}), at(400));
    }
    inbox.advance(at(500));
    EXPECT_EQ(take().size(), OscInbox::kMaxBytes / 1'000'000);
}

TEST(OscStream, FindsPacketsHoweverTheyArrive) {
    const std::string first = message("/adm/obj/11/gain", {1});
    const std::string second = message("/b") + "\xC0\xDB";
    std::string slip = "\xC0";
    for (const std::string& packet : {first, second}) {
        for (const char c : packet) {
            slip += c == '\xC0' ? "\xDB\xDC" : c == '\xDB' ? "\xDB\xDD" : std::string(1, c);
        }
        slip += "\xC0\xC0";
    }
    for (const std::string& all : {sized(first) + sized(second), slip}) {
        for (std::size_t cut = 0; cut <= all.size(); ++cut) {
            OscStream stream;
            Packets found;
            for (const auto part : {bytes(all).first(cut), bytes(all).subspan(cut)}) {
                stream.feed(part);
                for (std::span<const std::byte> packet; stream.next(packet);) {
                    found.emplace_back(reinterpret_cast<const char*>(packet.data()), packet.size());
                }
            }
            EXPECT_EQ(found, (Packets{first, second})) << cut;
            EXPECT_FALSE(stream.broken());
            const std::string framed = stream.framed(bytes(second));
            EXPECT_NE(all.find(framed), std::string::npos);
        }
    }
    for (const std::string& bad :
         {"\0\0\0\0"s, "\1\1\1\1"s, sized({}), std::string(80'000, '\xC1'), "\xC0\xDB\1"s}) {
        OscStream stream;
        stream.feed(bytes(bad));
        std::span<const std::byte> packet;
        EXPECT_FALSE(stream.next(packet));
        EXPECT_TRUE(stream.broken());
    }
}

TEST_F(OscScenes, NothingIsLostOverConnectionsAndStrangersAreBounded) {
    std::vector<std::string> reports;
    int applied = 0;
    std::chrono::milliseconds pause{0};
    OscServer server(
        world, {},
        [&](Orvel::CommandEvent&) {
            ++applied;
            std::this_thread::sleep_for(pause);
        },
        [&](const std::string& message) { reports.push_back(message); },
        std::make_shared<Corvid::Loop>());
    ASSERT_TRUE(server.open());
    std::deque<RawSocket> sockets;
    for (std::size_t i = 0; i < OscServer::kMaxConnections + 2; ++i) {
        sockets.emplace_back(server.port());
        server.serve(1ms);
    }
    std::string many;
    constexpr int kMessages = 20'000;
    for (int i = 0; i < kMessages; ++i) {
        many += sized(message("/adm/obj/11/gain", {1}));
    }
    std::size_t sent = 0;
    EXPECT_TRUE(until(
        [&] { return applied == kMessages; },
        [&] {
            sent += sockets.back().send(std::string_view(many).substr(sent));
            server.serve(1ms);
        }));
    sockets[2].send(std::string(100, 'G')); // "GET / HTTP/1.1" would be an OSC packet size
    for (const int i : {0, 1, 2}) {         // two gave way, and one is invalid
        EXPECT_TRUE(until([&] { return sockets[i].isClosed(); }, [&] { server.serve(1ms); }));
    }
    const int datagrams = ::socket(AF_INET, SOCK_DGRAM, 0);
    for (int i = 0; i < 100; ++i) {
        sendTo(datagrams, message("/" + std::to_string(i / 2)), loopback(server.port()));
    }
    EXPECT_TRUE(until(
        [&] { return server.summary() == "OSC: 20100 messages, 103 invalid"; },
        [&] { server.serve(1ms); }))
        << server.summary();
    // Slow messages do not block other work.
    const std::string packet = bundle(0, Packets(100, message("/adm/obj/11/y", {1})));
    sendTo(datagrams, packet, loopback(server.port()));
    pause = 1ms;
    const int before = applied;
    EXPECT_TRUE(until([&] { return applied > before; }, [&] { server.serve(1ms); }));
    EXPECT_LT(applied, before + 50);
    EXPECT_TRUE(until([&] { return applied == before + 100; }, [&] { server.serve(1ms); }));
    ASSERT_EQ(reports.size(), OscServer::kMaxReports + 1);
    EXPECT_NE(reports[0].find(": the connection silent"), std::string::npos) << reports[0];
    EXPECT_NE(reports[2].find("an invalid packet or one above 64 KiB"), std::string::npos)
        << reports[2];
    ::close(datagrams);
}

TEST_F(OscScenes, AnswersGoToTheSenderAndChangesToOthersThanTheirCause) {
    /// A client with a socket of its own.
    struct Client {
        std::uint16_t port = 0;
        int descriptor = boundSocket(SOCK_DGRAM, port);
        std::string input;

        Client() = default;
        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;
        ~Client() { ::close(descriptor); }
        /// The number of messages with this path so far.
        int count(const std::string& path) {
            char block[2048];
            ssize_t size = 0;
            while ((size = ::recv(descriptor, block, sizeof block, MSG_DONTWAIT)) > 0) {
                input.append(block, static_cast<std::size_t>(size));
            }
            int found = 0;
            for (std::size_t at = 0; (at = input.find(path + '\0', at)) != std::string::npos;
                 ++at) {
                ++found;
            }
            return found;
        }
    };
    std::deque<Client> clients(OscFeedback::kMaxSubscribers + 1);
    Client& fixed = clients[0];
    Client& desk = clients[1];
    std::vector<std::string> reports;
    OscServer::Settings settings;
    settings.feedback = {{Corvid::InetAddress::getByAddress("127.0.0.1"), fixed.port}};
    OscServer server(
        world, settings,
        [&](Orvel::CommandEvent& event) { Orvel::Server::applyEvent(world, &event); },
        [&](const std::string& text) { reports.push_back(text); },
        std::make_shared<Corvid::Loop>());
    ASSERT_TRUE(server.open());
    const auto send = [&](const Client& from, const std::string& packet) {
        sendTo(from.descriptor, packet, loopback(server.port()));
    };
    const auto waitFor = [&](const auto& done) { return until(done, [&] { server.serve(1ms); }); };
    const std::string gain = "/adm/obj/11/gain";
    send(desk, message(gain));
    EXPECT_TRUE(waitFor([&] { return desk.count(gain) == 1; }));
    for (const auto& exchange :
         {std::pair(sized(message(gain)), sized(message(gain, {1}))),
          std::pair("\xC0" + message(gain) + "\xC0", "\xC0" + message(gain, {1}) + "\xC0")}) {
        const RawSocket connection(server.port(), exchange.first);
        std::string input;
        EXPECT_TRUE(waitFor([&] { return connection.receive(input), input == exchange.second; }));
    }
    for (std::size_t i = 1; i < clients.size(); ++i) {
        send(clients[i], message("/orvel/subscribe"));
    }
    EXPECT_TRUE(waitFor([&] { return reports.size() == 1; }));
    EXPECT_NE(reports[0].find("16 subscribers already"), std::string::npos) << reports[0];
    EXPECT_NE(reports[0].find(":" + std::to_string(clients.back().port)), std::string::npos);
    // The desk's own change goes to the others.
    send(desk, message(gain, {0.5F}));
    EXPECT_TRUE(waitFor([&] { return fixed.count(gain) == 1 && clients[2].count(gain) == 1; }));
    // Of one part, the program moves it and the desk mutes it: each gets the other's change.
    const Orvel::Vec3f place{1, 0, 0};
    emitter(11).setTransform(&place, nullptr);
    send(desk, message("/adm/obj/11/mute", {1}));
    EXPECT_TRUE(waitFor([&] { return desk.count("/adm/obj/11/xyz") == 1; }));
    EXPECT_TRUE(waitFor([&] { return fixed.count("/adm/obj/11/mute") == 1; }));
    EXPECT_EQ(desk.count("/adm/obj/11/mute"), 0);
    EXPECT_EQ(desk.count(gain), 1); // the answer
    // A desk whose value another one replaces learns that, also of a new object.
    send(desk, bundle(0, {message("/adm/obj/30/w", {1}), message("/adm/obj/30/gain", {2})}));
    EXPECT_TRUE(waitFor([&] { return fixed.count("/adm/obj/30/gain") == 1; }));
    EXPECT_EQ(desk.count("/adm/obj/30/gain"), 0);
    emitter(30).setParam(true, 0, 3);
    EXPECT_TRUE(waitFor([&] { return desk.count("/adm/obj/30/gain") == 1; }));
    // The rate of each value is limited.
    const auto begin = OscFeedback::Clock::now();
    const int before = fixed.count("/orvel/emitter/12/value");
    for (int i = 1; i <= 500; ++i) {
        emitter(12).setParam(true, static_cast<float>(i), 1);
        server.serve(0ms);
    }
    const auto periods = (OscFeedback::Clock::now() - begin) / OscFeedback::kPeriod;
    EXPECT_TRUE(waitFor([&] {
        return fixed.input.find(message("/orvel/emitter/12/value", {500})) != std::string::npos ||
               fixed.count("/orvel/emitter/12/value") < 0;
    }));
    EXPECT_LE(fixed.count("/orvel/emitter/12/value") - before, periods + 2);
    send(desk, message("/orvel/unsubscribe"));
    send(desk, message("/orvel/enabled", {0}));
    EXPECT_TRUE(waitFor([&] { return fixed.count("/orvel/enabled") == 1; }));
    world.setEnabled(true);
    EXPECT_TRUE(waitFor([&] { return fixed.count("/orvel/enabled") == 2; }));
    EXPECT_EQ(desk.count("/orvel/enabled"), 0);
}
