// Compiled together with the log itself, because the library's own logging macro is hidden.
#include "support/Capture.h"

#include <Orvel/detail/LogLine.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <latch>
#include <set>
#include <sstream>
#include <thread>

namespace Orvel::Test {

namespace {

using Lines = std::vector<std::string>;
using Level = Log::Level;

constexpr Log::Site kSite{Level::Warning, "Orvel", "Orvel/World.cpp", 12, "void f()"};

class Logging : public testing::Test {
protected:
    ~Logging() override {
        Log::the().setModuleFilter(nullptr);
        Log::the().setStream(nullptr);
        Log::the().setHeader(header_);
        Log::the().setLevel(level_);
    }

private:
    unsigned header_ = Log::the().header();
    Level level_ = Log::the().level();
};

/// Gives way to other threads in the middle of each piece of text.
class YieldingBuffer : public std::stringbuf {
    std::streamsize xsputn(const char* text, std::streamsize length) override {
        const std::streamsize half = length / 2;
        std::stringbuf::xsputn(text, half);
        std::this_thread::yield();
        return half + std::stringbuf::xsputn(text + half, length - half);
    }
};

std::string contentOf(const std::string& file) {
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

} // namespace

TEST_F(Logging, WritesTheHeaderThatTheMaskAsksFor) {
    const struct {
        unsigned mask;
        const char* line;
    } rows[] = {
        {0, "m\n"},
        {Log::kHeaderBeginNewline, "\n m\n"},
        {Log::kHeaderLevel, "WARNING:  m\n"},
        {Log::kHeaderModule, "Orvel:  m\n"},
        {Log::kHeaderLevel | Log::kHeaderModule, "WARNING: Orvel:  m\n"},
        {Log::kHeaderFile, "Orvel/World:  m\n"},
        {Log::kHeaderLine, " m\n"},
        {Log::kHeaderFile | Log::kHeaderLine, "Orvel/World:12:  m\n"},
        {Log::kHeaderFunction, "void f():  m\n"},
        {Log::kHeaderEndNewline, "\nm\n"},
        {Log::kHeaderColour, " m\n"},
        {Log::kHeaderTabs, " m\n"},
        {Log::kHeaderLevel | Log::kHeaderColour, "\x1b[33mWARNING: \x1b[0m m\n"},
        {Log::kHeaderModule | Log::kHeaderTabs, "Orvel\t m\n"},
        {0x60FB, "\n\x1b[33mWARNING\t\x1b[0mOrvel\tOrvel/World:12\tvoid f()\t\nm\n"},
    };
    std::ostringstream stream;
    Log::the().setStream(&stream);
    for (const auto& row : rows) {
        stream.str("");
        Log::the().setHeader(row.mask);
        Log::the().write(kSite, "%c\n", 'm');
        EXPECT_EQ(stream.str(), row.line) << std::hex << row.mask;
    }
    // The time stands between the level and the module, and does not run backwards.
    double last = 0;
    Log::the().setHeader(Log::kHeaderLevel | Log::kHeaderTime | Log::kHeaderModule);
    for (int i = 0; i < 3; ++i) {
        stream.str("");
        Log::the().write(kSite, "m\n");
        const std::string line = stream.str();
        double seconds = -1;
        int length = 0;
        std::sscanf(line.c_str(), "WARNING: %lf: Orvel:  m%n", &seconds, &length);
        EXPECT_EQ(line.size(), static_cast<std::size_t>(length) + 1) << line;
        EXPECT_GE(seconds, last);
        last = seconds;
    }
    EXPECT_LT(last, 120);
}

TEST_F(Logging, NamesTheFileWithoutItsExtension) {
    const LogCapture log(Level::Debug, Log::kHeaderFile);
    for (const char* file : {"World.cpp", "v1.2/World", "a/World.test.cpp", ""}) {
        Log::the().write({Level::Log, "Orvel", file, 1, "f"}, "\n");
    }
    ORVEL_LOG(Log, "\n");
    EXPECT_EQ(
        log.lines(), (Lines{
                         "LOG: World:  \n", "LOG: v1.2/World:  \n", "LOG: a/World.test:  \n",
                         "LOG: :  \n", "LOG: tests/Orvel/LogTest:  \n"}));
}

TEST_F(Logging, FiltersByLevelBeforeTheArgumentsAreEvaluated) {
    int evaluated = 0;
    const auto argument = [&evaluated] { return ++evaluated; };
    LogCapture log(Level::Debug, Log::kHeaderLevel | Log::kHeaderColour);
    std::set<std::string> colours;
    const Lines all{"LOG", "FATAL", "WARNING", "NOTICE", "INFO", "DEBUG"};
    for (int level = -1; level <= 6; ++level) {
        Log::the().setLevel(static_cast<Level>(level));
        evaluated = 0;
        ORVEL_LOG(Log, "%d\n", argument());
        ORVEL_LOG(Fatal, "%d\n", argument());
        ORVEL_LOG(Warning, "%d\n", argument());
        ORVEL_LOG(Notice, "%d\n", argument());
        ORVEL_LOG(Info, "%d\n", argument());
        ORVEL_LOG(Debug, "%d\n", argument());
        const Lines lines = log.take();
        const auto expected = static_cast<std::size_t>(std::clamp(level, 0, 5) + 1);
        ASSERT_EQ(lines.size(), expected) << "at level " << level;
        EXPECT_EQ(evaluated, static_cast<int>(expected));
        for (std::size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i].find(all[i] + ": \x1b["), 0U) << lines[i];
            EXPECT_NE(lines[i].find(all[i] + ": \x1b[0m " + std::to_string(i + 1)), lines[i].npos);
            colours.insert(lines[i].substr(all[i].size() + 2, 5));
        }
    }
    EXPECT_EQ(colours.size(), 6U) << "each level has a colour of its own";
}

