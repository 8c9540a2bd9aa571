#include "SceneFile.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <support/TemporaryFolder.h>
#include <vector>

using namespace OrvelTool;

namespace {

std::vector<std::string> problemsOf(const std::string& text) {
    std::vector<Problem> problems;
    const std::optional<Scene> scene = parseScene(text, "s.json", problems);
    EXPECT_EQ(scene.has_value(), problems.empty());
    std::vector<std::string> lines;
    for (const Problem& problem : problems) {
        lines.push_back(problem.str());
    }
    return lines;
}

/// A scene with a source 1, emitters 11 and 12 in line 2 and whatever else in line 3.
std::string sceneWith(const std::string& more) {
    return R"({"orvel":1,"sources":[{"id":1,"tone":{}}],)"
           "\n"
           R"("emitters":[{"id":11,"source":1},{"id":12}],)"
           "\n" +
           more + "}";
}

std::string timeline(const std::string& entries) {
    return sceneWith("\"timeline\":[" + entries + "]");
}

std::string nested(int depth) {
    return R"({"orvel":)" + std::string(static_cast<std::size_t>(depth), '[') + "1";
}

} // namespace

TEST(SceneFile, NamesLineFieldAndExpectation) {
    const std::string position = "expected a position [x, y, z], found ";
    const struct {
        std::string text;
        std::string problem;
    } cases[] = {
        {"", "s.json: expected a scene, found an empty file"},
        {" \n\t", "s.json: expected a scene, found an empty file"},
        {"[1]", R"(s.json:1: expected a scene such as { "orvel": 1, ... }, found an array of 1)"},
        {"{}", R"(s.json:1: expected the key "orvel" with 1, the version of the format, found no )"
               "such key"},
        {"{\n\"orvel\":\n2, \"unheardOf\": 1}",
         "s.json:2: orvel: expected 1, the version of the format, found 2"},
        {R"({"orvel":"1"})",
         R"(s.json:1: orvel: expected 1, the version of the format, found "1")"},
        {"{\"orvel\": 1,\n\"sources\": [",
         "s.json:2: sources: expected JSON, found at column 13: syntax error while parsing value - "
         "unexpected end of input; expected '[', '{', or a literal"},
        {R"({"orvel": NaN})", "s.json:1: expected JSON, found at column 11: syntax error while "
                              R"(parsing value - invalid literal; last read: '"orvel": N')"},
        {"{\"orvel\":1,\"a\x01\":1}",
         "s.json:1: expected JSON, found at column 14: syntax error while parsing object key - "
         "invalid string: control character U+0001 (SOH) must be escaped to \\u0001; last read: "
         "'\"a<U+0001>'; expected string literal"},
        {nested(64), "s.json:1: expected no more than 64 arrays and objects within each other"},
        {"{\"orvel\":1,\n\"duration\":1e999\n}",
         "s.json:2: duration: expected a number within the range of a double, found 1e999"},
        {"{\"orvel\":1,\n\"duration\":0\n}",
         "s.json:2: duration: expected a number of seconds above 0, up to 86400, found 0"},
        {"{\"orvel\":1,\n\n\"orvel\":1}",
         "s.json:3: orvel: expected each key once, found it in line 1 already"},
        {R"({"orvel":1,"listener":{"postion":[0,0,0]}})",
         R"(s.json:1: listener.postion: expected one of the keys "position", "rotation", found )"
         R"("postion"; did you mean "position"?)"},
        {R"({"orvel":1,"listener":{"zzz":1}})",
         R"(s.json:1: listener.zzz: expected one of the keys "position", "rotation", found "zzz")"},
        {R"({"orvel":1,"emitters":{}})",
         "s.json:1: emitters: expected an array of objects, found an object"},
        {sceneWith(R"("listener":{"position":[0,0]})"),
         "s.json:3: listener.position: " + position + "an array of 2"},
        {sceneWith(R"("listener":{"position":[0,"0",0]})"),
         R"(s.json:3: listener.position[1]: expected a number, found "0")"},
        {sceneWith(R"("listener":{"position":[0,1e39,0]})"),
         "s.json:3: listener.position[1]: expected a number, found 1e+39"},
        {sceneWith(R"("listener":{"rotation":[0,90,0,1]})"),
         "s.json:3: listener.rotation: expected a quaternion [x, y, z, w] of length 1, found one "
         "of length 90.0056"},
        {sceneWith(R"("listener":{"rotation":[0,0,0,0.9989]})"),
         "s.json:3: listener.rotation: expected a quaternion [x, y, z, w] of length 1, found one "
         "of length 0.9989"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(problemsOf(c.text), std::vector{c.problem}) << c.text;
    }
}

TEST(SceneFile, ChecksSourcesAndEmitters) {
    const struct {
        std::string list;
        std::string part;
        std::string problem; // without the file and the line
    } cases[] = {
        {"sources", R"({"id":0,"tone":{}})",
         "[0].id: expected a whole number from 1 to 32767, found 0"},
        {"sources", R"({"id":1.5,"tone":{}})",
         "[0].id: expected a whole number from 1 to 32767, found 1.5"},
        {"sources", R"({"tone":{}})",
         R"([0]: expected the key "id" with a whole number, found no such key)"},
        {"sources", R"({"id":1})",
         R"([0]: expected a sound, given by one of the keys "file", "url" and "tone", found none )"
         "of them"},
        {"sources", R"({"id":1,"file":"a","url":"http://b/"})",
         R"([0].url: expected only one of "file", "url" and "tone" beside "file", found )"
         R"("http://b/")"},
        {"sources", R"({"id":1,"file":"a\u0000b"})",
         R"([0].file: expected the path of a sound file, found "a?b")"},
        {"sources", R"({"id":1,"url":"bell.wav"})",
         R"([0].url: expected an absolute URL such as "https://example.org/bell.wav" (a file )"
         R"(beside the scene is named with "file"), found "bell.wav")"},
        {"sources", R"({"id":1,"tone":{},"channels":"keep"})",
         R"([0].channels: expected no "channels" without "file" beside it, found "keep")"},
        {"sources", R"({"id":1,"file":"a","channels":2})",
         R"([0].channels: expected "mix" or "keep", found 2)"},
        {"sources", R"({"id":1,"tone":{"hertz":30000}})",
         "[0].tone.hertz: expected a frequency above 0, up to 22050, found 30000"},
        {"sources", R"({"id":1,"tone":{"amplitude":1.1}})",
         "[0].tone.amplitude: expected a number from 0 to 1, found 1.1"},
        {"sources", R"({"id":1,"tone":{},"pitch":0})",
         "[0].pitch: expected a number above 0, found 0"},
        {"sources", R"({"id":1,"tone":{},"loop":1})", "[0].loop: expected true or false, found 1"},
        {"sources", R"({"id":1,"tone":{}},{"id":1,"tone":{}})",
         "[1].id: expected an id of its own, found 1, which line 1 has already"},
        {"emitters", R"({"id":1,"gain":-0.1})",
         "[0].gain: expected a number of at least 0, found -0.1"},
        {"emitters", R"({"id":1,"source":7})",
         R"([0].source: expected the id of one of "sources" or null, found 7)"},
        {"emitters", R"({"id":1,"hull":{"maxBack":-1}})",
         "[0].hull.maxBack: expected a number of at least 0, found -1"},
        {"emitters", R"({"id":1,"labels":["a","b,c"]})",
         R"([0].labels[1]: expected a text without commas and without blanks at its ends, found )"
         R"("b,c")"},
        {"emitters", R"({"id":1,"state":"playing"})",
         R"([0].state: expected "play", "pause", "stop" or "none", found "playing")"},
        {"emitters", "7", "[0]: expected an object, found 7"},
    };
    for (const auto& c : cases) {
        const std::vector<std::string> problems =
            problemsOf(R"({"orvel":1,")" + c.list + "\":[" + c.part + "]}");
        ASSERT_FALSE(problems.empty()) << c.part;
        EXPECT_EQ(problems[0], "s.json:1: " + c.list + c.problem);
        EXPECT_EQ(problems.size(), 1U) << c.part;
    }
    EXPECT_EQ(
        problemsOf(R"({"orvel":1,"sources":[{"id":1,"tone":{}}],"emitters":[
            {"id":1,"source":1,"state":"play"},{"id":2,"source":1},
            {"id":3,"source":1,"state":"stop"}]})"),
        std::vector<std::string>{
            "s.json:3: emitters[2].state: expected the state of emitters[0], because what plays "
            "one source shares its state, found another"});
}

