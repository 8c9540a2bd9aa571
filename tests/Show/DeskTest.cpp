#include <Show/ShowFile.h>
#include <Show/desk/Activity.h>
#include <Show/desk/Desk.h>
#include <Show/scene/JsonText.h>

#include <Orvel/Emitter.h>

#include <nlohmann/json.hpp>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <support/RecordingBackend.h>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace Show;

namespace {

const std::string kText = R"({ "orvel": 1, // first
  "cues": [{ "name": "a", "at": 0 }, { "name": "b", "at": 4 }],
  "sources": [{ "id": 1, "tone": {} }],
  "emitters": [
    { "id": 11, /* "position": [9, 9, 9] */ "position": [1, 0, 0], "ypr": [90, 0, 0] }, // left
    { "id": 12,
      "source": 1 } ],
  "timeline": [
    { "at": 1, "emitter": 11, "position": [5, 0, 0], "gain": 0.5, "over": 4 },
    { "at": 2, "emitter": 13, "create": true } ] }
)";

/// A desk at a scene in a file of its own, which plays.
class DeskTest : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(folder_);
        std::ofstream(path_) << kText;
        file_ = ShowFile::load(path_);
        playback_.emplace(world_, file_);
        playback_->start();
        desk_.emplace(world_, *playback_, file_);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    int take(const std::string& request) { return desk_->take(request).status; }
    [[nodiscard]] std::string text(const std::string& name = "scene.json") const {
        std::ifstream in(folder_ + "/" + name);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    [[nodiscard]] float x(int id) { return world_.getEmitter(id)->position().x; }
    [[nodiscard]] float gain(int id) { return world_.getEmitter(id)->gain(); }
    [[nodiscard]] nlohmann::json state() const {
        std::string text;
        desk_->write(text);
        return nlohmann::json::parse(text);
    }

    const std::string folder_ = testing::TempDir() + "desk-" + std::to_string(getpid());
    const std::string path_ = folder_ + "/scene.json";
    Orvel::Test::TidyWorld world_;
    ShowFile file_;
    std::optional<Playback> playback_;
    std::optional<Desk> desk_;
};

} // namespace

TEST(JsonText, ValuesAreReplacedAndEverythingElseStays) {
    const std::string text = "// [\n{\"a\": {\"b\" : 1/*}*/ , \"c\":\"}\\\"\"},\n\"d\": [ {},\n"
                             "  {\n    \"e\": [1,\n 2] // last\n  } ] }";
    const auto edited = [&](const char* path, const char* key, const char* value) {
        JsonText json(text);
        return json.set(path, key, value) ? json.text() : std::string("no");
    };
    const auto with = [&](const std::string& old, const std::string& now) {
        std::string result = text;
        return result.replace(result.find(old), old.size(), now);
    };
    EXPECT_EQ(edited("a", "b", "[2]"), with("1/*", "[2]/*"));
    EXPECT_EQ(edited("a", "x", "2"), with("\\\"\"", "\\\"\", \"x\": 2"));
    EXPECT_EQ(edited("d[0]", "x", "2"), with("{},", "{\"x\": 2},"));
    EXPECT_EQ(edited("d[1]", "x", "2"), with(" 2]", " 2],\n    \"x\": 2"));
    EXPECT_EQ(edited("d[1]", "e", "0"), with("[1,\n 2]", "0"));
    for (const char* path : {"d[2]", "a.b", "x", "a[0]", "d"}) {
        EXPECT_EQ(edited(path, "x", "2"), "no") << path;
    }
}

TEST_F(DeskTest, ValuesHoldAgainstTheTimelineUntilTheyAreReleased) {
    playback_->advance(2.0);
    EXPECT_EQ(x(11), 2.0F);
    EXPECT_EQ(
        take(R"({"changes":[{"emitter":11,"position":[-7,0,0],"gain":2},
                                  {"emitter":13,"position":[3,0,0]}]})"),
        200);
    playback_->advance(3.0);
    EXPECT_EQ(x(11), -7.0F);
    EXPECT_EQ(gain(11), 2.0F);
    // From the beginning they hold as well, also that of an emitter that is created later.
    playback_->start();
    EXPECT_EQ(x(11), -7.0F);
    playback_->advance(3.0);
    EXPECT_EQ(x(13), 3.0F);
    EXPECT_EQ(take(R"({"changes":[{"emitter":11,"release":true}]})"), 200);
    EXPECT_EQ(x(11), 3.0F);
    EXPECT_EQ(gain(11), 0.75F);
    playback_->advance(4.0);
    EXPECT_EQ(x(11), 4.0F);
    EXPECT_EQ(take(R"({"releaseAll":true})"), 200);
    EXPECT_EQ(x(13), 0.0F);
    EXPECT_EQ(take(R"({"undo":true})"), 200);
    EXPECT_EQ(x(13), 3.0F);
}

