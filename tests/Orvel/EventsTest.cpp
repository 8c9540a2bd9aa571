// The events of a scene: encoding, refusals, and agreement with the documentation.
#include "support/Capture.h"
#include "support/EventText.h"
#include "support/TemporaryFolder.h"

#include <Orvel/detail/net/Changes.h>

#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <sys/stat.h>

namespace Orvel::Test {

namespace {

using Bytes = std::vector<std::byte>;
using Lines = std::vector<std::string>;
using EventPointer = std::unique_ptr<Corvid::Event>;

EventPointer decoded(const Bytes& frame) {
    return EventPointer(Corvid::Event::decode(frame));
}

/// The name of a command, such as "CmdEnable", extracted from this function's signature.
template <Command command>
std::string nameOf() {
    const std::string text = __PRETTY_FUNCTION__;
    const auto begin = text.find("Cmd");
    return text.substr(begin, text.find_first_of(";]", begin) - begin);
}

Bytes encoded(Corvid::Event& event) {
    Bytes frame;
    EXPECT_TRUE(event.encode(frame));
    return frame;
}

} // namespace

TEST(Events, TravelWholeAndAreRefusedWhenDamaged) {
    const LogCapture log;
    const TemporaryFolder folder;
    CommandEvent command;
    TransformEvent transform;
    transform.position = {1, 2, -3};
    transform.rotation = {0.5F, -0.5F, 0.25F, -1};
    CreateEmitterEvent create;
    create.labels = {"front", "", "x y"};
    EmitterConnectionEvent connection;
    connection.sourceId = -7;
    EmitterHullEvent hull;
    hull.setHull(1, 2, 3, 4);
    EmitterParamEvent param;
    param.setParam(false, 0.5F, 0.25F);
    SourceParamEvent sourceParam;
    sourceParam.setParam(true, 2);
    SourceDataEvent data;
    data.fileName = folder.file("bell.wav");
    std::ofstream(data.fileName) << "sound";
    ASSERT_TRUE(data.loadData());
    data.fileName = "a/bell.wav";
    SourceDurationEvent duration;
    duration.duration = 1.5F;
    const struct {
        CommandEvent& event;
        std::string defaults; // the values of a new event
        std::string filled;   // those of `event`
    } rows[] = {
        {command, "", ""},
        {transform, "0 0 0 0 0 0 1", "1 2 -3 0.5 -0.5 0.25 -1"},
        {create, "{}", R"({ "front", "", "x y" })"},
        {connection, "0", "-7"},
        {hull, "0 0 0 0", "1 2 3 4"},
        {param, "1 0 1", "0.25 0.5 0"},
        {sourceParam, "1 0", "2 1"},
        {data, " 0 ", "a/bell.wav 5 sound"},
        {duration, "0", "1.5"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.event.type()->name());
        EXPECT_EQ(values(*EventPointer(row.event.type()->create())), row.defaults);
        row.event.address(CmdStopEmitter, 40000);
        const Bytes frame = encoded(row.event);
        const EventPointer copy = decoded(frame);
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->type(), row.event.type());
        const auto& header = dynamic_cast<const CommandEvent&>(*copy);
        EXPECT_EQ(header.command, 38);
        EXPECT_EQ(header.objectId, -25536);
        EXPECT_EQ(header.protocolTag, 3378);
        EXPECT_EQ(values(*copy), row.filled);

        for (Bytes cut = frame; cut.size() > 4;) {
            cut.pop_back();
            EXPECT_EQ(decoded(cut), nullptr) << cut.size();
            const auto length = static_cast<std::uint32_t>(cut.size() - 4);
            std::memcpy(cut.data(), &length, 4); // a complete frame with a truncated event
            EXPECT_EQ(decoded(cut), nullptr) << cut.size();
        }
        // Any change of types or lengths gives another event or none.
        for (std::size_t at = 4; at < frame.size(); ++at) {
            for (unsigned value = 0; value < 256; ++value) {
                Bytes wrong = frame;
                wrong[at] = static_cast<std::byte>(value);
                if (const EventPointer event = decoded(wrong)) {
                    EXPECT_EQ(encoded(*event), wrong);
                }
            }
        }
    }
}

TEST(Events, CarryNoMoreLabelsThanTheLimit) {
    CreateEmitterEvent create;
    for (const std::size_t count : {65535U, 65536U}) {
        create.labels.assign(count, "");
        EXPECT_EQ(decoded(encoded(create)) != nullptr, count == 65535) << count;
    }
}