TEST_F(Logging, AsksTheModuleFilterEvenForLinesOfLevelZero) {
    LogCapture log;
    Log::the().setModuleFilter([](const char* module) {
        if (std::string(module) == "faulty") {
            throw 1;
        }
        return std::string(module) == "Orvel";
    });
    for (const char* module : {"Orvel", "other", "faulty"}) {
        Log::the().write({Level::Log, module, "", 0, ""}, "%s\n", module);
    }
    EXPECT_EQ(log.take(), (Lines{"LOG: Orvel\n", "LOG: faulty\n"})) << "better a line too many";
    Log::the().setModuleFilter(nullptr);
    Log::the().write({Level::Log, "other", "", 0, ""}, "m\n");
    EXPECT_EQ(log.take().size(), 1U);
}

TEST_F(Logging, FormatsLinesOfAnyLength) {
    const LogCapture log;
    const std::string longText(100000, 'x');
    Log::the().write(kSite, "%s", longText.c_str());
    Log::the().write(kSite, "%s", "100%s\n");
    Log::the().write(kSite, "%s", "");
    EXPECT_EQ(log.lines(), (Lines{"WARNING: " + longText, "WARNING: 100%s\n", "WARNING: "}));
}

TEST_F(Logging, GoesWhereTheHostSends) {
    std::string folder = testing::TempDir() + "orvel-log-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const std::string file = folder + "/log.txt";
    OutputCapture errors(STDERR_FILENO);
    std::ostringstream stream;
    Lines lines;
    Log::the().setHeader(0);
    int n = 0;
    const auto write = [&n] { Log::the().write(kSite, "%d\n", ++n); };
    write();
    Log::the().setStream(&stream);
    write();
    ASSERT_TRUE(Log::the().setFile(file));
    write();
    EXPECT_FALSE(Log::the().setFile(folder + "/missing/log.txt"));
    write(); // still to the file, and already there to be read
    EXPECT_EQ(contentOf(file), "3\n4\n");
    Log::the().setCallback([&](Level level, std::string_view text) {
        EXPECT_EQ(level, Level::Warning);
        lines.emplace_back(text);
    });
    write();
    ASSERT_TRUE(Log::the().setFile(file));
    write(); // appended
    Log::the().setCallback(nullptr);
    write();
    EXPECT_EQ(stream.str(), "2\n");
    EXPECT_EQ(contentOf(file), "3\n4\n6\n");
    EXPECT_EQ(lines, Lines{"5\n"});
    EXPECT_EQ(errors.take(), "1\n7\n");
    std::filesystem::remove_all(folder);
}

