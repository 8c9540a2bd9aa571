#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/BackendFactory.h>
#include <Orvel/LogBackend.h>
#include <Orvel/OALBackend.h>

#include <algorithm>
#include <gtest/gtest.h>

namespace Orvel::Test {

namespace {

Backend* makeNothing(World& /*world*/, const char* /*params*/) {
    return nullptr;
}

// As an application registers a kind of its own, before main().
const BackendType earlyType("an early kind", makeNothing);

std::string printed() {
    OutputCapture output(STDOUT_FILENO);
    BackendFactory::printTypes();
    return output.take();
}

} // namespace

TEST(BackendFactory, MakesAKindByItsNameOrReportsIt) {
    const BackendType noFunction("No function", nullptr);
    EXPECT_EQ(
        printed(), "TypeList: \nNo function\nan early kind\nclient\nlog\nopenal\nplay\n"
                   "silent\nweb\n");
    TidyWorld world;
    const struct {
        std::string name;
        const BackendType* type; // null: refused
    } rows[] = {
        {"log", &LogBackend::_type},
        {"openal", &OALBackend::_type},
        {"default", &OALBackend::_type},
        {"LOG", nullptr},
        {" log", nullptr},
        {"", nullptr},
        {"an early kind", nullptr},
        {"No function", nullptr},
    };
    for (const auto& row : rows) {
        const LogCapture log(Log::Level::Notice);
        Backend* backend = world.addBackend(row.name.c_str(), "");
        ASSERT_EQ(backend != nullptr, row.type != nullptr) << row.name;
        const Calls lines = log.lines();
        const std::string told = "NOTICE: Create new Orvel backend: " + row.name + '\n';
        if (backend != nullptr) {
            EXPECT_EQ(backend->type(), row.type);
            EXPECT_EQ(std::count(lines.begin(), lines.end(), told), 1) << row.name;
        } else {
            EXPECT_EQ(
                lines, (Calls{
                           "FATAL: Unknown Orvel backend " + row.name + "; can not create\n",
                           "WARNING: Could not create Orvel backend: " + row.name + '\n'}));
        }
    }
    EXPECT_EQ(world.backends().size(), 3U);
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
