#include <Orvel/detail/voices/SoundLoader.h>

#include <Vessa/Mutex.h>

#include <deque>
#include <optional>
#include <system_error>
#include <utility>

namespace Orvel::detail {

struct SoundLoader::Jobs {
    struct Job {
        std::shared_ptr<Sound> sound;
        Corvid::URL url;
    };

    std::optional<Job> next() ORVEL_EXCLUDES(mutex) {
        const Vessa::Lock lock(mutex);
        if (waiting.empty()) {
            return std::nullopt;
        }
        Job job = std::move(waiting.front());
        waiting.pop_front();
        return job;
    }
    void work(Worker::Signal& signal) {
        constexpr std::chrono::seconds kLongWait{10};
        do {
            while (const auto job = signal.stopped() ? std::nullopt : next()) {
                if (job->sound.use_count() > 1) {
                    job->sound->load(job->url);
                }
            }
        } while (signal.wait(kLongWait));
    }

    Vessa::Mutex mutex;
    std::deque<Job> waiting ORVEL_GUARDED_BY(mutex);
};

SoundLoader::SoundLoader() : jobs_(std::make_shared<Jobs>()) {}

SoundLoader::~SoundLoader() = default;

void SoundLoader::load(std::shared_ptr<Sound> sound, const Corvid::URL& url) {
    {
        const Vessa::Lock lock(jobs_->mutex);
        jobs_->waiting.push_back({std::move(sound), url});
    }
    try {
        for (auto& worker : workers_) {
            if (worker == nullptr) {
                worker = std::make_unique<Worker>(
                    [jobs = jobs_](Worker::Signal& signal) { jobs->work(signal); });
            }
            worker->wake();
        }
    } catch (const std::system_error&) { // there is no thread left
        if (workers_[0] != nullptr) {
            return;
        }
        while (const auto job = jobs_->next()) {
            job->sound->load(job->url);
        }
    }
}

} // namespace Orvel::detail
