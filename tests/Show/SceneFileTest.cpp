#include <Show/scene/JsonTree.h>
#include <Show/scene/SceneFile.h>

#include <nlohmann/json.hpp>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <support/TemporaryFolder.h>
#include <vector>

using namespace Show;
using nlohmann::json;

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

/// The parts of a scene with a source 1, emitters 11 and 12 and, in line 2, this timeline.
std::string timeline(const std::string& entries) {
    return R"("sources":[{"id":1,"tone":{}}],"emitters":[{"id":11,"source":1},{"id":12}],)"
           "\n\"timeline\":[" +
           entries + "]";
}

} // namespace

TEST(SceneFile, NamesLineFieldAndExpectation) {
    const std::pair<std::string, std::string> cases[] = {
        {"{\n\"orvel\":\n2, \"unheardOf\": 1}",
         ":2: orvel: expected 1, the version of the format, found 2"},
        {"// a\n{\"orvel\": 1,\n\"sources\": [", ":3:13: sources: expected \"]\" for the \"[\" in "
                                                 "line 3, column 12, found the end of the file"},
    };
    for (const auto& [text, problem] : cases) {
        EXPECT_EQ(problemsOf(text), std::vector{"s.json" + problem}) << text;
    }
}

TEST(SceneFile, ChecksThePartsAndTheTimelineInTheOrderOfTime) {
    const std::pair<std::string, std::string> cases[] = {
        {R"("listener":{"ypr":[0,0,0],"rotation":[0,0,0,1]})",
         R"(listener.ypr: expected only one of "rotation" and "ypr", found an array of 3)"},
        {R"("listener":{"postion":[0,0,0]})",
         R"(listener.postion: expected one of the keys "position", "rotation", "ypr", found "postion"; )"
         R"(did you mean "position"?)"},
        {R"("listener":{"rotation":[0,0,0,0.9989]})",
         "listener.rotation: expected a quaternion [x, y, z, w] of length 1, found one of length "
         "0.9989"},
        {R"("sources":[{"id":1,"tone":{}},{"id":1,"tone":{}}])",
         "sources[1].id: expected an id of its own, found 1, which line 1 has already"},
        {R"("emitters":[{"id":1,"source":7}])",
         R"(emitters[0].source: expected the id of one of "sources" or null, found 7)"},
        {R"("emitters":[{"id":32768},{"id":70000,"source":5e9},{"id":0.5}])",
         "emitters[2].id: expected a whole number from 1 to 32767, found 0.5"
         "emitters[0].id: expected a whole number from 1 to 32767, found 32768 and 2 more above "
         "it"},
        {R"("sources":[{"id":1,"tone":{},"state":"stop"}],
            "emitters":[{"id":1,"source":1,"state":"play"}])",
         "emitters[0].state: expected the state of sources[0], because what plays one source "
         "shares its state, found another"},
        {timeline(R"({"at":2,"emitter":5,"gain":0},{"at":1,"emitter":5,"create":true})"), ""},
        {timeline(R"({"at":1,"emitter":5,"gain":0},{"at":1,"emitter":5,"create":true})"),
         "timeline[0].emitter: expected the id of an emitter that exists at 1 s, found 5"},
        {timeline(R"({"at":0,"source":1,"destroy":true},{"at":1,"emitter":11,"connect":1})"),
         "timeline[1].connect: expected the id of a source that exists at 1 s, found 1"},
    };
    for (const auto& [scene, problem] : cases) {
        std::string found; // without files and lines
        for (const std::string& line : problemsOf("{\"orvel\":1," + scene + "}")) {
            found += line.substr(line.find(": ") + 2);
        }
        EXPECT_EQ(found, problem) << scene;
    }
}

TEST(SceneFile, ReportsEveryMistakeOnceAndInOrder) {
    const std::vector<std::string> problems = problemsOf(R"({"orvel":1,"timeline":[
        {"at":0,"emitter":1,"gain":1e400}],
        "sources":[{"id":2,"tone":{"hertz":1},"pitch":
            -1}, {"id":1,"tone":{"hertz":1e999,"seconds":-2e999}}],
        "emitters":[{"id":1,"gain":"loud","gain":1}]})");
    std::string fields;
    for (const std::string& problem : problems) {
        fields += problem.substr(0, problem.find(" expected")) + " ";
    }
    EXPECT_EQ(
        fields, "s.json:2:36: timeline[0].gain: s.json:3: sources[0].pitch: "
                "s.json:4:42: sources[1].tone.hertz: s.json:4:58: sources[1].tone.seconds: "
                "s.json:5: emitters[0].gain: s.json:5: emitters[0].gain: ");
    std::string many = "[0";
    for (std::size_t i = 0; i < kMaxSceneValues; ++i) {
        many += ",0";
    }
    EXPECT_NE(problemsOf(many + "]").at(0).find("no more than 2000000 values"), std::string::npos);
    const std::vector<std::string> most = problemsOf(
        R"({"orvel":1,"emitters":)" + json(std::vector<json>(1000, json::object())).dump() + "}");
    EXPECT_EQ(most.size(), kMaxProblems);
    EXPECT_EQ(most.back(), "s.json: too many mistakes; correct the ones above to see the others");
}