TEST(SceneFile, ChecksTheTimeline) {
    const std::string existing = "that exists at 1 s, found ";
    const struct {
        std::string entries;
        std::string problem; // without the file and the line; empty for a good one
    } cases[] = {
        {R"({"at":1,"emitter":11,"hull":{"minBack":1},"over":1,"state":"stop"})", ""},
        {R"({"at":1,"emitter":11,"connect":null},{"at":2,"emitter":11,"connect":1})", ""},
        {R"({"at":1,"source":1,"destroy":true},{"at":1,"source":1,"create":true,"tone":{}})", ""},
        // In the order of time, not of the file.
        {R"({"at":2,"emitter":5,"gain":0},{"at":1,"emitter":5,"create":true,"connect":1})", ""},
        {R"({"at":1,"emitter":5,"gain":0},{"at":1,"emitter":5,"create":true})",
         "timeline[0].emitter: expected the id of an emitter " + existing + "5"},
        {R"({"at":1,"emitter":11,"create":true})",
         "timeline[0].emitter: expected the id of no emitter " + existing + "11"},
        {R"({"at":1,"emitter":11,"connect":9})",
         "timeline[0].connect: expected the id of a source " + existing + "9"},
        {R"({"at":0,"source":1,"destroy":true},{"at":1,"source":1,"pitch":1})",
         "timeline[1].source: expected the id of a source " + existing + "1"},
        {R"({"emitter":11,"gain":1})",
         R"(timeline[0]: expected the key "at" with a number of seconds, found no such key)"},
        {R"({"at":-1,"listener":true,"position":[0,0,0]})",
         "timeline[0].at: expected a number of seconds from 0 to 86400, found -1"},
        {R"({"at":1,"listener":1,"position":[0,0,0]})",
         "timeline[0].listener: expected true, found 1"},
        {R"({"at":1,"emitter":11,"source":1})",
         R"(timeline[0]: expected exactly one of the keys "emitter", "source", "listener" and )"
         R"("world", found "emitter", "source"; an emitter's source is given by "connect")"},
        {R"({"at":1})", R"(timeline[0]: expected exactly one of the keys "emitter", "source", )"
                        R"("listener" and "world", found none of them)"},
        {R"({"at":1,"world":true})",
         R"(timeline[0]: expected a change, that is one of the keys "enabled", "spatialize", )"
         "found none"},
        {R"({"at":1,"emitter":11,"state":"play","over":1})",
         R"(timeline[0].over: expected "over" only beside one of the keys "position", )"
         R"("rotation", "hull", "gain", "value", found 1)"},
        {R"({"at":1,"emitter":11,"state":"none"})",
         R"(timeline[0].state: expected "play", "pause" or "stop", found "none")"},
        {R"({"at":1,"emitter":11,"destroy":true,"gain":1})",
         R"(timeline[0].gain: expected one of the keys "at", "emitter", "destroy", found "gain")"},
        {R"({"at":1,"emitter":5,"create":true,"over":1})",
         R"(timeline[0].over: expected one of the keys "at", "emitter", "create", "connect", )"
         R"("position", "rotation", "hull", "gain", "spatial", "value", "labels", "state", )"
         R"(found "over")"},
    };
    for (const auto& c : cases) {
        const std::vector<std::string> problems = problemsOf(timeline(c.entries));
        if (c.problem.empty()) {
            EXPECT_EQ(problems, std::vector<std::string>{}) << c.entries;
        } else {
            EXPECT_EQ(problems, std::vector{"s.json:3: " + c.problem}) << c.entries;
        }
    }
}

