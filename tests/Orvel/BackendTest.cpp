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

// Copying is reported as misuse; copies must do no harm.
TEST(Copies, LeaveTheOriginalsAlone) {
    TidyWorld world;
    const auto* player = new PlayBackend(world, "labels=front command=player");
    LogCapture log(Log::Level::Warning);
    {
        const World ofWorld(static_cast<const World&>(world));
        const BackendType ofType(LogBackend::_type);
        const PlayBackend ofPlayer(*player);
        EXPECT_TRUE(ofWorld.backends().empty() && ofPlayer.labels().empty());
    }
    EXPECT_EQ(log.take().size(), 3U);
    EXPECT_EQ(world.backends().size(), 1U) << "copies are in no list";
    EXPECT_NE(world.addBackend("log", ""), nullptr) << "the copy's end removed the original";
}

} // namespace Orvel::Test
