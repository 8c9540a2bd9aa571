#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/SilentBackend.h>

#include <gtest/gtest.h>

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

TEST(Backend, TellsTheWorldOfADuration) {
    class Listener : public TidyWorld {
    public:
        void setSourceDuration(Source& source) override { heard.push_back(source.duration()); }
        std::vector<float> heard;
    } world;
    RecordingBackend backend(world);
    backend.setSourceDuration(*world.createSource(), 2.5F);
    EXPECT_EQ(world.heard, std::vector<float>{2.5F});
    EXPECT_EQ(backend.take(), Calls{"createSource 1"});
}

TEST(Backend, LeavesTheWorldWhenItIsDeleted) {
    TidyWorld world;
    auto* first = new RecordingBackend(world);
    auto* second = new RecordingBackend(world);
    delete first;
    EXPECT_EQ(world.backends(), std::list<Backend*>{second});
    world.deleteAllBackends();
    EXPECT_TRUE(world.backends().empty());
}

TEST(Backend, CopiesOnlyReport) {
    TidyWorld world;
    auto* original = new SilentBackend(world, "labels=front key=value");
    const LogCapture log;
    {
        const SilentBackend copy(*original);
        EXPECT_EQ(log.lines(), Calls{"FATAL: ERROR: In Backend copy constructor\n"});
        EXPECT_EQ(&copy.world(), &world);
        EXPECT_TRUE(copy.labels().empty());
        EXPECT_EQ(copy.params(), nullptr);
        EXPECT_EQ(world.backends().size(), 1U);
    }
    EXPECT_EQ(world.backends(), std::list<Backend*>{original});
}

} // namespace Orvel::Test
