// The events of a scene: what travels, what is refused, and that the documentation says the same.
#include "support/Capture.h"
#include "support/EventText.h"
#include "support/TemporaryFolder.h"

#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

namespace Orvel::Test {

namespace {

using Bytes = std::vector<std::byte>;
using EventPointer = std::unique_ptr<Corvid::Event>;

EventPointer decoded(const Bytes& frame) {
    return EventPointer(Corvid::Event::decode(frame));
}

Bytes encoded(Corvid::Event& event) {
    Bytes frame;
    EXPECT_TRUE(event.encode(frame));
    return frame;
}

void setLength(Bytes& frame) {
    const auto length = static_cast<std::uint32_t>(frame.size() - 4);
    std::memcpy(frame.data(), &length, 4);
}

void setType(Bytes& frame, short type) {
    std::memcpy(frame.data() + 4, &type, 2);
}

/// Where the type bytes of a good frame's fields stand.
std::vector<std::size_t> fieldPositions(const Bytes& frame) {
    std::vector<std::size_t> positions;
    for (std::size_t at = 8; at < frame.size();) {
        positions.push_back(at);
        const std::size_t fixed[] = {0, 4, 4, 4, 8, 2, 1, 8};
        const auto type = std::to_integer<std::size_t>(frame[at]);
        std::uint64_t length = 0;
        if (type == 1 || type == 7) {
            std::memcpy(&length, frame.data() + at + 1, fixed[type]);
        }
        at += 1 + fixed[type] + length;
    }
    return positions;
}

struct Row {
    short type;
    std::string name;
    EventPointer event;
    std::string defaults; // the values of a new event
    std::string filled;   // those of `event`
    std::size_t bytes;    // of its frame
};

/// One of each, filled.
std::vector<Row> oneOfEach(const TemporaryFolder& folder) {
    auto transform = std::make_unique<TransformEvent>();
    transform->position = {1, 2, -3};
    transform->rotation = {0.5F, -0.5F, 0.25F, -1};
    auto create = std::make_unique<CreateEmitterEvent>();
    create->labels = {"front", "", "x y"};
    auto connection = std::make_unique<EmitterConnectionEvent>();
    connection->sourceId = -7;
    auto hull = std::make_unique<EmitterHullEvent>();
    hull->setHull(1, 2, 3, 4);
    auto param = std::make_unique<EmitterParamEvent>();
    param->setParam(false, 0.5F, 0.25F);
    auto sourceParam = std::make_unique<SourceParamEvent>();
    sourceParam->setParam(true, 2);
    auto data = std::make_unique<SourceDataEvent>();
    data->fileName = folder.file("bell.wav");
    std::ofstream(data->fileName) << "sound";
    EXPECT_TRUE(data->loadData());
    data->fileName = "a/bell.wav";
    auto duration = std::make_unique<SourceDurationEvent>();
    duration->duration = 1.5F;

    std::vector<Row> rows;
    rows.push_back({200, "CommandEvent", std::make_unique<CommandEvent>(), "", "", 14});
    rows.push_back(
        {201, "TransformEvent", std::move(transform), "0 0 0 0 0 0 1", "1 2 -3 0.5 -0.5 0.25 -1",
         49});
    rows.push_back(
        {202, "CreateEmitterEvent", std::move(create), "{}", R"({ "front", "", "x y" })", 42});
    rows.push_back({203, "EmitterConnectionEvent", std::move(connection), "0", "-7", 17});
    rows.push_back({204, "EmitterHullEvent", std::move(hull), "0 0 0 0", "1 2 3 4", 34});
    rows.push_back({205, "EmitterParamEvent", std::move(param), "1 0 1", "0.25 0.5 0", 26});
    rows.push_back({206, "SourceParamEvent", std::move(sourceParam), "1 0", "2 1", 21});
    rows.push_back({207, "SourceDataEvent", std::move(data), " 0 ", "a/bell.wav 5 sound", 52});
    rows.push_back({208, "SourceDurationEvent", std::move(duration), "0", "1.5", 19});
    return rows;
}

std::string protocolPage() {
    std::ifstream file(ORVEL_SOURCE_DIR "/docs/protocol.md");
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace

TEST(Events, TravelWholeAndAreRefusedWhenDamaged) {
    const LogCapture log;
    const TemporaryFolder folder;
    for (Row& row : oneOfEach(folder)) {
        SCOPED_TRACE(row.name);
        ASSERT_NE(Corvid::EventType::find(row.type), nullptr);
        EXPECT_EQ(Corvid::EventType::find(row.type)->name(), row.name);
        const EventPointer fresh(Corvid::EventType::find(row.type)->create());
        EXPECT_EQ(fresh->protocolTag, 0);
        EXPECT_EQ(values(*fresh), row.defaults);

        dynamic_cast<CommandEvent&>(*row.event).address(CmdStopEmitter, 40000);
        Bytes frame = encoded(*row.event);
        EXPECT_EQ(frame.size(), row.bytes);
        const EventPointer copy = decoded(frame);
        ASSERT_NE(copy, nullptr);
        const auto& header = dynamic_cast<const CommandEvent&>(*copy);
        EXPECT_EQ(header.command, 38);
        EXPECT_EQ(header.objectId, -25536);
        EXPECT_EQ(header.protocolTag, 3378);
        EXPECT_EQ(copy->type(), Corvid::EventType::find(row.type));
        EXPECT_EQ(values(*copy), row.filled);

        for (std::size_t size = 0; size < frame.size(); ++size) {
            Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(decoded(cut), nullptr) << size;
            if (size >= 4) {
                setLength(cut); // a frame that is whole, with an event that is not
                EXPECT_EQ(decoded(cut), nullptr) << size;
            }
        }
        for (const std::size_t at : fieldPositions(frame)) {
            for (unsigned type = 0; type < 256; ++type) {
                Bytes wrong = frame;
                wrong[at] = static_cast<std::byte>(type);
                EXPECT_EQ(decoded(wrong) == nullptr, wrong != frame) << at << ' ' << type;
            }
        }
        // Any damage gives an event or none, but nothing worse.
        for (std::size_t at = 4; at < frame.size(); ++at) {
            for (unsigned value = 0; value < 256; ++value) {
                Bytes wrong = frame;
                wrong[at] = static_cast<std::byte>(value);
                if (const EventPointer event = decoded(wrong)) {
                    EXPECT_EQ(encoded(*event), wrong);
                }
            }
        }
        // Every other type reads other fields.
        for (short type = 200; type <= 208; ++type) {
            setType(frame, type);
            EXPECT_EQ(decoded(frame) != nullptr, type == row.type) << type;
        }
    }
}

TEST(Events, ClaimNoMemoryForWhatIsNotThere) {
    CreateEmitterEvent create;
    create.labels = {"a", "b"};
    SourceDataEvent data;
    const struct {
        Bytes frame;
        std::size_t at; // of the field that claims
        std::size_t width;
    } rows[] = {{encoded(create), 15, 4}, {encoded(data), 20, 8}};
    for (const auto& row : rows) {
        for (const std::uint64_t claim :
             {std::uint64_t{3}, std::uint64_t{1} << 24U, std::uint64_t{0x7fffffff},
              std::uint64_t{0xffffffff}, std::uint64_t{1} << 63U, ~std::uint64_t{0}}) {
            Bytes frame = row.frame;
            std::memcpy(frame.data() + row.at, &claim, row.width);
            std::uint64_t written = 0;
            std::memcpy(&written, frame.data() + row.at, row.width);
            if (written != 0) { // cut to nothing, it claims nothing
                EXPECT_EQ(decoded(frame), nullptr) << claim;
            }
        }
    }
}

TEST(Events, AreWhatTheDocumentationSays) {
    const std::string page = protocolPage();
    CreateEmitterEvent create;
    create.labels = {"front", "é"};
    const std::string expected[] = {"1 2 -3 0 0 0 1", values(create), "1.5"};
    std::size_t found = 0;
    const std::string opening = "```hex\n";
    for (auto at = page.find(opening); at != std::string::npos; at = page.find(opening, at + 1)) {
        const auto begin = at + opening.size();
        std::istringstream lines(page.substr(begin, page.find("```", begin) - begin));
        Bytes frame;
        for (std::string line; std::getline(lines, line);) {
            line = line.substr(0, line.find("  ")); // what follows explains
            std::istringstream bytes(line);
            for (unsigned byte = 0; bytes >> std::hex >> byte;) {
                frame.push_back(static_cast<std::byte>(byte));
            }
        }
        const EventPointer event = decoded(frame);
        ASSERT_NE(event, nullptr) << lines.str();
        ASSERT_LT(found, std::size(expected));
        EXPECT_EQ(values(*event), expected[found]);
        EXPECT_EQ(encoded(*event), frame);
        ++found;
    }
    EXPECT_EQ(found, std::size(expected));

    // The table of types.
    int types = 0;
    for (short id = 200; id < 300; ++id) {
        if (const auto* type = Corvid::EventType::find(id)) {
            const std::string row = "\n| " + std::to_string(id) + " | " + type->name() + " | ";
            EXPECT_NE(page.find(row), std::string::npos) << row;
            ++types;
        }
    }
    EXPECT_EQ(types, 9);
}

TEST(SourceDataEvent, LoadsAWholeFileOrNothing) {
    const TemporaryFolder folder;
    std::ofstream(folder.file("full")) << "some bytes";
    std::ofstream(folder.file("empty"));
    std::ofstream(folder.file("closed")) << "secret";
    const auto line = [&folder](const char* text, const char* name, const char* rest) {
        return std::string(text) + " Orvel::Source data: >" + folder.file(name) + "<" + rest + "\n";
    };
    const struct {
        std::string fileName;
        unsigned long size;
        std::vector<std::string> lines;
    } rows[] = {
        {"", 0, {}},
        {folder.file("missing"), 0, {}},
        {folder.file("full"), 10, {line("LOG: Read local", "full", " (10 byte)")}},
        {folder.file("empty"), 0, {line("FATAL: Could not seek", "empty", "")}},
        {folder.path(), 0, {"FATAL: Could not seek Orvel::Source data: >" + folder.path() + "<\n"}},
        {"/dev/zero", 0, {"FATAL: Could not seek Orvel::Source data: >/dev/zero<\n"}},
    };
    for (const auto& row : rows) {
        SourceDataEvent event;
        event.fileName = folder.file("full");
        {
            const LogCapture quiet;
            ASSERT_TRUE(event.loadData()); // it held something before
        }
        const LogCapture log;
        event.fileName = row.fileName;
        EXPECT_EQ(event.loadData(), row.size != 0) << row.fileName;
        EXPECT_EQ(event.dataSize(), row.size) << row.fileName;
        EXPECT_EQ(event.data() != nullptr, row.size != 0) << row.fileName;
        EXPECT_EQ(log.lines(), row.lines) << row.fileName;
    }
}

TEST(SourceDataEvent, StoresItsBytesOrSaysWhyNot) {
    const TemporaryFolder folder;
    std::ofstream(folder.file("from")) << "some bytes";
    SourceDataEvent event;
    event.fileName = folder.file("from");
    LogCapture log;
    ASSERT_TRUE(event.loadData());
    log.take();
    std::ofstream(folder.file("old")) << "something longer than the new bytes";
    const std::string rest = "< (10 bytes)\n";
    const struct {
        std::string target;
        bool stored;
        std::string line; // up to the name
    } rows[] = {
        {folder.file("new"), true, "LOG: Wrote local Orvel::Source data: >"},
        {folder.file("old"), true, "LOG: Wrote local Orvel::Source data: >"},
        {folder.file("no such/new"), false, "FATAL: Could not write local Orvel::Source data: >"},
        {"/dev/full", false, "FATAL: Could not write local Orvel::Source data: >"},
        {"", false, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(event.storeData(row.target), row.stored) << row.target;
        EXPECT_EQ(
            log.take(), row.line.empty() ? std::vector<std::string>{}
                                         : std::vector<std::string>{row.line + row.target + rest});
        if (row.stored) {
            std::ifstream file(row.target);
            EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "some bytes");
        }
    }
    const SourceDataEvent empty;
    EXPECT_FALSE(empty.storeData(folder.file("none")));
    EXPECT_FALSE(std::ifstream(folder.file("none")).is_open());
    EXPECT_TRUE(log.take().empty());

    event.protocolTag = 7;
    event.objectId = 8;
    const SourceDataEvent copy(event); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(values(copy), event.fileName + " 0 ");
    EXPECT_EQ(copy.protocolTag, 7);
    SourceDataEvent assigned;
    assigned = event;
    EXPECT_EQ(values(assigned), values(event));
    EXPECT_NE(assigned.data(), event.data());
    EXPECT_EQ(assigned.objectId, 8);
    assigned = empty;
    EXPECT_EQ(values(assigned), " 0 ");
}

} // namespace Orvel::Test
