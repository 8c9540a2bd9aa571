#include "support/Capture.h"
#include "support/Loopback.h" // for back ends that look for others
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

Backend* makeRecorder(World& world, const char* params) {
    return new RecordingBackend(world, params);
}

// As an application registers a kind of its own, before main().
const BackendType earlyType("an early kind", makeRecorder);

std::string printed() {
    OutputCapture output(STDOUT_FILENO);
    BackendFactory::printTypes();
    return output.take();
}

} // namespace

TEST(BackendFactory, ListsItsKindsSorted) {
    Calls names = BackendFactory::names();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    for (const char* name : {"client", "log", "openal", "play", "silent", "an early kind"}) {
        EXPECT_EQ(std::count(names.begin(), names.end(), name), 1) << name;
    }
    const BackendType capital("Zzz", makeNothing);
    names.insert(names.begin(), "Zzz"); // capitals come before all others
    std::string expected = "TypeList: \n";
    for (const std::string& name : names) {
        expected += name + '\n';
    }
    EXPECT_EQ(printed(), expected);
}

TEST(BackendFactory, MakesAKindByItsNameOrReportsIt) {
    const BackendType nothing("nothing", makeNothing);
    const BackendType noFunction("no function", nullptr);
    TidyWorld world;
    const struct {
        const char* name;
        const BackendType* type; // null: refused
    } rows[] = {
        {"log", &LogBackend::_type},
        {"openal", &OALBackend::_type},
        {"default", &OALBackend::_type},
        {"Default", nullptr},
        {"LOG", nullptr},
        {" log", nullptr},
        {"", nullptr},
        {"nosuch", nullptr},
        {"nothing", nullptr},
        {"no function", nullptr},
    };
    for (const auto& row : rows) {
        const LogCapture log(Log::Level::Notice);
        const std::size_t before = world.backends().size();
        Backend* backend = world.addBackend(row.name, "");
        const std::string name = row.name;
        if (row.type != nullptr) {
            ASSERT_NE(backend, nullptr) << name;
            EXPECT_EQ(backend->type(), row.type) << name;
            EXPECT_EQ(world.backends().back(), backend);
            const Calls lines = log.lines();
            const std::string told = "NOTICE: Create new Orvel backend: " + name + '\n';
            EXPECT_EQ(std::count(lines.begin(), lines.end(), told), 1) << name;
        } else {
            EXPECT_EQ(backend, nullptr) << name;
            EXPECT_EQ(world.backends().size(), before);
            EXPECT_EQ(
                log.lines(), (Calls{
                                 "FATAL: Unknown Orvel backend " + name + "; can not create\n",
                                 "WARNING: Could not create Orvel backend: " + name + '\n'}));
        }
    }
}

TEST(BackendFactory, KeepsTheFirstOfTwoKindsAndRemovesByName) {
    TidyWorld world;
    LogCapture log(Log::Level::Warning);
    {
        const BackendType second("log", makeRecorder);
        EXPECT_EQ(log.take(), Calls{"WARNING: There is already a backend log, skip reg.\n"});
        EXPECT_EQ(world.addBackend("log", "")->type(), &LogBackend::_type);
        log.take();
    }
    // The second took the first one's entry along.
    EXPECT_EQ(world.addBackend("log", ""), nullptr);
    BackendFactory::addBackendType(nullptr);
    BackendFactory::addBackendType(&LogBackend::_type);
    EXPECT_NE(world.addBackend("log", ""), nullptr);
}

TEST(BackendFactory, IsEmptyWithoutKindsAndFillsAgain) {
    TidyWorld world;
    std::vector<BackendType*> types;
    LogCapture log(Log::Level::Fatal);
    for (const std::string& name : BackendFactory::names()) {
        if (Backend* backend = world.addBackend(name.c_str(), "");
            backend != nullptr && backend->type() != nullptr) {
            types.push_back(backend->type());
        }
        const BackendType second(name, makeNothing); // its end removes the name
    }
    EXPECT_EQ(printed(), "TypeList: \n");
    log.take();
    EXPECT_EQ(world.addBackend("default", ""), nullptr);
    EXPECT_EQ(log.take(), Calls{"FATAL: Unknown Orvel backend default; can not create\n"});
    { const BackendType removedTwice("log", nullptr); }
    for (BackendType* type : types) {
        BackendFactory::addBackendType(type);
    }
    EXPECT_NE(world.addBackend("log", ""), nullptr);
}

} // namespace Orvel::Test
