// Compiled together with the log, because the library's own logging macro is hidden.
#include "support/Capture.h"
#include "support/TemporaryFolder.h"

#include <Orvel/detail/LogLine.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <thread>

namespace Orvel::Test {

namespace {

using Lines = std::vector<std::string>;
using Level = Log::Level;

class Logging : public testing::Test {
protected:
    ~Logging() override { Log::the().setModuleFilter(nullptr); }
    static void write(const std::string& text, const Log::Site& site = kSite) {
        Log::the().write(site, "%s", text.c_str());
    }
    static constexpr Log::Site kSite{Level::Warning, "Orvel", "Orvel/World.cpp", 12, "void f()"};
    LogCapture log; // its destructor restores the log, except for the filter
};

} // namespace

TEST_F(Logging, WritesTheHeaderThatTheMaskAsksFor) {
    const std::pair<unsigned, std::string> rows[] = {
        {0, "m"},
        {Log::kHeaderBeginNewline, "\n m"},
        {Log::kHeaderLevel, "WARNING:  m"},
        {Log::kHeaderModule, "Orvel:  m"},
        {Log::kHeaderFile, "Orvel/World:  m"},
        {Log::kHeaderFile | Log::kHeaderLine, "Orvel/World:12:  m"},
        {Log::kHeaderFunction, "void f():  m"},
        {Log::kHeaderEndNewline, "\nm"},
        {Log::kHeaderLine | Log::kHeaderColour | Log::kHeaderTabs, " m"},
        {0x60FB, "\n\x1b[33mWARNING\t\x1b[0mOrvel\tOrvel/World:12\tvoid f()\t\nm"},
    };
    for (const auto& [mask, line] : rows) {
        Log::the().setHeader(mask);
        write("m");
        EXPECT_EQ(log.take(), Lines{"WARNING: " + line}) << std::hex << mask;
    }
    Log::the().setHeader(Log::kHeaderLevel | Log::kHeaderTime | Log::kHeaderModule);
    write("m");
    double seconds = -1;
    char text = 0;
    constexpr char format[] = "WARNING: WARNING: %lf: Orvel: %c";
    EXPECT_EQ(std::sscanf(log.take().at(0).c_str(), format, &seconds, &text), 2);
    EXPECT_TRUE(seconds > 0 && seconds < 120 && text == 'm') << seconds << text;
}

TEST_F(Logging, NamesTheFileWithoutItsExtensionAndTakesAnyText) {
    Log::the().setHeader(Log::kHeaderFile);
    const std::string text(5000, 'x');
    write(text, {Level::Log, "Orvel", "../../v1.2/World", 1, "f"});
    write("%s\n", {Level::Log, "Orvel", "World.test.cpp", 1, "f"});
    ORVEL_LOG(Log, "%s", "");
    const Lines expected{
        "LOG: v1.2/World:  " + text, "LOG: World.test:  %s\n", "LOG: tests/Orvel/LogTest:  "};
    EXPECT_EQ(log.take(), expected);
}

TEST_F(Logging, FiltersByLevelBeforeTheArgumentsAreEvaluated) {
    for (int level = -1; level <= 6; ++level) {
        Log::the().setLevel(static_cast<Level>(level));
        for (int line = 0; line < 6; ++line) {
            write("", {static_cast<Level>(line), "Orvel", "", 0, ""});
        }
        EXPECT_EQ(log.take().size(), std::clamp(level, 0, 5) + 1U) << "at level " << level;
        bool evaluated = false;
        ORVEL_LOG(Warning, "%d", evaluated = true);
        EXPECT_EQ(evaluated, level >= 2);
        EXPECT_EQ(log.take().size(), evaluated ? 1U : 0U);
    }
}

TEST_F(Logging, SurvivesFiltersAndCallbacksThatThrowOrLog) {
    OutputCapture errors(STDERR_FILENO);
    Lines lines;
    Log::the().setModuleFilter([](const char* module) {
        write("filter, ");
        return std::string(module) == "faulty" ? throw 1 : std::string(module) == "Orvel";
    });
    Log::the().setCallback([&lines](Level level, std::string_view text) {
        write("callback, ");
        lines.push_back(Log::levelName(level) + std::string(text));
        if (text == "thrown, ") {
            throw std::runtime_error("host");
        }
    });
    write("thrown, ");
    write("no line", {Level::Log, "other", "", 0, ""});
    write(" despite the fault", {Level::Log, "faulty", "", 0, ""});
    EXPECT_EQ(lines, (Lines{"WARNINGthrown, ", "LOG despite the fault"}));
    EXPECT_EQ(errors.take(), "filter, callback, thrown, filter, filter, callback, ");
}

TEST_F(Logging, GoesWhereTheHostSends) {
    const TemporaryFolder folder;
    std::ostringstream stream;
    OutputCapture errors(STDERR_FILENO);
    Log::the().setStream(&stream);
    write("stream");
    for (const char* text : {"file", ", appended"}) {
        Log::the().setCallback(nullptr);
        write("errors ");
        ASSERT_TRUE(Log::the().setFile(folder.file("log")));
        write(text);
    }
    EXPECT_FALSE(Log::the().setFile(folder.file("missing/log")));
    write(", still there");
    const std::ifstream file(folder.file("log"));
    EXPECT_EQ((std::stringstream() << file.rdbuf()).str(), "file, appended, still there");
    EXPECT_EQ(stream.str(), "stream");
    EXPECT_EQ(errors.take(), "errors errors ");
}

TEST_F(Logging, ThreadsNeverMixTheirLinesWhileTheHostRedirects) {
    std::atomic<bool> stop = false;
    std::set<std::string> kinds;
    const auto work = [&](const char* name) {
        while (!stop) {
            ORVEL_LOG(Warning, "%s alone\n", name);
            const std::scoped_lock inARow(Log::the());
            ORVEL_LOG(Warning, "%s first\n", name);
            ORVEL_LOG(Warning, "%s second\n", name);
        }
    };
    std::thread one(work, "a");
    std::thread other(work, "b");
    for (int i = 0; i < 200 || kinds.size() < 6; ++i) {
        // Each target is destroyed after its turn and must not be used any more.
        std::string text;
        Log::the().setCallback([&text](Level, std::string_view line) {
            text += line.substr(0, 1);
            std::this_thread::yield();
            text += line.substr(1);
        });
        std::this_thread::yield();
        Log::the().setCallback([](Level, std::string_view) {});
        std::istringstream words(text);
        for (std::string name, word, last; words >> name >> word; last = name + word) {
            kinds.insert(word == "second" ? last + name : name + word);
        }
    }
    stop = true;
    one.join();
    other.join();
    const std::set<std::string> whole{"aalone", "afirst", "afirsta", "balone", "bfirst", "bfirstb"};
    EXPECT_EQ(kinds, whole) << "a second line always follows its first";
}

} // namespace Orvel::Test
