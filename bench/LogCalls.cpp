// The cost of a log line that the level suppresses, against the same loop without it.
#include "Ratio.h"

#include <Orvel/Log.h>
#include <Orvel/detail/LogLine.h>

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    using OrvelBench::kNanoseconds;
    OrvelBench::Report report("Log lines kept back by the level", argc, argv);
    Orvel::Log& log = Orvel::Log::the();
    log.setLevel(Orvel::Log::Level::Notice);

    // If the line were formatted, the callback or its argument would show it.
    long evaluated = 0;
    log.setCallback([&](Orvel::Log::Level, std::string_view) { ++evaluated; });

    constexpr int kCalls = 1024;
    const auto empty = [] {
        for (int i = 0; i < kCalls; ++i) {
            benchmark::DoNotOptimize(i);
            benchmark::ClobberMemory();
        }
    };
    const auto library = [&] {
        for (int i = 0; i < kCalls; ++i) {
            benchmark::DoNotOptimize(i);
            ORVEL_LOG(Debug, "%d %ld\n", i, ++evaluated);
            benchmark::ClobberMemory();
        }
    };
    const auto host = [&] {
        for (int i = 0; i < kCalls; ++i) {
            benchmark::DoNotOptimize(i);
            log.write(
                {Orvel::Log::Level::Debug, "bench", __FILE__, __LINE__, __PRETTY_FUNCTION__},
                "%d\n", i);
            benchmark::ClobberMemory();
        }
    };
    const Aim aim{Aim::Of::Difference, 2.0};
    report.row("a line of the library", report.compare(kCalls, library, empty), kNanoseconds, aim);
    report.row("a host's own Log::write", report.compare(kCalls, host, empty), kNanoseconds);
    if (evaluated != 0) {
        OrvelBench::fail("lines above the level were evaluated or written");
    }
    return report.finish();
}
