#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/LogBackend.h>
#include <Orvel/PlayBackend.h>

#include <gtest/gtest.h>

namespace Orvel::Test {

TEST(Backend, ServesEmittersThatShareALabel) {
    const struct {
        const char* params;
        Calls labels, emitters;
        bool served;
    } rows[] = {
        {nullptr, {}, {"back"}, true},
        {"labels=' \t, , '", {}, {"back"}, true},
        {"labels=front", {"front"}, {}, true},
        {"labels=front", {"front"}, {"Front", "fron", "frontal", ""}, false},
        {"labels=a", {"a"}, {std::string("a\0b", 3)}, false},
        {"labels=\"front, a b \t,,\\nfront\"", {"front", "a b", "front"}, {"x", "a b"}, true},
        {"labels=a labels=b,", {"b"}, {"a"}, false},
    };
    for (const auto& row : rows) {
        TidyWorld world;
        const auto* backend = new RecordingBackend(world, row.params);
        EXPECT_EQ(backend->labels(), row.labels) << &row - rows;
        EXPECT_EQ(backend->hasSameLabel(*world.createEmitter(row.emitters)), row.served)
            << &row - rows;
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
}

// Copying any of these is a mistake that is reported; the copies must do no harm.
TEST(Copies, OnlyReport) {
    class Part : public WorldPart {
    public:
        using WorldPart::WorldPart;
        void setState(State state) override { changeState(state); }
    };
    TidyWorld world;
    const auto* player = new PlayBackend(world, "labels=front command=player");
    const auto* logger = new LogBackend(world, nullptr);
    LogCapture log;
    {
        World ofWorld(static_cast<const World&>(world));
        EXPECT_TRUE(ofWorld.backends().empty());
        const Part part(world, 9);
        const Part ofPart(part);
        EXPECT_EQ(ofPart.id(), -1);
        const BackendType ofType(LogBackend::_type);
        EXPECT_EQ(ofType.createBackend(world, ""), nullptr);
        const PlayBackend ofPlayer(*player);
        EXPECT_TRUE(ofPlayer.labels().empty());
        const LogBackend ofLogger(*logger);
    }
    const Calls expected{
        "WARNING: In World copy constructor\n",
        "FATAL: Runing WorldPart copy constructor\n",
        "FATAL: In BackendType copy constructor\n",
        "FATAL: ERROR: In Backend copy constructor\n",
        "FATAL: ERROR: In Backend copy constructor\n",
        "LOG: LogBackend: copy backend\n",
        "LOG: LogBackend: delete backend\n"};
    EXPECT_EQ(log.take(), expected);
    EXPECT_EQ(world.backends().size(), 2U) << "copies are in no list";
    EXPECT_NE(world.addBackend("log", ""), nullptr) << "the copy's end removed the original";
}

} // namespace Orvel::Test