TEST(SceneFile, ReportsEveryMistakeOnceAndInOrder) {
    const std::string text = R"({"orvel":1,
        "duration":-1,
        "sources":[{"id":1,"tone":{"hertz":1e999,"seconds":-2e999}},
                   {"id":2,"tone":{"hertz":1},"pitch":
            -1}],
        "emitters":[{"id":1,"gain":"loud","gain":1}],
        "timeline":[{"at":0,"emitter":1,"gain":1e400}]})";
    const std::vector<std::string> expected{
        "s.json:2: duration: ",
        "s.json:3: sources[0].tone.hertz: ",
        "s.json:3: sources[0].tone.seconds: ",
        "s.json:4: sources[1].pitch: ",
        "s.json:6: emitters[0].gain: expected each key once",
        "s.json:6: emitters[0].gain: ",
        "s.json:7: timeline[0].gain: "};
    const std::vector<std::string> problems = problemsOf(text);
    ASSERT_EQ(problems.size(), expected.size()) << testing::PrintToString(problems);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(problems[i].substr(0, expected[i].size()), expected[i]);
    }

    std::string many = R"({"orvel":1,"emitters":[)";
    for (int i = 0; i < 1000; ++i) {
        many += (i > 0 ? ",{}" : "{}");
    }
    const std::vector<std::string> most = problemsOf(many + "]}");
    EXPECT_EQ(most.size(), kMaxProblems);
    EXPECT_EQ(most.back(), "s.json: too many mistakes; correct the ones above to see the others");
}

