#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/LogBackend.h>
#include <Orvel/PlayBackend.h>
#include <Orvel/SilentBackend.h>

#include <gtest/gtest.h>
#include <memory>

namespace Orvel::Test {

TEST(Backend, SplitsItsLabels) {
    const struct {
        const char* params;
        Calls labels;
    } rows[] = {
        {nullptr, {}},
        {"", {}},
        {"labels=", {}},
        {"label=front", {}},
        {"labels=\"front, back\"", {"front", "back"}},
        {"labels=\" front \"", {"front"}},
        {"labels='a b'", {"a b"}},
        {"labels=,", {}},
        {"labels=x,", {"x"}},
        {"labels=', a ,, b'", {"a", "b"}},
        {"labels=\"\\t\\r\\na\\n ,\\t\"", {"a"}},
        {"labels=b,a,b", {"b", "a", "b"}},
        {"labels=a labels=b", {"b"}},
    };
    for (const auto& row : rows) {
        TidyWorld world;
        EXPECT_EQ((new RecordingBackend(world, row.params))->labels(), row.labels)
            << (row.params == nullptr ? "null" : row.params);
    }
}

TEST(Backend, ServesEmittersThatShareALabel) {
    const struct {
        const char* params;
        Calls labels;
        bool served;
    } rows[] = {
        {"", {}, true},
        {"", {"back"}, true},
        {"labels=front", {}, true},
        {"labels=front", {"back"}, false},
        {"labels=front", {"back", "front"}, true},
        {"labels=left,front", {"front"}, true},
        {"labels=front", {"Front"}, false},
        {"labels=front", {"fron"}, false},
        {"labels=front", {"frontal"}, false},
        {"labels=front", {""}, false},
        {"labels=a", {std::string("a\0b", 3)}, false},
    };
    for (const auto& row : rows) {
        TidyWorld world;
        EXPECT_EQ(
            (new RecordingBackend(world, row.params))
                ->hasSameLabel(*world.createEmitter(row.labels)),
            row.served)
            << row.params << " and " << testing::PrintToString(row.labels);
    }
}

TEST(Backend, IsBuiltEvenWithMalformedParameters) {
    TidyWorld world;
    LogCapture log;
    OutputCapture errors(STDERR_FILENO);
    auto* backend = new RecordingBackend(world, "labels=front command=\"player");
    EXPECT_EQ(errors.take(), "ERROR: Backend: Cannot parse parameters\n");
    EXPECT_EQ(
        log.take(),
        Calls{"WARNING: Parameters of a back end: column 22: the quote \" is never closed\n"});
    EXPECT_EQ(backend->labels(), Calls{"front"}) << "what stood before the fault counts";
    EXPECT_EQ(world.backends().back(), backend);
    EXPECT_EQ(backend->params()->getParam("command", nullptr), nullptr);
    EXPECT_TRUE(backend->enabled());
}

// Copying any of these is a mistake that is reported; the copies must do no harm.
TEST(Copies, OnlyReport) {
    class Part : public WorldPart {
    public:
        using WorldPart::WorldPart;
        void setState(State state) override { changeState(state); }
    };
    TidyWorld world;
    Source* source = world.createSource();
    source->setDataFromURL("http://host/a.wav");
    source->setState(WorldPart::PLAY);
    world.setEnabled(false);
    const auto* player = new PlayBackend(world, "labels=front command=player");
    const auto* logger = new LogBackend(world, nullptr);
    const BackendType kind("a kind", SilentBackend::createMethod);
    Part part(world, 9);
    part.setState(WorldPart::PLAY);
    part.setState(WorldPart::PAUSE);
    LogCapture log;
    {
        World copy(static_cast<const World&>(world));
        EXPECT_EQ(log.take(), Calls{"WARNING: In World copy constructor\n"});
        EXPECT_TRUE(copy.enabled() && copy.sources().empty() && copy.backends().empty());
        const std::unique_ptr<Source> first(copy.createSource());
        EXPECT_EQ(first->id(), 1);
    }
    {
        const Part copy(part);
        EXPECT_EQ(log.take(), Calls{"FATAL: Runing WorldPart copy constructor\n"});
        EXPECT_TRUE(&copy.world() == &world && copy.id() == -1);
        EXPECT_TRUE(copy.state() == WorldPart::NONE && copy.previousState() == WorldPart::NONE);
    }
    {
        const BackendType copy(kind);
        EXPECT_EQ(log.take(), Calls{"FATAL: In BackendType copy constructor\n"});
        EXPECT_TRUE(copy.name().empty() && copy.createBackend(world, "") == nullptr);
    }
    EXPECT_NE(world.addBackend("a kind", ""), nullptr) << "the copy's end removed the original";
    log.take();
    {
        PlayBackend copy(*player);
        EXPECT_EQ(log.take(), Calls{"FATAL: ERROR: In Backend copy constructor\n"});
        EXPECT_TRUE(&copy.world() == &world && copy.labels().empty() && !copy.params());
        const std::string printed = [&] {
            OutputCapture output(STDOUT_FILENO);
            copy.setSourceState(*source);
            return output.take();
        }();
        EXPECT_EQ(printed, "systemCall:  http://host/a.wav &\n");
    }
    { const LogBackend copy(*logger); }
    EXPECT_EQ(
        log.take(), (Calls{
                        "FATAL: ERROR: In Backend copy constructor\n",
                        "LOG: LogBackend: copy backend\n", "LOG: LogBackend: delete backend\n"}));
    EXPECT_EQ(world.backends().size(), 3U) << "copies are in no list";
}

} // namespace Orvel::Test
