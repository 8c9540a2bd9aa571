#include <Orvel/detail/voices/DeviceThread.h>

#include <Orvel/detail/voices/ClockLine.h>
#include <Orvel/detail/voices/StreamReader.h>

#include <algorithm>
#include <utility>

namespace Orvel::detail {

namespace {

using Clock = std::chrono::steady_clock;

/// The time between two steps of the engine: well below a device's period.
constexpr std::chrono::milliseconds kTick{5};
constexpr std::chrono::milliseconds kRetry{500};
/// A device that has mixed nothing for so long is lost: not all drivers of OpenAL notice the end of
/// their server.
constexpr std::chrono::milliseconds kMaxStandstill{700};
/// A sound server that has been idle may take longer to begin.
constexpr std::chrono::seconds kMaxBeginning{3};
/// The longest time for which a reading of the device's position is used.
constexpr std::chrono::milliseconds kMaxReading{1};
/// Frames per second before there is a device.
constexpr unsigned kSilentRate = 44100;

/// The thread's own state.
class Session {
public:
    Session(std::shared_ptr<SharedEngine> engine, DeviceThread::Settings settings)
        : shared_(std::move(engine)), settings_(std::move(settings)) {}

    void run(Worker::Signal& signal) {
        do {
            if (output_ == nullptr && Clock::now() >= retry_) {
                open();
            } else if (output_ != nullptr && (!output_->connected() || standsStill())) {
                close("The sound device is lost; it is opened again when it returns");
            }
            const Vessa::Lock lock(shared_->mutex);
            const VoiceOutput::Use use(output_.get());
            shared_->engine.step(now(), output_ == nullptr ? 0 : output_->period());
            readClock();
        } while (signal.wait(kTick));
        close(nullptr);
    }

private:
    /// The next frame. Goes on from one device to the next.
    std::int64_t now() {
        const std::int64_t frame = output_ != nullptr ? base_ + output_->clock()
                                                      : base_ + framesSince(since_, silentRate_);
        if (frame > latest_) {
            latest_ = frame;
            moved_ = Clock::now();
        }
        return latest_;
    }
    /// Whether the device has stopped to mix.
    [[nodiscard]] bool standsStill() const {
        const std::chrono::duration<double> periods(
            8.0 * static_cast<double>(output_->period()) / output_->rate());
        const auto longest = Clock::now() < opened_ + kMaxBeginning ? Clock::duration(kMaxBeginning)
                                                                    : kMaxStandstill;
        return Clock::now() - moved_ > std::max<std::chrono::duration<double>>(longest, periods);
    }
    static std::int64_t framesSince(Clock::time_point time, unsigned rate) {
        return static_cast<std::int64_t>(
            std::chrono::duration<double>(Clock::now() - time).count() * rate);
    }

    void readClock() ORVEL_REQUIRES(shared_->mutex) {
        FrameClock& clock = shared_->clock;
        clock.hasDevice = output_ != nullptr;
        if (output_ == nullptr) {
            clock.time = Clock::now();
            clock.mixed = now();
            clock.heard = static_cast<double>(clock.mixed);
            clock.rate = silentRate_;
            clock.nominalRate = silentRate_;
            clock.latency = {};
            clock.soonest = clock.mixed;
            return;
        }
        const Clock::time_point before = Clock::now();
        const VoiceOutput::Position position = output_->position();
        const Clock::time_point after = Clock::now();
        clock.mixed = base_ + position.mixed;
        clock.latency = position.latency;
        clock.nominalRate = output_->rate();
        clock.soonest =
            clock.mixed + 2 * output_->period() + 4 * kTick.count() * output_->rate() / 1000;
        // If this thread was interrupted, nobody knows when the position was read.
        if (line_.empty() || after - before < kMaxReading) {
            const double latency = std::chrono::duration<double>(position.latency).count();
            line_.add(
                before + (after - before) / 2,
                static_cast<double>(clock.mixed) - latency * output_->rate());
        }
        clock.time = after;
        clock.heard = line_.frameAt(after);
        clock.rate = line_.rate();
    }