// The cases are rows [name, text, position, words, times], in whose text each character is a byte.
// Names starting with y_ must be accepted, with n_ be refused at that position with these words; i_
// may be either.
TEST(SceneFile, TakesJsonWithCommentsAndNothingElse) {
    for (const json& row : json::parse(std::ifstream(ORVEL_JSON_CASES))) {
        const auto name = row.at(0).get<std::string>();
        const auto encoded = row.at(1).get<std::string>();
        std::string text;
        for (int times = row.size() > 4 ? row[4].get<int>() : 1; times > 0; --times) {
            for (std::size_t i = 0; i < encoded.size(); ++i) {
                const auto c = static_cast<unsigned char>(encoded[i]);
                text += c < 0x80 ? encoded[i]
                                 : static_cast<char>((c & 3U) << 6U | (encoded.at(++i) & 0x3F));
            }
        }
        std::vector<Problem> problems;
        const bool accepted = parseJson(text, "f", problems).has_value() && problems.empty();
        EXPECT_TRUE(name[0] == 'i' || accepted == (name[0] == 'y')) << name;
        EXPECT_NE(accepted, !problems.empty()) << name;
        if (name[0] == 'n' && !accepted) {
            const std::string problem = problems[0].str();
            EXPECT_TRUE(problem.starts_with("f:" + row.at(2).get<std::string>() + ":")) << problem;
            EXPECT_NE(problem.find(row.at(3).get<std::string>()), std::string::npos) << problem;
            EXPECT_FALSE(problemsOf(text).empty()) << name;
        }
    }
}

TEST(SceneFile, AnyTruncationIsOneProblem) {
    const std::string text =
        "{\"orvel\":1," + timeline(R"({"at":1,"emitter":11,"gain":2.5e3})") + "}";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        EXPECT_EQ(problemsOf(text.substr(0, length)).size(), length < text.size() ? 1U : 0U)
            << length;
    }
}

TEST(SceneFile, ReadsValuesAndDefaults) {
    std::vector<Problem> problems;
    const std::optional<Scene> scene = parseScene(
        "\xEF\xBB\xBF" // a byte order mark, as some editors write it
        R"({"orvel":1.0, // a comment
            "$schema":"s", "listener":{"rotation":[0,0.7071,0,0.7071]},
            "sources":[{"id":3,"file":"../b/x.wav","channels":"keep","pitch":1e-300}],
            "emitters":[{"id":1,"source":null,"hull":{"minFront":2},"ypr":[90,45,0]}],
            "timeline":[{"at":2,"world":true,"enabled":false},
                        {"at":1,"emitter":1,"connect":null,"ypr":[0,0,90]},
                        {"at":1,"emitter":9,"create":true,"connect":3,"gain":0.5}]})",
        "/scenes/a/s.json", problems);
    ASSERT_TRUE(scene.has_value()) << problems.at(0).str();
    EXPECT_NEAR(std::hypot(scene->listenerRotation.y, scene->listenerRotation.w), 1.0F, 1e-7F);
    EXPECT_EQ(scene->sources[0].sound, Sound(SoundFile{"/scenes/b/x.wav", true}));
    EXPECT_TRUE(scene->emitters[0].hull.minFront == 2 && scene->emitters[0].hull.maxFront == 10);
    const Orvel::Vec3f ahead = scene->emitters[0].rotation.rotate({0, 0, -1}); // left and up
    EXPECT_TRUE(ahead.x < -0.7F && ahead.y > 0.7F && std::abs(ahead.z) < 1e-6F);
    EXPECT_GT(scene->timeline.at(0).rotation.value().rotate({0, 1, 0}).x, 0.999F); // to the right
    EXPECT_TRUE(scene->timeline.at(0).reconnect && !scene->timeline[0].connect);
    EXPECT_EQ(scene->timeline[1].newEmitter.value().gain, 0.5F);
}

TEST(SceneFile, LooksForFilesBesideTheScene) {
    const Orvel::Test::TemporaryFolder folder;
    std::ofstream(folder.file("there.wav")) << "x";
    std::ofstream(folder.file("s.json")) << R"({"orvel":1,"sources":[
        {"id":1,"file":"there.wav"},
        {"id":2,"file":"gone.wav"}],
        "timeline":[{"at":1,"source":1,"file":"."}]})";
    std::vector<Problem> problems;
    for (const std::string& path :
         {folder.file("s.json"), folder.path(), std::string("/dev/zero")}) {
        EXPECT_FALSE(readScene(path, problems).has_value());
    }
    ASSERT_EQ(problems.size(), 4U);
    EXPECT_TRUE(problems[0].str().ends_with("gone.wav\" does not exist")) << problems[0].str();
    EXPECT_EQ(problems[0].line, 3);
    EXPECT_EQ(problems[1].field, "timeline[0].file");
    EXPECT_NE(problems[2].text.find("is a folder"), std::string::npos);
    EXPECT_NE(problems[3].text.find("is not a regular file"), std::string::npos);
}