TEST_F(Logging, SurvivesCallbacksThatThrowOrLog) {
    OutputCapture errors(STDERR_FILENO);
    Log::the().setHeader(Log::kHeaderModule);
    Lines lines;
    Log::the().setCallback([&](Level /*level*/, std::string_view text) {
        Log::the().write(kSite, "from within\n");
        lines.emplace_back(text);
        if (lines.size() == 2) {
            throw std::runtime_error("host");
        }
    });
    for (int i = 1; i <= 3; ++i) {
        Log::the().write(kSite, "%d\n", i);
    }
    EXPECT_EQ(lines, (Lines{"Orvel:  1\n", "Orvel:  2\n", "Orvel:  3\n"}))
        << "untouched by the other";
    EXPECT_EQ(errors.take(), "from within\nfrom within\nOrvel:  2\nfrom within\n");
    Log::the().setModuleFilter([](const char*) {
        Log::the().write(kSite, "from the filter\n");
        return false;
    });
    Log::the().write(kSite, "4\n");
    EXPECT_EQ(lines.size(), 3U);
    EXPECT_EQ(errors.take(), "from the filter\n");
}

TEST_F(Logging, ThreadsNeverMixTheirLines) {
    YieldingBuffer buffer;
    std::ostream stream(&buffer);
    Log::the().setStream(&stream);
    Log::the().setHeader(Log::kHeaderLevel);
    std::vector<std::thread> threads;
    std::latch start(4); // or one might be done before the next begins
    Lines expected;
    for (const char* text : {"a", "bbbbbbbbbbbbbbbb", "cccccccccccccccccccccccccccccccc", "dd"}) {
        threads.emplace_back([text, &start] {
            start.arrive_and_wait();
            for (int i = 0; i < 500; ++i) {
                ORVEL_LOG(Warning, "%s alone\n", text);
                if (i % 50 == 0) { // several lines in a row
                    const std::lock_guard guard(Log::the());
                    ORVEL_LOG(Warning, "%s first\n", text);
                    ORVEL_LOG(Warning, "%s second\n", text);
                }
            }
        });
        const std::string line = "WARNING:  " + std::string(text);
        expected.insert(expected.end(), 500, line + " alone");
        expected.insert(expected.end(), 10, line + " first");
        expected.insert(expected.end(), 10, line + " second");
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream written(buffer.str());
    Lines lines;
    for (std::string line; std::getline(written, line);) {
        if (line.ends_with("second") && !lines.empty()) {
            EXPECT_EQ(lines.back(), line.substr(0, line.size() - 6) + "first");
        }
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_TRUE(lines == expected); // thousands of lines, too many to print
}

TEST_F(Logging, ThreadsMayLogWhileTheHostRedirects) {
    std::atomic<bool> stop = false;
    std::atomic<int> written = 0;
    std::thread logging([&] {
        while (!stop) {
            ORVEL_LOG(Warning, "m\n");
            ++written;
        }
    });
    Log::the().setHeader(0);
    for (int i = 0; i < 200 || written < 1000; ++i) {
        // Each is gone after its turn; nobody may write to it any more.
        Lines lines;
        std::ostringstream stream;
        Log::the().setCallback(
            [&lines](Level, std::string_view text) { lines.emplace_back(text); });
        Log::the().setLevel(i % 2 == 0 ? Level::Warning : Level::Notice);
        Log::the().setModuleFilter([&lines](const char*) { return lines.size() < 100; });
        std::this_thread::yield();
        Log::the().setModuleFilter(nullptr);
        Log::the().setStream(&stream);
        const std::lock_guard guard(Log::the());
        for (const std::string& line : lines) {
            EXPECT_EQ(line, "m\n");
        }
        Log::the().setCallback([](Level, std::string_view) {});
    }
    stop = true;
    logging.join();
}

} // namespace Orvel::Test