    void open() {
        // Not under the lock, because it may hang.
        auto output = VoiceOutput::openDevice(settings_.output);
        retry_ = Clock::now() + kRetry;
        const Vessa::Lock lock(shared_->mutex);
        if (output == nullptr) {
            if (std::exchange(shared_->device, SharedEngine::Device::Absent) ==
                SharedEngine::Device::Opening) {
                report(
                    settings_.output.name.empty()
                        ? "There is no sound device; it is opened when it comes"
                        : "There is no sound device \"" + settings_.output.name +
                              "\"; it is opened when it comes");
            }
            return;
        }
        const std::int64_t frame = now();
        output_ = std::move(output);
        silentRate_ = output_->rate(); // frames are counted alike if it is lost and returns
        opened_ = moved_ = Clock::now();
        base_ = frame - output_->clock();
        const VoiceOutput::Use use(output_.get());
        // A new gain has been reached at the end of the period that is mixed next; the clock may
        // have been read before that of the last one.
        auto pool = std::make_unique<VoicePool>(VoicePool::Settings{
            .voices = settings_.output.voices,
            .rate = output_->rate(),
            .settled = 2 * output_->period(),
            .reverb = settings_.reverb,
            .wet = settings_.wet,
            .reader = [this](const std::shared_ptr<SoundStream>& stream) { reader_.add(stream); },
            .clock = [this] { return base_ + output_->clock(); }});
        line_.reset(output_->rate());
        ++shared_->clock.opened;
        shared_->engine.setPool(std::move(pool), output_->rate(), frame);
        shared_->device = SharedEngine::Device::Open;
        shared_->deviceName = output_->name();
        shared_->period = output_->period();
        if (!std::exchange(problemsReported_, true)) {
            if (const std::string& problem = output_->problem(); !problem.empty()) {
                report(problem);
            }
            if (const std::string problem = output_->latencyProblem(settings_.output);
                !problem.empty()) {
                report(problem, Log::Level::Warning);
            }
        }
    }

    void close(const char* reason) {
        if (output_ == nullptr) {
            return;
        }
        {
            const Vessa::Lock lock(shared_->mutex);
            // The clock of a lost device stands still, but the time of the scene does not.
            const std::int64_t frame = now() + framesSince(moved_, output_->rate());
            const VoiceOutput::Use use(output_.get());
            shared_->engine.setPool(nullptr, silentRate_, frame);
            shared_->device = SharedEngine::Device::Absent;
            shared_->deviceName.clear();
            if (reason != nullptr) {
                report(reason);
            }
            base_ = frame;
            since_ = Clock::now();
        }
        output_.reset(); // not under the lock either
    }

    void report(const std::string& text, Log::Level level = Log::Level::Fatal)
        ORVEL_REQUIRES(shared_->mutex) {
        shared_->diagnostics.push_back(
            {Diagnostic::Code::NoDevice, level, {}, settings_.output.name, {}, text});
    }

    const std::shared_ptr<SharedEngine> shared_;
    const DeviceThread::Settings settings_;
    StreamReader reader_;
    std::unique_ptr<VoiceOutput> output_;
    bool problemsReported_ = false;
    ClockLine line_;
    unsigned silentRate_ = kSilentRate;
    std::int64_t base_ = 0; // of the device's clock, or of the time without a device
    std::int64_t latest_ = 0;
    Clock::time_point since_ = Clock::now();
    Clock::time_point opened_ = since_;
    Clock::time_point moved_ = since_; // when latest_ last changed
    Clock::time_point retry_ = since_;
};

} // namespace

DeviceThread::DeviceThread(const std::shared_ptr<SharedEngine>& engine, const Settings& settings)
    : worker_(
          [engine, settings](Worker::Signal& signal) { Session(engine, settings).run(signal); }) {}

} // namespace Orvel::detail