TEST(Events, SendALiteralAsText) {
    struct Labelled : CreateEmitterEvent {
        void addFields() override {
            CommandEvent::addFields();
            addField(1U);
            addField("front");
        }
    } event;
    EXPECT_EQ(values(*decoded(encoded(event))), R"({ "front" })");
}

TEST(Events, AreWhatTheDocumentationSays) {
    std::stringstream text;
    text << std::ifstream(ORVEL_SOURCE_DIR "/docs/protocol.md").rdbuf();
    const std::string page = text.str();
    CreateEmitterEvent create;
    create.labels = {"front", "é"};
    const std::vector<std::string> expected = {"1 2 -3 0 0 0 1", values(create), "1.5"};
    std::size_t found = 0;
    for (auto at = page.find("```hex"); at != std::string::npos; at = page.find("```hex", at + 1)) {
        std::istringstream lines(page.substr(at + 7, page.find("```", at + 7) - at - 7));
        Bytes frame;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream bytes(line.substr(0, line.find("  "))); // the rest is an explanation
            for (unsigned byte = 0; bytes >> std::hex >> byte;) {
                frame.push_back(static_cast<std::byte>(byte));
            }
        }
        const EventPointer event = decoded(frame);
        ASSERT_NE(event, nullptr) << lines.str();
        EXPECT_EQ(values(*event), expected.at(found++));
        EXPECT_EQ(encoded(*event), frame);
    }
    EXPECT_EQ(found, expected.size());

    const auto has = [&page](const std::string& line) {
        EXPECT_NE(page.find('\n' + line), std::string::npos) << line;
    };
#define ORVEL_HAS_EVENT(name, number) has("| " #number " | " #name " |");
    ORVEL_EVENTS(ORVEL_HAS_EVENT)
#undef ORVEL_HAS_EVENT
    // The replay is the paragraph that a line with its first command begins.
    auto at = page.find("\n`CmdResetBackend`");
    const auto end = page.find("\n\n", at);
    detail::forEachChange([&]<class Row>(const Row& row) {
        const std::string name = nameOf<Row::kCommand>();
        has("| " + std::to_string(Row::kCommand) + " | " + name + " | " + Row::Event::_type.name() +
            " |\n");
        EXPECT_EQ(concernsEmitter(Row::kCommand), (std::is_same_v<typename Row::Subject, Emitter>));
        if (row.replay == detail::Replay::Yes) {
            at = page.find('`' + name + '`', at);
            EXPECT_LT(at, end) << name << " is not told in this order";
        }
    });
}

TEST(SourceDataEvent, ReadsAndWritesWholeFilesOrSaysWhyNot) {
    const TemporaryFolder folder;
    std::ofstream(folder.file("full")) << "some bytes";
    std::ofstream(folder.file("old")) << "something longer than the new bytes";
    const std::ofstream made(folder.file("empty"));
    ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
    const std::string noWrite = "FATAL: Could not write local Orvel::Source data: >";
    const std::string noSeek = "FATAL: Could not seek Orvel::Source data: >";
    const struct {
        bool store;
        std::string fileName;
        std::string line; // empty: none
    } rows[] = {
        {false, folder.file("full"), "LOG: Read local Orvel::Source data: >"},
        {true, folder.file("old"), "LOG: Wrote local Orvel::Source data: >"},
        {true, folder.file("no such/new"), noWrite},
        {true, "/dev/full", noWrite},
        {false, folder.file("empty"), noSeek},
        {false, folder.path(), noSeek},
        {false, folder.file("pipe"), noSeek},
        {false, "/dev/zero", noSeek},
        {false, folder.file("missing"), ""},
        {true, folder.file("none"), ""},
    };
    SourceDataEvent event;
    for (const auto& row : rows) {
        LogCapture log;
        const bool succeeds = row.line.substr(0, 3) == "LOG";
        event.fileName = row.fileName;
        EXPECT_EQ(row.store ? event.storeData(row.fileName) : event.loadData(), succeeds);
        const char* rest = row.store ? "< (10 bytes)\n" : succeeds ? "< (10 byte)\n" : "<\n";
        EXPECT_EQ(log.lines(), row.line.empty() ? Lines() : Lines{row.line + row.fileName + rest});
        if (succeeds) {
            std::ifstream file(row.fileName);
            EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "some bytes");
        } else if (!row.store) {
            EXPECT_EQ(event.dataSize(), 0U) << "nothing is left of what it held";
        }
    }
    EXPECT_FALSE(std::ifstream(folder.file("none")).is_open());
}

} // namespace Orvel::Test