TEST_F(DeskTest, MuteAndSoloSilenceWithoutLosingGains) {
    playback_->advance(1.0);
    EXPECT_EQ(take(R"({"changes":[{"emitter":12,"solo":true}]})"), 200);
    playback_->advance(3.0); // creates 13
    EXPECT_EQ(gain(11), 0.0F);
    EXPECT_EQ(gain(12), 1.0F);
    EXPECT_EQ(gain(13), 0.0F);
    EXPECT_EQ(take(R"({"changes":[{"emitter":12,"mute":true},{"emitter":11,"gain":3}]})"), 200);
    EXPECT_EQ(gain(12), 0.0F);
    EXPECT_EQ(take(R"({"changes":[{"emitter":12,"solo":false}]})"), 200);
    EXPECT_EQ(gain(11), 3.0F);
    EXPECT_EQ(gain(12), 0.0F);
    EXPECT_EQ(gain(13), 1.0F);
    EXPECT_EQ(state()["parts"][1]["level"], 1.0);
    EXPECT_EQ(take(R"({"releaseAll":true})"), 200);
    EXPECT_EQ(gain(11), 0.75F);
    EXPECT_EQ(gain(12), 1.0F);
}

TEST_F(DeskTest, AGestureIsOneStepAndABadRequestIsNone) {
    for (const char* way : {"2", "3", "4"}) {
        EXPECT_EQ(
            take(
                std::string(R"({"gesture":"a","changes":[{"emitter":12,"position":[)") + way +
                ",0,0]}]}"),
            200);
    }
    EXPECT_EQ(take(R"({"changes":[{"emitter":12,"gain":2,"state":"play"}]})"), 200);
    for (const auto& [request, status] : std::map<std::string, int>{
             {"", 400},
             {"[]", 400},
             {R"({"move":1})", 400},
             {R"({"changes":{}})", 400},
             {R"({"changes":[{"position":[0,0,0]}]})", 400},
             {R"({"changes":[{"emitter":12,"position":[0,0]}]})", 400},
             {R"({"changes":[{"emitter":12,"position":[0,0,1e39]}]})", 400},
             {R"({"changes":[{"emitter":12,"rotation":[0,0,0,0]}]})", 400},
             {R"({"changes":[{"emitter":12,"gain":17}]})", 400},
             {R"({"changes":[{"emitter":4294967308,"gain":1}]})", 400},
             {R"({"changes":[{"listener":true,"gain":1}]})", 400},
             {R"({"changes":[{"emitter":12,"gain":1},{"emitter":99,"gain":1}]})", 404},
             {R"({"redo":true})", 409},
             {R"({"cue":"c"})", 404},
             {R"({"seek":-1})", 400},
             {R"({"go":true,"seek":1})", 400},
             {R"({"save":"a/b.json"})", 409},
             {R"({"save":".a.json"})", 409},
             {R"({"save":"b.txt"})", 409}}) {
        EXPECT_EQ(take(request), status) << request;
    }
    EXPECT_EQ(gain(12), 2.0F);
    EXPECT_EQ(state()["undo"], 2);
    EXPECT_EQ(take(R"({"undo":true})"), 200);
    EXPECT_EQ(world_.getEmitter(12)->state(), Orvel::WorldPart::STOP);
    EXPECT_EQ(x(12), 4.0F);
    EXPECT_EQ(take(R"({"undo":true})"), 200);
    EXPECT_EQ(x(12), 0.0F);
    EXPECT_EQ(take(R"({"undo":true})"), 409);
    EXPECT_EQ(take(R"({"redo":true})"), 200);
    EXPECT_EQ(x(12), 4.0F);
}