TEST(SceneFile, AnyTruncationIsOneProblem) {
    const std::string text = timeline(
        R"({"at":1,"emitter":11,"connect":null,"position":[1,-2.5e3,0],"over":0.5,"state":"play"})");
    ASSERT_EQ(problemsOf(text), std::vector<std::string>{});
    for (std::size_t length = 0; length < text.size(); ++length) {
        EXPECT_EQ(problemsOf(text.substr(0, length)).size(), 1U) << length;
    }
}

TEST(SceneFile, ReadsValuesAndDefaults) {
    std::vector<Problem> problems;
    const std::optional<Scene> scene = parseScene(
        "\xEF\xBB\xBF" // a byte order mark, as some editors write it
        R"({"orvel":1.0,"duration":9,"listener":{"rotation":[0,0.7071,0,0.7071]},
            "sources":[{"id":3,"file":"../b/x.wav","channels":"keep","pitch":1e-300},
                       {"id":2,"url":"https://example.org/a.wav","loop":true}],
            "emitters":[{"id":1,"source":null,"hull":{"minFront":2},"labels":["a b"]}],
            "timeline":[{"at":2,"world":true,"enabled":false},
                        {"at":1,"emitter":1,"connect":null},
                        {"at":1,"emitter":9,"create":true,"connect":3,"gain":0.5}]})",
        "/scenes/a/s.json", problems);
    ASSERT_TRUE(scene.has_value()) << problems.at(0).str();
    EXPECT_EQ(scene->duration, 9.0);
    const Orvel::Quaternion& q = scene->listenerRotation;
    EXPECT_NEAR(std::hypot(q.y, q.w), 1.0F, 1e-7F);
    EXPECT_EQ(scene->sources[0].sound, Sound(SoundFile{"/scenes/b/x.wav", true}));
    EXPECT_GT(scene->sources[0].pitch, 0.0F);
    EXPECT_EQ(scene->sources[1].sound, Sound(SoundUrl{"https://example.org/a.wav"}));
    EXPECT_EQ(scene->emitters[0].source, std::nullopt);
    EXPECT_EQ(scene->emitters[0].hull.minFront, 2.0F);
    EXPECT_EQ(scene->emitters[0].hull.maxFront, 10.0F);
    EXPECT_EQ(scene->emitters[0].labels, std::vector<std::string>{"a b"});
    ASSERT_EQ(scene->timeline.size(), 3U);
    EXPECT_TRUE(scene->timeline[0].reconnect);
    EXPECT_EQ(scene->timeline[0].connect, std::nullopt);
    ASSERT_TRUE(scene->timeline[1].newEmitter.has_value());
    EXPECT_EQ(scene->timeline[1].newEmitter->id, 9);
    EXPECT_EQ(scene->timeline[1].newEmitter->source, 3);
    EXPECT_EQ(scene->timeline[1].newEmitter->gain, 0.5F);
    EXPECT_EQ(scene->timeline[2].enabled, false);
    EXPECT_EQ(scene->timeline[2].where.field, "timeline[0]");
}

TEST(SceneFile, LooksForFilesBesideTheScene) {
    const Orvel::Test::TemporaryFolder folder;
    const std::string path = folder.file("s.json");
    std::ofstream(folder.file("there.wav")) << "x";
    std::ofstream(path) << R"({"orvel":1,"sources":[
        {"id":1,"file":"there.wav"},
        {"id":2,"file":"gone.wav"}],
        "timeline":[{"at":1,"source":1,"file":"."}],
        "oops":1})";
    std::vector<Problem> problems;
    EXPECT_FALSE(readScene(path, problems).has_value());
    ASSERT_EQ(problems.size(), 3U);
    EXPECT_EQ(problems[0].line, 3);
    EXPECT_EQ(problems[0].field, "sources[1].file");
    EXPECT_EQ(
        problems[0].text,
        "expected a sound file, but \"" + folder.file("gone.wav") + "\" does not exist");
    EXPECT_EQ(problems[1].field, "timeline[0].file");
    EXPECT_NE(problems[1].text.find(" is a folder"), std::string::npos) << problems[1].text;
    EXPECT_EQ(problems[2].field, "oops");

    problems.clear();
    EXPECT_FALSE(readScene(folder.path(), problems).has_value());
    EXPECT_FALSE(readScene("/dev/zero", problems).has_value());
    ASSERT_EQ(problems.size(), 2U);
    EXPECT_NE(problems[0].text.find("is a folder"), std::string::npos);
    EXPECT_NE(problems[1].text.find("is no regular file"), std::string::npos);
}
