#include <Orvel/detail/voices/StreamReader.h>

#include <Vessa/Mutex.h>

#include <vector>

namespace Orvel::detail {

namespace {

/// Much less than the data that is ready for a stream lasts.
constexpr std::chrono::milliseconds kPeriod{20};

} // namespace

struct StreamReader::Streams {
    void work(Worker::Signal& signal) {
        std::vector<std::shared_ptr<SoundStream>> now;
        do {
            {
                const Vessa::Lock lock(mutex);
                std::erase_if(all, [](const auto& stream) { return stream.use_count() == 1; });
                now = all;
            }
            // One chunk each, so that none waits for another's.
            for (bool busy = true; busy && !signal.stopped();) {
                busy = false;
                for (const auto& stream : now) {
                    busy = stream->fill() || busy;
                }
            }
            now.clear();
        } while (signal.wait(kPeriod));
    }

    Vessa::Mutex mutex;
    std::vector<std::shared_ptr<SoundStream>> all ORVEL_GUARDED_BY(mutex);
};

StreamReader::StreamReader()
    : streams_(std::make_shared<Streams>()),
      worker_([streams = streams_](Worker::Signal& signal) { streams->work(signal); }) {}

StreamReader::~StreamReader() = default;

void StreamReader::add(const std::shared_ptr<SoundStream>& stream) {
    {
        const Vessa::Lock lock(streams_->mutex);
        streams_->all.push_back(stream);
    }
    worker_.wake();
}

} // namespace Orvel::detail