TEST_F(DeskTest, JumpsWaitForThePlaybackToAdvance) {
    playback_->advance(0.5);
    EXPECT_EQ(take(R"({"seek":3})"), 200);
    EXPECT_EQ(x(11), 1.0F) << "back ends may be at work on the emitters now";
    EXPECT_EQ(playback_->nextStep(), 0.5);
    playback_->advance(0.5);
    EXPECT_EQ(x(11), 3.0F);
    const auto stateAfter = [&](const char* request, double now) {
        EXPECT_EQ(take(request), 200) << request;
        playback_->advance(now);
        const nlohmann::json all = state();
        return all["state"].get<std::string>() + ' ' + all["cue"].get<std::string>() + ' ' +
               all["time"].dump() + ' ' + all["next"].dump() + ' ' + all["canGo"].dump();
    };
    EXPECT_EQ(stateAfter(R"({"pause":true})", 1.0), "paused a 3 \"b\" true");
    EXPECT_EQ(stateAfter(R"({"go":true})", 2.0), "playing b 4 null false");
    EXPECT_EQ(take(R"({"go":true})"), 409);
    EXPECT_EQ(stateAfter(R"({"seek":1e9})", 3.0), "over b 5 null false");
    EXPECT_EQ(stateAfter(R"({"cue":"a"})", 4.0), "playing a 0 \"b\" true");
    while (take(R"({"pause":true})") == 200) { // nothing advances
    }
    EXPECT_EQ(take(R"({"pause":true})"), 409);
    EXPECT_EQ(take(R"({"changes":[{"emitter":12,"gain":2}]})"), 200);
}

TEST_F(DeskTest, SavingChangesOnlyWhatWasSetByHand) {
    playback_->advance(2.0);
    EXPECT_EQ(
        take(R"({"changes":[
        {"listener":true,"position":[0,1.5,0]}, {"emitter":12,"gain":0.5,"mute":true},
        {"emitter":11,"position":[-1,0,2],"rotation":[0,0,0,1]},
        {"emitter":13,"position":[0,0,4]}]})"),
        200);
    EXPECT_TRUE(state()["unsaved"]);
    EXPECT_EQ(take(R"({"save":""})"), 200);
    EXPECT_FALSE(state()["unsaved"]);
    std::string expected = kText;
    for (const auto& [old, now] : std::vector<std::pair<std::string, std::string>>{
             {"\"position\": [1, 0, 0], \"ypr\": [90, 0, 0]",
              "\"position\": [-1, 0, 2], \"rotation\": [0, 0, 0, 1]"},
             {"\"source\": 1 }", "\"source\": 1,\n      \"gain\": 0.5 }"},
             {"\"create\": true }", "\"create\": true, \"position\": [0, 0, 4] }"},
             {" ] }\n", " ],\n  \"listener\": {\"position\": [0, 1.5, 0]} }\n"}}) {
        expected.replace(expected.rfind(old), old.size(), now);
    }
    EXPECT_EQ(text(), expected);
    EXPECT_EQ(state()["parts"].size(), 4U); // they still hold
    // A file that someone else has changed is kept, and so is every other one.
    std::ofstream(path_, std::ios::app) << "// by another editor\n";
    EXPECT_EQ(take(R"({"save":""})"), 409);
    EXPECT_EQ(take(R"({"save":"other.json"})"), 200);
    EXPECT_EQ(text("other.json"), expected);
    EXPECT_EQ(take(R"({"save":"other.json"})"), 409);
    EXPECT_EQ(text(), expected + "// by another editor\n");
}

TEST(Activity, ShowsWhatSoundsAndMovesInEachPartOfTheTime) {
    std::istringstream in(R"({ "orvel": 1, "duration": 4,
      "sources": [{ "id": 1, "tone": { "seconds": 1.0 } }, { "id": 2, "tone": { "seconds": 1.0 } },
        { "id": 3, "tone": { "seconds": 1.0 } }],
      "emitters": [{ "id": 1, "source": 1, "state": "play" }, { "id": 2, "source": 2 },
        { "id": 3, "source": 3, "gain": 0, "state": "play" }],
      "timeline": [{ "at": 1, "emitter": 1, "position": [5, 0, 0], "over": 1 },
        { "at": 3.001, "emitter": 2, "state": "play" }, { "at": 3.002, "emitter": 2, "state": "stop" }] })");
    const ShowFile file = ShowFile::readScene(in, "a");
    ASSERT_TRUE(file.isGood());
    Activity activity(*file.playable(), 4.0);
    while (activity.advance()) {
    }
    std::string text;
    activity.write(text);
    const nlohmann::json picture = nlohmann::json::parse(text);
    const auto at = [&](std::size_t column) {
        return std::pair(
            picture["sounding"].at(column).get<int>(), picture["changes"].at(column).get<int>());
    };
    using Column = std::pair<int, int>;
    EXPECT_EQ(picture["sounding"].size(), Activity::kColumns);
    EXPECT_EQ(at(0), Column(1, 0)) << "the scene begins";
    EXPECT_EQ(at(50), Column(1, 0)) << "a sound plays";
    EXPECT_EQ(at(150), Column(0, 1)) << "it has ended, and its emitter moves";
    EXPECT_EQ(at(250), Column(0, 0));
    EXPECT_EQ(at(300), Column(1, 2)) << "a sound shorter than the column";
    EXPECT_EQ(at(301), Column(0, 0));
}
