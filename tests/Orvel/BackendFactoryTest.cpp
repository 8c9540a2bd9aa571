#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/BackendFactory.h>
#include <Orvel/LogBackend.h>
#include <Orvel/OALBackend.h>

#include <gtest/gtest.h>

namespace Orvel::Test {

namespace {

Backend* makeNothing(World& /*world*/, const char* /*params*/) {
    return nullptr;
}

// An application's own kind, registered before main().
const BackendType earlyType("an early kind", makeNothing);

} // namespace

TEST(BackendFactory, MakesAKindByItsNameOrReportsIt) {
    const BackendType noFunction("No function", nullptr);
    TidyWorld world;
    const std::pair<std::string, const BackendType*> known[] = {
        {"log", &LogBackend::_type},
        {"openal", &OALBackend::_type},
        {"default", &OALBackend::_type}};
    for (const auto& [name, type] : known) {
        EXPECT_EQ(world.addBackend(name.c_str(), "")->type(), type);
    }
    for (const std::string name : {"LOG", " log", "", "an early kind", "No function"}) {
        const LogCapture log(Log::Level::Notice);
        EXPECT_EQ(world.addBackend(name.c_str(), ""), nullptr);
        EXPECT_EQ(
            log.lines(), (Calls{
                             "FATAL: Unknown Orvel backend " + name + "; can not create\n",
                             "WARNING: Could not create Orvel backend: " + name + '\n'}));
    }
    const LogCapture log(Log::Level::Notice);
    world.addBackend("silent", "");
    EXPECT_EQ(log.lines().at(0), "NOTICE: Create new Orvel backend: silent\n");
    EXPECT_EQ(world.backends().size(), 4U);
}

TEST(BackendFactory, KeepsTheFirstOfTwoKindsAndRemovesByName) {
    TidyWorld world;
    LogCapture log(Log::Level::Warning);
    {
        const BackendType second("log", makeNothing);
        EXPECT_EQ(log.take(), Calls{"WARNING: There is already a backend log, skip reg.\n"});
        EXPECT_NE(world.addBackend("log", ""), nullptr);
    }
    EXPECT_EQ(world.addBackend("log", ""), nullptr) << "the second took the first's entry along";
    BackendFactory::addBackendType(nullptr);
    BackendFactory::addBackendType(&LogBackend::_type);
    EXPECT_NE(world.addBackend("log", ""), nullptr);
}

} // namespace Orvel::Test
